// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Correspondent;
class CD_Document;
class CD_Document_Type;
class CD_Group;
class CD_Note;
class CD_Permission;
class CD_Saved_View;
class CD_Storage_Path;
class CD_Tag;

/// A user of the server.
class CD_User final : public EntityObject<CD_User> {
public:
    static constexpr std::string_view kEntityName = "CD_User";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::text("username"),
        schema::text("email"),
        schema::text("password"),
        schema::text("first_name"),
        schema::text("last_name"),
        schema::date("date_joined"),
        schema::boolean("is_staff"),
        schema::boolean("is_active"),
        schema::boolean("is_superuser"),
        schema::binary("server_shadow"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toMany("groups", "CD_Group", "members"),
        schema::toMany("user_permissions", "CD_Permission", "ofUser", DeleteRule::Cascade),
        schema::toMany("inherited_permissions", "CD_Permission", "inheritedBy", DeleteRule::Cascade),
        schema::toMany("notes", "CD_Note", "user"),
        schema::toMany("owned_documents", "CD_Document", "owner"),
        schema::toMany("owned_tags", "CD_Tag", "owner"),
        schema::toMany("owned_correspondents", "CD_Correspondent", "owner"),
        schema::toMany("owned_document_types", "CD_Document_Type", "owner"),
        schema::toMany("owned_storage_paths", "CD_Storage_Path", "owner"),
        schema::toMany("owned_saved_views", "CD_Saved_View", "owner"),
        schema::toMany("can_view_documents", "CD_Document", "viewable_by_user"),
        schema::toMany("can_edit_documents", "CD_Document", "editable_by_user"),
        schema::toMany("can_view_tags", "CD_Tag", "viewable_by_users"),
        schema::toMany("can_edit_tags", "CD_Tag", "editable_by_users"),
        schema::toMany("can_view_correspondents", "CD_Correspondent", "viewable_by_users"),
        schema::toMany("can_edit_correspondents", "CD_Correspondent", "editable_by_users"),
        schema::toMany("can_view_document_type", "CD_Document_Type", "viewable_by_users"),
        schema::toMany("can_edit_document_type", "CD_Document_Type", "editable_by_users"),
        schema::toMany("can_view_storage_paths", "CD_Storage_Path", "viewable_by_users"),
        schema::toMany("can_edit_storage_paths", "CD_Storage_Path", "editable_by_users"),
    });

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> username() const { return get<"username">(); }
    void setUsername(std::optional<std::string> value) { set<"username">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> email() const { return get<"email">(); }
    void setEmail(std::optional<std::string> value) { set<"email">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> password() const { return get<"password">(); }
    void setPassword(std::optional<std::string> value) { set<"password">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> first_name() const { return get<"first_name">(); }
    void setFirst_name(std::optional<std::string> value) { set<"first_name">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> last_name() const { return get<"last_name">(); }
    void setLast_name(std::optional<std::string> value) { set<"last_name">(std::move(value)); }
    [[nodiscard]] std::optional<Timestamp> date_joined() const { return get<"date_joined">(); }
    void setDate_joined(std::optional<Timestamp> value) { set<"date_joined">(value); }
    [[nodiscard]] bool is_staff() const { return get<"is_staff">(); }
    void setIs_staff(bool value) { set<"is_staff">(value); }
    [[nodiscard]] bool is_active() const { return get<"is_active">(); }
    void setIs_active(bool value) { set<"is_active">(value); }
    [[nodiscard]] bool is_superuser() const { return get<"is_superuser">(); }
    void setIs_superuser(bool value) { set<"is_superuser">(value); }
    [[nodiscard]] std::optional<std::string> server_shadow() const { return get<"server_shadow">(); }
    void setServer_shadow(std::optional<std::string> value) { set<"server_shadow">(std::move(value)); }

    [[nodiscard]] std::vector<Ref<CD_Group>> groups() const;
    void setGroups(const std::vector<Ref<CD_Group>>& members);
    [[nodiscard]] std::vector<Ref<CD_Permission>> user_permissions() const;
    void setUser_permissions(const std::vector<Ref<CD_Permission>>& members);
    [[nodiscard]] std::vector<Ref<CD_Permission>> inherited_permissions() const;
    void setInherited_permissions(const std::vector<Ref<CD_Permission>>& members);
    [[nodiscard]] std::vector<Ref<CD_Note>> notes() const;
    void setNotes(const std::vector<Ref<CD_Note>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document>> owned_documents() const;
    void setOwned_documents(const std::vector<Ref<CD_Document>>& members);
    [[nodiscard]] std::vector<Ref<CD_Tag>> owned_tags() const;
    void setOwned_tags(const std::vector<Ref<CD_Tag>>& members);
    [[nodiscard]] std::vector<Ref<CD_Correspondent>> owned_correspondents() const;
    void setOwned_correspondents(const std::vector<Ref<CD_Correspondent>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document_Type>> owned_document_types() const;
    void setOwned_document_types(const std::vector<Ref<CD_Document_Type>>& members);
    [[nodiscard]] std::vector<Ref<CD_Storage_Path>> owned_storage_paths() const;
    void setOwned_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members);
    [[nodiscard]] std::vector<Ref<CD_Saved_View>> owned_saved_views() const;
    void setOwned_saved_views(const std::vector<Ref<CD_Saved_View>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document>> can_view_documents() const;
    void setCan_view_documents(const std::vector<Ref<CD_Document>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document>> can_edit_documents() const;
    void setCan_edit_documents(const std::vector<Ref<CD_Document>>& members);
    [[nodiscard]] std::vector<Ref<CD_Tag>> can_view_tags() const;
    void setCan_view_tags(const std::vector<Ref<CD_Tag>>& members);
    [[nodiscard]] std::vector<Ref<CD_Tag>> can_edit_tags() const;
    void setCan_edit_tags(const std::vector<Ref<CD_Tag>>& members);
    [[nodiscard]] std::vector<Ref<CD_Correspondent>> can_view_correspondents() const;
    void setCan_view_correspondents(const std::vector<Ref<CD_Correspondent>>& members);
    [[nodiscard]] std::vector<Ref<CD_Correspondent>> can_edit_correspondents() const;
    void setCan_edit_correspondents(const std::vector<Ref<CD_Correspondent>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document_Type>> can_view_document_type() const;
    void setCan_view_document_type(const std::vector<Ref<CD_Document_Type>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document_Type>> can_edit_document_type() const;
    void setCan_edit_document_type(const std::vector<Ref<CD_Document_Type>>& members);
    [[nodiscard]] std::vector<Ref<CD_Storage_Path>> can_view_storage_paths() const;
    void setCan_view_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members);
    [[nodiscard]] std::vector<Ref<CD_Storage_Path>> can_edit_storage_paths() const;
    void setCan_edit_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members);
};

} // namespace ledgerfinch
