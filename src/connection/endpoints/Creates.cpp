// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Creates.h"

#include "connection/endpoints/Pages.h"
#include "connection/endpoints/Refusals.h"
#include "platform/Text.h"
#include "records/Decoders.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"

namespace ledgerfinch {

namespace {

template <class Record>
Created<Record> create(ApiHandler& api, std::string_view path, std::string body, std::string_view logFormat,
                       std::optional<Record> (*decode)(std::string_view, const DecodeContext&)) {
    auto request = api.request("POST", path, ApiHandler::Accept::Yes);
    ApiHandler::setJsonBody(request, std::move(body));
    const auto response = api.send(std::move(request));
    Created<Record> created{effectiveStatus(response), std::nullopt, text::toValidUtf8(response.body)};
    if (!status::isSuccess(created.status))
        logFailure(api, logFormat, response);
    else
        created.record = decode(response.body, api.decodeContext());
    return created;
}

std::string permissionsText(const NewAttribute& values) {
    JsonWriter writer;
    writer.beginObject();
    writer.key("view").beginObject();
    writer.member("users", values.viewable_by_users).member("groups", values.viewable_by_groups).endObject();
    writer.key("change").beginObject();
    writer.member("users", values.editable_by_users).member("groups", values.editable_by_groups).endObject();
    return writer.endObject().take();
}

/// The answer of a creating call doesn't name the permissions, which the server has just taken over.
template <class Record>
Created<Record> withPermissions(Created<Record> created, const NewAttribute& values) {
    if (!created.record || created.record->permissions) return created;
    created.record->permissions =
        Document_Permissions{UsersGroupsDict{values.viewable_by_users, values.viewable_by_groups},
                             UsersGroupsDict{values.editable_by_users, values.editable_by_groups}};
    auto raw = JsonObject::parse(created.record->raw).value_or(JsonObject());
    raw.setRaw("permissions", permissionsText(values));
    created.record->raw = raw.toText();
    return created;
}

void writeOwner(JsonWriter& body, const NewAttribute& values) {
    body.member("owner", values.owner).rawMember("set_permissions", permissionsText(values));
}

void writeMatching(JsonWriter& body, const NewAttribute& values) {
    body.member("match", values.match)
        .member("matching_algorithm", values.matching_algorithm)
        .member("is_insensitive", values.is_insensitive);
}

std::string attributeBody(const NewAttribute& values) {
    JsonWriter body;
    body.beginObject().member("name", values.name);
    writeMatching(body, values);
    writeOwner(body, values);
    return body.endObject().take();
}

} // namespace

Created<Tag> createTag(ApiHandler& api, const NewAttribute& values) {
    JsonWriter body;
    body.beginObject().member("name", values.name).member("color", values.color);
    writeMatching(body, values);
    body.member("is_inbox_tag", values.is_inbox_tag);
    writeOwner(body, values);
    body.endObject();
    return withPermissions(create(api, "/api/tags/", body.take(), "Error updating document %{public}s", decodeTag),
                           values);
}

Created<Correspondent> createCorrespondent(ApiHandler& api, const NewAttribute& values) {
    return withPermissions(create(api, "/api/correspondents/", attributeBody(values),
                                  "Error posting correspondent %{public}s", decodeCorrespondent),
                           values);
}

Created<Document_Type> createDocumentType(ApiHandler& api, const NewAttribute& values) {
    return withPermissions(create(api, "/api/document_types/", attributeBody(values),
                                  "Error posting document type %{public}s", decodeDocumentType),
                           values);
}

Created<Storage_Path> createStoragePath(ApiHandler& api, const NewAttribute& values) {
    JsonWriter body;
    body.beginObject().member("name", values.name);
    writeMatching(body, values);
    writeOwner(body, values);
    body.member("path", values.path).endObject();
    return withPermissions(
        create(api, "/api/storage_paths/", body.take(), "Error posting storage path %{public}s", decodeStoragePath),
        values);
}

Created<Custom_Field> createCustomField(ApiHandler& api, const NewCustomField& values) {
    JsonWriter body;
    body.beginObject().member("name", values.name).member("data_type", rawValue(values.data_type));
    body.key("extra_data").beginObject();
    if (values.data_type == Data_Type::monetary && !values.default_currency.empty())
        body.member("default_currency", values.default_currency);
    if (values.data_type == Data_Type::select) body.member("select_options", values.select_options);
    body.endObject().endObject();
    return create(api, "/api/custom_fields/", body.take(), "Error posting custom field %{public}s", decodeCustomField);
}

Created<Saved_view> createSavedView(ApiHandler& api, const Saved_view& values) {
    JsonWriter body;
    body.beginObject()
        .member("name", values.name)
        .member("show_on_dashboard", values.show_on_dashboard.value_or(false))
        .member("show_in_sidebar", values.show_in_sidebar.value_or(false))
        .member("sort_field", values.sort_field)
        .member("sort_reverse", values.sort_reverse.value_or(false));
    body.key("filter_rules").beginArray();
    for (const auto& rule : values.filter_rules)
        body.beginObject().member("rule_type", rule.rule_type).member("value", rule.value).endObject();
    body.endArray().endObject();
    return create(api, "/api/saved_views/", body.take(), "Error posting saved view %{public}s", decodeSavedView);
}

} // namespace ledgerfinch
