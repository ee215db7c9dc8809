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

/// The wanted labels with the ids of the known options: first by equal text, so that a changed order takes its ids
/// along; what then is left keeps the id of its position, as a renamed option does.
std::string assignIds(const std::vector<std::string>& labels, std::vector<Option> known) {
    std::vector<const Option*> chosen(labels.size(), nullptr);
    for (std::size_t i = 0; i < labels.size(); ++i) {
        const auto match = std::find_if(known.begin(), known.end(), [&](const Option& option) {
            return !option.taken && json::text(option.label) == json::text(labels[i]);
        });
        if (match == known.end()) continue;
        match->taken = true;
        chosen[i] = &*match;
    }
    for (std::size_t i = 0; i < labels.size() && i < known.size(); ++i) {
        if (chosen[i] != nullptr || known[i].taken) continue;
        known[i].taken = true;
        chosen[i] = &known[i];
    }
    JsonWriter writer;
    writer.beginArray();
    for (std::size_t i = 0; i < labels.size(); ++i) {
        writer.beginObject();
        if (chosen[i] != nullptr) writer.rawMember("id", chosen[i]->id);
        writer.rawMember("label", labels[i]).endObject();
    }
    return writer.endArray().take();
}

} // namespace

bool isSelectField(std::string_view body) {
    const auto field = JsonObject::parse(body);
    return field && field->text("data_type") == "select";
}

TranslatedField withOptionIds(ApiHandler& api, std::string_view path, const std::string& body) {
    // Any answer tells which versions the server speaks; old servers tell none.
    const auto usual = api.send(api.request("GET", path, ApiHandler::Accept::Yes));
    if (effectiveStatus(usual) != 200) return {false, effectiveStatus(usual), {}, {}};
    const auto newest = api.dialect().newestVersion();
    if (!newest || *newest < kFirstWithIds) return {true, 200, body, std::nullopt};

    const int version = std::min(*newest, kNewestUnderstood);
    auto request = api.request("GET", path, ApiHandler::Accept::No);
    setHeader(request.headers, "Accept", ServerDialect::acceptHeader(version));
    const auto answer = api.send(std::move(request));
    const auto there = effectiveStatus(answer) == 200 ? JsonObject::parse(answer.body) : std::nullopt;
    auto field = JsonObject::parse(body);
    if (!there || !field) return {false, status::kNotSent, {}, {}};
    auto extra = field->object("extra_data");
    const auto labels = extra ? extra->elements("select_options") : std::nullopt;
    if (!labels) return {true, 200, body, version};
    // A field that becomes a select field with this update has no options yet.
    const auto known = optionsOf(*there);
    if (!known && there->text("data_type") == "select") return {false, status::kNotSent, {}, {}};
    extra->setRaw("select_options", assignIds(*labels, known.value_or(std::vector<Option>())));
    field->setRaw("extra_data", extra->toText());
    return {true, 200, field->toText(), version};
}

} // namespace ledgerfinch
