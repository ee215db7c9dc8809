// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CustomFieldText.h"

#include "platform/Dates.h"
#include "platform/Text.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"
#include "store/ServerShadow.h"

#include <algorithm>
#include <map>

namespace ledgerfinch::cli {
namespace {

/// What the server delivered, by field id: the stored numbers are narrower than those on the wire.
std::map<std::int64_t, std::string> deliveredValues(const CD_Document& document) {
    std::map<std::int64_t, std::string> values;
    const auto shadow = serverShadow(document);
    const auto raw = shadow ? shadow->raw("custom_fields") : std::nullopt;
    const auto elements = raw ? json::elements(*raw) : std::nullopt;
    for (const auto& element : elements.value_or(std::vector<std::string>())) {
        const auto object = JsonObject::parse(element);
        const auto field = object ? object->integer("field") : std::nullopt;
        if (field) values[*field] = std::string(object->raw("value").value_or("null"));
    }
    return values;
}

/// The value of an option as the server knows it: its position, or an id of its own on newer servers.
std::optional<std::string> optionLabel(const CD_Custom_Field& field, const std::string& value) {
    const auto options = [](const std::optional<std::string>& extraData) {
        const auto object = extraData ? JsonObject::parse(*extraData) : std::nullopt;
        return object ? object->elements("select_options") : std::nullopt;
    };
    if (const auto position = json::integer(value)) {
        const auto labels = options(field.extra_data());
        if (!labels || *position < 0 || static_cast<std::size_t>(*position) >= labels->size()) return std::nullopt;
        return json::text((*labels)[static_cast<std::size_t>(*position)]);
    }
    const auto shadow = serverShadow(field);
    const auto extra = shadow ? shadow->raw("extra_data") : std::nullopt;
    const auto delivered = extra ? options(std::string(*extra)) : std::nullopt;
    for (const auto& option : delivered.value_or(std::vector<std::string>())) {
        const auto object = JsonObject::parse(option);
        const auto id = object ? object->raw("id") : std::nullopt;
        if (id && *id == value) return object->text("label");
    }
    return std::nullopt;
}

std::string documentLinks(const std::string& value) {
    std::string text;
    const auto ids = json::integers(value);
    for (const auto id : ids.value_or(std::vector<std::int64_t>()))
        text += (text.empty() ? "#" : ", #") + std::to_string(id);
    return text;
}

std::string valueText(const CustomFieldLine& line, const CD_Custom_Field& field, const CD_Custom_Field_Value& value) {
    if (line.json == "null" || line.json.empty()) return {};
    if (line.dataType == "select")
        return optionLabel(field, line.json).value_or("unknown option " + json::text(line.json).value_or(line.json));
    if (line.dataType == "documentlink") return documentLinks(line.json);
    if (line.dataType == "date" && value.value_as_string()) return *value.value_as_string();
    if (line.dataType == "boolean") return line.json == "true" ? "yes" : "no";
    if (line.dataType == "monetary") {
        const auto currency = value.currency().value_or("");
        const auto amount = value.value_as_string().value_or(json::text(line.json).value_or(line.json));
        return currency.empty() ? amount : amount + " " + currency;
    }
    return json::text(line.json).value_or(line.json);
}

/// The stored value as JSON; of a date, the day instead of the stored seconds.
std::string storedJson(const std::string& dataType, const CD_Custom_Field_Value& value) {
    const auto stored = value.value();
    if (!stored || !json::isValid(*stored)) return "null";
    if (dataType != "date") return *stored;
    const auto seconds = json::number(*stored);
    if (!seconds) return "null";
    return jsonQuoted(dates::formatDateOnly(dates::fromSecondsSinceReferenceDate(*seconds)));
}

} // namespace

std::vector<CustomFieldLine> customFieldLines(const CD_Document& document) {
    const auto delivered = deliveredValues(document);
    std::vector<CustomFieldLine> lines;
    for (const auto& value : document.custom_field_values()) {
        const auto field = value->ofField();
        if (!field) continue;
        CustomFieldLine line;
        line.id = field->id();
        line.name = field->name().value_or("Untitled custom field");
        line.dataType = field->data_type().value_or("");
        const auto found = delivered.find(line.id);
        line.json = found != delivered.end() ? found->second : storedJson(line.dataType, *value);
        line.text = valueText(line, *field, *value);
        lines.push_back(std::move(line));
    }
    std::stable_sort(lines.begin(), lines.end(), [](const CustomFieldLine& first, const CustomFieldLine& second) {
        return text::compareLocalizedStandard(first.name, second.name) < 0;
    });
    return lines;
}

} // namespace ledgerfinch::cli
