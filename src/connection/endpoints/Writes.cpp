// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Writes.h"

#include "connection/endpoints/BodyComposer.h"
#include "connection/endpoints/CustomFieldValues.h"
#include "objectstore/PersistentContainer.h"
#include "platform/Dates.h"
#include "records/JsonWriter.h"
#include "store/ServerShadow.h"

#include <algorithm>

namespace ledgerfinch {

namespace {

constexpr BodyComposer::PermissionRelations kDocumentPermissions{"viewable_by_user", "viewable_by_group",
                                                                 "editable_by_user", "editable_by_group"};
constexpr BodyComposer::PermissionRelations kAttributePermissions{"viewable_by_users", "viewable_by_groups",
                                                                  "editable_by_users", "editable_by_groups"};

template <class T>
PreparedWrite prepared(const T& object, std::string_view folder, std::string_view logFormat, std::string body,
                       const JsonObject& delivered) {
    PreparedWrite write;
    write.path = std::string(folder) + std::to_string(object.id()) + "/";
    write.body = std::move(body);
    write.entityName = T::kEntityName;
    write.id = object.id();
    write.logFormat = logFormat;
    write.delivered = delivered.toText();
    write.neverDelivered = !object.server_shadow().has_value();
    if (object.context() != nullptr) write.store = object.context()->container().shared_from_this();
    return write;
}

template <class T>
PreparedWrite prepared(const T& object, std::string_view folder, std::string_view logFormat,
                       const BodyComposer& composer) {
    auto write = prepared(object, folder, logFormat, composer.body().toText(), composer.deliveredAfterwards());
    write.permissionEdits = composer.permissionEdits();
    return write;
}

void addMatching(BodyComposer& body) {
    body.addAttribute("match");
    body.addAttribute("matching_algorithm");
    body.addAttribute("is_insensitive");
}

void addOwnerAndPermissions(BodyComposer& body) {
    body.addToOne("owner");
    body.addPermissions(kAttributePermissions);
}

/// The day that was chosen, as a plain date: servers turn a moment into a day of their own time zone, which may be
/// the next or the one before.
std::string chosenDay(const CD_Document& document) {
    const auto created = document.created();
    return created ? jsonQuoted(dates::formatDateOnly(*created)) : std::string("null");
}

/// The delivered date as it came. Dates long past come with seconds in their offset, which not every server reads back;
/// these are midnight of the server's day, so the day says it all.
std::optional<std::string> deliveredDay(const BodyComposer& body) {
    const auto fragment = body.delivered("created");
    const auto text = fragment ? json::text(*fragment) : std::nullopt;
    constexpr std::size_t kDayLength = 10;
    const auto time = text ? text->find('T') : std::string::npos;
    if (time != kDayLength) return fragment;
    const auto offset = text->find_first_of("+-", time);
    const bool hasSeconds = offset != std::string::npos &&
                            std::count(text->begin() + static_cast<std::ptrdiff_t>(offset), text->end(), ':') > 1;
    return hasSeconds ? jsonQuoted(text->substr(0, kDayLength)) : *fragment;
}

} // namespace

PreparedWrite prepareUpdate(const CD_Document& document) {
    BodyComposer body(document, serverShadow(document));
    body.addAttribute("title");
    body.addToOne("correspondent");
    body.addToOne("document_type");
    body.addToOne("storage_path");
    body.addIds("tags");
    body.add("created", body.changed("created") ? chosenDay(document) : deliveredDay(body), "created");
    body.add("archive_serial_number", body.changed("archive_serial_number"), [&] {
        const auto number = document.archive_serial_number();
        return number != 0 ? std::to_string(number) : std::string("null");
    });
    body.addToOne("owner");
    body.addPermissions(kDocumentPermissions);
    body.add("custom_fields", customFieldsChanged(document),
             [&] { return customFieldsNow(document, body.delivered("custom_fields")); });

    auto delivered = body.deliveredAfterwards();
    if (body.changed("created"))
        delivered.remove("created_date");
    else if (const auto created = body.delivered("created"))
        delivered.setRaw("created", *created);
    auto write =
        prepared(document, "/api/documents/", "Error updating document %{public}s", body.body().toText(), delivered);
    write.permissionEdits = body.permissionEdits();
    return write;
}

PreparedWrite prepareContentUpdate(const CD_Document& document, const std::string& content) {
    JsonWriter body;
    body.beginObject().member("content", content).endObject();
    return prepared(document, "/api/documents/", "Error updating document %{public}s", body.take(),
                    serverShadow(document).value_or(JsonObject()));
}

PreparedWrite prepareUpdate(const CD_Tag& tag) {
    BodyComposer body(tag, serverShadow(tag));
    body.addAttribute("name");
    body.addAttribute("color");
    addMatching(body);
    body.addAttribute("is_inbox_tag");
    addOwnerAndPermissions(body);
    return prepared(tag, "/api/tags/", "Error updating document %{public}s", body);
}

PreparedWrite prepareUpdate(const CD_Correspondent& correspondent) {
    BodyComposer body(correspondent, serverShadow(correspondent));
    body.addAttribute("name");
    addMatching(body);
    addOwnerAndPermissions(body);
    return prepared(correspondent, "/api/correspondents/", "Error updating correspondent %{public}s", body);
}

PreparedWrite prepareUpdate(const CD_Document_Type& type) {
    BodyComposer body(type, serverShadow(type));
    body.addAttribute("name");
    addMatching(body);
    addOwnerAndPermissions(body);
    return prepared(type, "/api/document_types/", "Error updating document type %{public}s", body);
}

PreparedWrite prepareUpdate(const CD_Storage_Path& path) {
    BodyComposer body(path, serverShadow(path));
    body.addAttribute("name");
    addMatching(body);
    addOwnerAndPermissions(body);
    body.addAttribute("path");
    return prepared(path, "/api/storage_paths/", "Error updating storage path %{public}s", body);
}

PreparedWrite prepareUpdate(const CD_Custom_Field& field) {
    BodyComposer body(field, serverShadow(field));
    body.addAttribute("name");
    body.addAttribute("data_type");
    body.add("extra_data", body.changed("extra_data"), [&] {
        const auto extra = field.extra_data();
        return extra && json::isValid(*extra) ? *extra : std::string("null");
    });
    auto write = prepared(field, "/api/custom_fields/", "Error updating custom field %{public}s", body);
    write.changesExtraData = body.changed("extra_data");
    return write;
}

PreparedWrite prepareUpdate(const CD_Saved_View& view) {
    BodyComposer body(view, serverShadow(view));
    for (const auto* key : {"name", "show_on_dashboard", "show_in_sidebar", "sort_field", "sort_reverse"})
        body.addAttribute(key);
    return prepared(view, "/api/saved_views/", "Error updating saved view %{public}s", body);
}

PreparedWrite prepareUpdate(const CD_User& user) {
    BodyComposer body(user, serverShadow(user));
    for (const auto* key : {"username", "email", "first_name", "last_name", "is_staff", "is_active", "is_superuser"})
        body.addAttribute(key);
    body.addIds("groups");
    body.addPermissionTexts("inherited_permissions");
    return prepared(user, "/api/users/", "Error updating user %{public}s", body);
}

PreparedWrite prepareUpdate(const CD_Group& group) {
    BodyComposer body(group, serverShadow(group));
    body.addAttribute("name");
    body.addPermissionTexts("permissions");
    return prepared(group, "/api/groups/", "Error updating group %{public}s", body);
}

} // namespace ledgerfinch
