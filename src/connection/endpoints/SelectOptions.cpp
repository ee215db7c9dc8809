// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/SelectOptions.h"

#include "connection/endpoints/Pages.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"

#include <algorithm>
#include <vector>

namespace ledgerfinch {

namespace {

/// From this version of the interface on, options have ids.
constexpr int kFirstWithIds = 7;
constexpr int kNewestUnderstood = 9;

struct Option {
    std::string id;    ///< JSON text
    std::string label; ///< JSON text
    bool taken = false;
};

std::optional<std::vector<Option>> optionsOf(const JsonObject& field) {
    const auto extra = field.object("extra_data");
    const auto elements = extra ? extra->elements("select_options") : std::nullopt;
    if (!elements) return std::nullopt;
    std::vector<Option> options;
    for (const auto& element : *elements) {
        const auto object = JsonObject::parse(element);
        const auto id = object ? object->raw("id") : std::nullopt;
        if (!id) return std::nullopt;
        options.push_back({std::string(*id), std::string(object->raw("label").value_or("null")), false});
    }
    return options;
}

/// The wanted labels with the ids of the known options, by equal text or by the text they had before: a changed order
/// takes its ids along, and an option in the place of another is not that option.
std::string assignIds(const std::vector<std::string>& labels, std::vector<Option> known, const OptionRenames& renames) {
    const auto take = [&known](const std::optional<std::string>& label) -> const Option* {
        const auto match = std::find_if(known.begin(), known.end(), [&](const Option& option) {
            return !option.taken && json::text(option.label) == label;
        });
        if (match == known.end()) return nullptr;
        match->taken = true;
        return &*match;
    };
    std::vector<const Option*> chosen(labels.size(), nullptr);
    // Renamed ones first: a new option may have taken over an earlier text.
    for (std::size_t i = 0; i < labels.size(); ++i)
        for (const auto& [before, after] : renames)
            if (chosen[i] == nullptr && json::text(labels[i]) == after) chosen[i] = take(before);
    for (std::size_t i = 0; i < labels.size(); ++i)
        if (chosen[i] == nullptr) chosen[i] = take(json::text(labels[i]));
    JsonWriter writer;
    writer.beginArray();
    for (std::size_t i = 0; i < labels.size(); ++i) {
        writer.beginObject();
        if (chosen[i] != nullptr) writer.rawMember("id", chosen[i]->id);
        writer.rawMember("label", labels[i]).endObject();
    }
    return writer.endArray().take();
}

/// The body with the "extra_data" that was just received, to the byte.
std::string withExtraData(const std::string& body, const JsonObject& received) {
    auto field = JsonObject::parse(body).value_or(JsonObject());
    if (const auto extra = received.raw("extra_data"); extra && field.has("extra_data"))
        field.setRaw("extra_data", std::string(*extra));
    return field.toText();
}

} // namespace

bool isSelectField(std::string_view body) {
    const auto field = JsonObject::parse(body);
    return field && field->text("data_type") == "select";
}

TranslatedField withOptionIds(ApiHandler& api, std::string_view path, const std::string& body, bool changesExtraData,
                              const OptionRenames& renames) {
    // Any answer tells which versions the server speaks; old servers tell none.
    const auto usual = api.send(api.request("GET", path, ApiHandler::Accept::Yes));
    if (effectiveStatus(usual) != 200) return {false, effectiveStatus(usual), {}, {}};
    const auto newest = api.dialect().newestVersion();
    if (!newest || *newest < kFirstWithIds) {
        const auto received = changesExtraData ? std::nullopt : JsonObject::parse(usual.body);
        return {true, 200, received ? withExtraData(body, *received) : body, std::nullopt};
    }

    const int version = std::min(*newest, kNewestUnderstood);
    auto request = api.request("GET", path, ApiHandler::Accept::No);
    setHeader(request.headers, "Accept", ServerDialect::acceptHeader(version));
    const auto answer = api.send(std::move(request));
    const auto there = effectiveStatus(answer) == 200 ? JsonObject::parse(answer.body) : std::nullopt;
    auto field = JsonObject::parse(body);
    if (!there || !field) return {false, status::kNotSent, {}, {}};
    if (!changesExtraData) return {true, 200, withExtraData(body, *there), version};
    auto extra = field->object("extra_data");
    const auto labels = extra ? extra->elements("select_options") : std::nullopt;
    if (!labels) return {true, 200, body, version};
    // A field that becomes a select field with this update has no options yet.
    const auto known = optionsOf(*there);
    if (!known && there->text("data_type") == "select") return {false, status::kNotSent, {}, {}};
    extra->setRaw("select_options", assignIds(*labels, known.value_or(std::vector<Option>()), renames));
    field->setRaw("extra_data", extra->toText());
    return {true, 200, field->toText(), version};
}

} // namespace ledgerfinch
