// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/CustomHeaders.h"

#include "connection/Instances.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"

#include <algorithm>
#include <cctype>
#include <mutex>

namespace ledgerfinch {

namespace {

// One reader-changer-writer at a time; other processes don't edit headers.
std::mutex& settingMutex() {
    static std::mutex mutex;
    return mutex;
}

std::optional<CustomHeaders> decodeHeaders(std::string_view fragment) {
    const auto object = JsonObject::parse(fragment);
    if (!object) return std::nullopt;
    const auto elements = object->elements("headers");
    if (!elements || elements->size() % 2 != 0) return std::nullopt;
    CustomHeaders decoded;
    for (std::size_t i = 0; i < elements->size(); i += 2) {
        const auto key = json::text((*elements)[i]);
        const auto uuid = key ? Uuid::parse(*key) : std::nullopt;
        const auto entry = JsonObject::parse((*elements)[i + 1]);
        if (!uuid || !entry) return std::nullopt;
        auto name = entry->text("header");
        auto value = entry->text("value");
        if (!name || !value) return std::nullopt;
        decoded.headers.emplace_back(*uuid, CustomHeader{std::move(*name), std::move(*value)});
    }
    return decoded;
}

bool isHeaderName(std::string_view name) {
    static constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return std::isalnum(static_cast<unsigned char>(c)) != 0 || kMarks.find(c) != std::string_view::npos;
    });
}

bool isAcceptEncoding(const std::string& name) {
    return header({{name, {}}}, "Accept-Encoding").has_value();
}

bool hasControlCharacter(std::string_view value) {
    return std::any_of(value.begin(), value.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return (byte < 0x20 && c != '\t') || byte == 0x7f;
    });
}

Result<void> changeSetting(UserDefaults& defaults, std::string_view server,
                           const std::optional<CustomHeaders>& replacement) {
    const std::lock_guard lock(settingMutex());
    auto all = AllCustomHeaders::load(defaults);
    for (const auto& form : {addresses::otherForm(server), std::string(server)}) {
        all.headers.erase(form);
        all.unreadable.erase(form);
    }
    if (replacement) all.headers.emplace(server, *replacement);
    return defaults.set(AllCustomHeaders::kKey, all.encode());
}

} // namespace

std::optional<AllCustomHeaders> AllCustomHeaders::decode(std::string_view text) {
    const auto object = JsonObject::parse(text);
    if (!object) return std::nullopt;
    AllCustomHeaders all;
    for (const auto& [server, fragment] : object->members()) {
        auto decoded = decodeHeaders(fragment);
        if (decoded)
            all.headers.insert_or_assign(server, std::move(*decoded));
        else
            all.unreadable.insert_or_assign(server, fragment);
    }
    return all;
}

std::string AllCustomHeaders::encode() const {
    JsonWriter writer;
    writer.beginObject();
    for (const auto& [server, custom] : headers) {
        writer.key(server).beginObject().key("headers").beginArray();
        for (const auto& [uuid, entry] : custom.headers)
            writer.string(uuid.text())
                .beginObject()
                .member("header", entry.header)
                .member("value", entry.value)
                .endObject();
        writer.endArray().endObject();
    }
    for (const auto& [server, fragment] : unreadable)
        if (!headers.contains(server)) writer.rawMember(server, fragment);
    writer.endObject();
    return writer.take();
}

AllCustomHeaders AllCustomHeaders::load(const UserDefaults& defaults) {
    const auto text = defaults.string(kKey);
    if (!text) return {};
    return decode(*text).value_or(AllCustomHeaders{});
}

const CustomHeaders* AllCustomHeaders::find(std::string_view server) const {
    auto found = headers.find(std::string(server));
    if (found == headers.end()) found = headers.find(addresses::otherForm(server));
    return found == headers.end() ? nullptr : &found->second;
}

Result<void> storeCustomHeaders(UserDefaults& defaults, std::string_view server, const CustomHeaders& headers) {
    return changeSetting(defaults, server, headers);
}

Result<void> removeCustomHeaders(UserDefaults& defaults, std::string_view server) {
    return changeSetting(defaults, server, std::nullopt);
}

void applyCustomHeaders(const CustomHeaders& custom, HttpHeaders& headers, const Logger& log) {
    for (const auto& [uuid, entry] : custom.headers) {
        if (!isHeaderName(entry.header) || hasControlCharacter(entry.value) || isAcceptEncoding(entry.header)) {
            if (!entry.header.empty()) log.error("Custom header can't be sent: %s", entry.header);
            continue;
        }
        log.debug("Adding custom header to request: %{public}s: %s", entry.header, entry.value);
        setHeader(headers, entry.header, entry.value);
    }
}

} // namespace ledgerfinch
