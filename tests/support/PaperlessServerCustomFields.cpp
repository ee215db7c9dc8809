// SPDX-License-Identifier: GPL-3.0-or-later
// The definitions of custom fields.
#include "support/PaperlessServerCustomValues.h"
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

std::int64_t countOf(const Context& context, Id id) {
    auto counts = countDocuments(context.state, *context.user);
    auto found = counts.byCustomField.find(id);
    return found == counts.byCustomField.end() ? 0 : found->second;
}

CustomField* find(Context& context) {
    auto found = context.state.customFields.find(context.id());
    return found == context.state.customFields.end() ? nullptr : &found->second;
}

/// Each type has a column of its own, so that a field of another type starts without values.
void forgetValues(State& state, Id field) {
    for (auto& [id, document] : state.documents) {
        for (auto& value : document.customFields) {
            if (value.field == field) value.value = nullptr;
        }
    }
}

/// 16 letters that no option had before.
std::string newOptionId(State& state) {
    return "opt" + sha1Hex("option " + std::to_string(state.takeId("select_options"))).substr(0, 13);
}

Response extraDataError(const char* text) {
    return jsonResponse(Json{{"error", Json::array({text})}}, 400);
}

/// Reads new options. Before version 7 every option is its label and gets a new id.
std::optional<Response> readOptions(Context& context, const Json& options, CustomField& field) {
    std::vector<SelectOption> read;
    for (const auto& option : options) {
        if (!context.api.hasOptionIds) {
            read.push_back({newOptionId(context.state), option, false});
            continue;
        }
        if (!option.is_object() || !option.contains("label")) return serverError();
        auto id = option.value("id", Json());
        read.push_back({id.is_string() ? id.get<std::string>() : newOptionId(context.state), option["label"],
                        option.begin().key() == "id"});
    }
    field.options = std::move(read);
    return std::nullopt;
}

std::optional<Response> readExtraData(Context& context, const BodyReader& body, CustomField& field) {
    if (!context.release.hasRichFields) return std::nullopt;
    const auto* extra = body.find("extra_data");
    if (field.dataType == "select") {
        auto hasOptions = extra != nullptr && extra->is_object() && extra->contains("select_options") &&
                          (*extra)["select_options"].is_array() && !(*extra)["select_options"].empty();
        if (!hasOptions) return extraDataError("extra_data.select_options must be a valid list");
        // Old versions turn labels into options only where the request names the type.
        if (!context.api.hasOptionIds && !body.has("data_type")) return serverError();
        return readOptions(context, (*extra)["select_options"], field);
    }
    if (extra == nullptr || !extra->is_object()) return std::nullopt;
    if (field.dataType == "monetary" && extra->contains("default_currency")) {
        const auto& currency = (*extra)["default_currency"];
        auto isGood = currency.is_string() && (currency.get_ref<const std::string&>().empty() ||
                                               currency.get_ref<const std::string&>().size() == 3);
        if (!currency.is_null() && !isGood)
            return extraDataError("extra_data.default_currency must be a 3-character string");
    }
    field.extraData = *extra;
    return std::nullopt;
}

std::optional<Response> readField(Context& context, BodyReader& body, CustomField& field) {
    auto named = body.text("name", field.name, {.required = true, .mayBeBlank = false, .longest = 128});
    auto taken = named && std::any_of(context.state.customFields.begin(), context.state.customFields.end(),
                                      [&](const auto& other) {
                                          return other.first != field.id && other.second.name == field.name;
                                      });
    if (taken) body.fail("name", "custom field with this name already exists.");
    body.choice("data_type", field.dataType, dataTypes(context.release), true);
    if (body.failed()) return body.errors();
    return readExtraData(context, body, field);
}

} // namespace

Response listCustomFields(Context& context) {
    auto counts = countDocuments(context.state, *context.user);
    std::vector<Id> ids;
    for (const auto& [id, field] : context.state.customFields)
        ids.push_back(id);
    if (context.release.sortsFieldsByName) {
        std::stable_sort(ids.begin(), ids.end(), [&](Id left, Id right) {
            const auto& fields = context.state.customFields;
            return fields.at(left).name < fields.at(right).name;
        });
    } else {
        std::reverse(ids.begin(), ids.end());
    }
    return pagedResponse(context, ids, [&](std::string& to, Id id) {
        auto found = counts.byCustomField.find(id);
        auto count = found == counts.byCustomField.end() ? 0 : found->second;
        to += textOf(customFieldJson(context.state.customFields.at(id), context.api, count));
    });
}

Response createCustomField(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    CustomField field;
    if (auto error = readField(context, body, field)) return *error;
    field.id = context.state.takeId("custom_fields");
    context.state.customFields[field.id] = field;
    context.state.changed();
    return jsonResponse(customFieldJson(field, context.api, std::nullopt), 201);
}

Response getCustomField(Context& context) {
    const auto* field = find(context);
    if (field == nullptr) return noMatch("CustomField");
    return jsonResponse(customFieldJson(*field, context.api, countOf(context, field->id)));
}

Response updateCustomField(Context& context) {
    auto* field = find(context);
    if (field == nullptr) return noMatch("CustomField");
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *field;
    if (auto error = readField(context, body, changed)) return *error;
    auto isOtherType = changed.dataType != field->dataType;
    *field = std::move(changed);
    if (isOtherType) forgetValues(context.state, field->id);
    context.state.changed();
    return jsonResponse(customFieldJson(*field, context.api, countOf(context, field->id)));
}

Response deleteCustomField(Context& context) {
    const auto* field = find(context);
    if (field == nullptr) return noMatch("CustomField");
    removeCustomField(context.state, field->id);
    return noContent();
}

void removeCustomField(State& state, Id id) {
    for (auto& [documentId, document] : state.documents)
        std::erase_if(document.customFields, [&](const CustomFieldValue& value) { return value.field == id; });
    state.customFields.erase(id);
    state.changed();
}

} // namespace ledgerfinch::support
