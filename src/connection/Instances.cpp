// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/Instances.h"

#include "platform/Http.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"
#include "store/FilenameSchemes.h"
#include "store/StoreNames.h"

#include <algorithm>
#include <cctype>
#include <mutex>

namespace ledgerfinch {

namespace addresses {

std::string withoutSlash(std::string_view address) {
    if (!address.empty() && address.back() == '/') address.remove_suffix(1);
    return std::string(address);
}

std::string otherForm(std::string_view address) {
    if (!address.empty() && address.back() == '/') return withoutSlash(address);
    return std::string(address) + "/";
}

bool same(std::string_view first, std::string_view second) {
    return first == second || otherForm(first) == second;
}

namespace {

bool namesUser(std::string_view address) {
    const auto scheme = address.find("://");
    const auto start = scheme == std::string_view::npos ? 0 : scheme + 3;
    const auto authority = address.substr(start, address.find_first_of("/?#\\", start) - start);
    return authority.find('@') != std::string_view::npos;
}

} // namespace

bool isValid(std::string_view address) {
    const bool clean = std::none_of(address.begin(), address.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte <= 0x20 || byte == 0x7f;
    });
    return clean && isHttpUrl(address) && !namesUser(address);
}

} // namespace addresses

namespace {

// One reader-changer-writer at a time: a sync and a screen may both have something to add.
std::mutex& settingMutex() {
    static std::mutex mutex;
    return mutex;
}

bool sameStore(std::string_view first, std::string_view second) {
    const auto lower = [](char c) {
        return std::tolower(static_cast<unsigned char>(c));
    };
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

std::optional<Instance> decodeInstance(std::string_view fragment) {
    const auto object = JsonObject::parse(fragment);
    if (!object) return std::nullopt;
    auto store = object->text("store");
    if (!store) return std::nullopt;
    return Instance{std::move(*store), object->text("lastSuccessfulSync").value_or(""),
                    object->text("serverVersion").value_or(""), object->text("serverURL")};
}

} // namespace

std::optional<ConnectedInstances> ConnectedInstances::decode(std::string_view text) {
    const auto object = JsonObject::parse(text);
    if (!object) return std::nullopt;
    ConnectedInstances decoded;
    for (const auto& [address, fragment] : object->members()) {
        auto instance = decodeInstance(fragment);
        if (instance)
            decoded.instances.insert_or_assign(address, std::move(*instance));
        else
            decoded.unreadable.insert_or_assign(address, fragment);
    }
    return decoded;
}

std::string ConnectedInstances::encode() const {
    JsonWriter writer;
    writer.beginObject();
    for (const auto& [address, instance] : instances) {
        writer.key(address)
            .beginObject()
            .member("store", instance.store)
            .member("lastSuccessfulSync", instance.lastSuccessfulSync)
            .member("serverVersion", instance.serverVersion);
        if (instance.serverURL) writer.member("serverURL", *instance.serverURL);
        writer.endObject();
    }
    for (const auto& [address, fragment] : unreadable)
        if (!instances.contains(address)) writer.rawMember(address, fragment);
    writer.endObject();
    return writer.take();
}

ConnectedInstances ConnectedInstances::load(const UserDefaults& defaults) {
    const auto text = defaults.string(kKey);
    if (!text) return {};
    return decode(*text).value_or(ConnectedInstances{});
}

const std::pair<const std::string, Instance>* ConnectedInstances::find(std::string_view address) const {
    auto found = instances.find(std::string(address));
    if (found == instances.end()) found = instances.find(addresses::otherForm(address));
    return found == instances.end() ? nullptr : &*found;
}

std::set<std::string> ConnectedInstances::storeNames() const {
    std::set<std::string> names;
    for (const auto& [address, instance] : instances)
        names.insert(instance.store);
    return names;
}

bool ConnectedInstances::ownsStore(const std::string& address, const Instance& instance) const {
    if (!isStoreName(instance.store) || storeNames::isOffline(instance.store)) return false;
    return std::none_of(instances.begin(), instances.end(), [&](const auto& other) {
        return other.first != address && sameStore(other.second.store, instance.store);
    });
}

Result<void> changeInstances(UserDefaults& defaults, const std::function<void(ConnectedInstances&)>& change) {
    const std::lock_guard lock(settingMutex());
    auto connected = ConnectedInstances::load(defaults);
    const auto before = connected.instances;
    change(connected);
    if (connected.instances == before) return {};
    return defaults.set(ConnectedInstances::kKey, connected.encode());
}

Result<Instance> registerInstance(UserDefaults& defaults, std::string_view address) {
    Instance registered;
    auto stored = changeInstances(defaults, [&](ConnectedInstances& connected) {
        if (const auto* entry = connected.find(address)) {
            auto& instance = connected.instances.at(entry->first);
            if (!connected.ownsStore(entry->first, instance)) {
                instance.store = storeNameFor(entry->first, connected.storeNames());
                instance.lastSuccessfulSync.clear();
            }
            registered = instance;
            return;
        }
        registered.store = storeNameFor(address, connected.storeNames());
        connected.instances.emplace(address, registered);
    });
    if (!stored) return stored.error();
    return registered;
}

Result<void> updateInstance(UserDefaults& defaults, std::string_view address,
                            const std::optional<std::string>& lastSuccessfulSync,
                            const std::optional<std::string>& serverVersion) {
    return changeInstances(defaults, [&](ConnectedInstances& connected) {
        const auto* entry = connected.find(address);
        if (entry == nullptr) return;
        auto& instance = connected.instances.at(entry->first);
        if (lastSuccessfulSync) instance.lastSuccessfulSync = *lastSuccessfulSync;
        if (serverVersion) instance.serverVersion = *serverVersion;
    });
}

} // namespace ledgerfinch
