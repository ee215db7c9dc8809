// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Correspondent;
class CD_Document;
class CD_Document_Type;
class CD_Permission;
class CD_Storage_Path;
class CD_Tag;
class CD_User;

/// A group of the server. can_edit_correspondents is to-one, unlike its siblings; nobody reads that side.
class CD_Group final : public EntityObject<CD_Group> {
public:
    static constexpr std::string_view kEntityName = "CD_Group";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::text("name"),
        schema::binary("server_shadow"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toMany("members", "CD_User", "groups"),
        schema::toMany("permissions", "CD_Permission", "ofGroup", DeleteRule::Cascade),
        schema::toMany("can_view_documents", "CD_Document", "viewable_by_group"),
        schema::toMany("can_edit_documents", "CD_Document", "editable_by_group"),
        schema::toMany("can_view_tags", "CD_Tag", "viewable_by_groups"),
        schema::toMany("can_edit_tags", "CD_Tag", "editable_by_groups"),
        schema::toMany("can_view_correspondents", "CD_Correspondent", "viewable_by_groups"),
        schema::toOne("can_edit_correspondents", "CD_Correspondent", "editable_by_groups"),
        schema::toMany("can_view_document_types", "CD_Document_Type", "viewable_by_groups"),
        schema::toMany("can_edit_document_types", "CD_Document_Type", "editable_by_groups"),
        schema::toMany("can_view_storage_paths", "CD_Storage_Path", "viewable_by_groups"),
        schema::toMany("can_edit_storage_paths", "CD_Storage_Path", "editable_by_groups"),
    });

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> name() const { return get<"name">(); }
    void setName(std::optional<std::string> value) { set<"name">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> server_shadow() const { return get<"server_shadow">(); }
    void setServer_shadow(std::optional<std::string> value) { set<"server_shadow">(std::move(value)); }

    [[nodiscard]] std::vector<Ref<CD_User>> members() const;
    void setMembers(const std::vector<Ref<CD_User>>& members);
    [[nodiscard]] std::vector<Ref<CD_Permission>> permissions() const;
    void setPermissions(const std::vector<Ref<CD_Permission>>& members);
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
    [[nodiscard]] Ref<CD_Correspondent> can_edit_correspondents() const;
    void setCan_edit_correspondents(const Ref<CD_Correspondent>& target);
    [[nodiscard]] std::vector<Ref<CD_Document_Type>> can_view_document_types() const;
    void setCan_view_document_types(const std::vector<Ref<CD_Document_Type>>& members);
    [[nodiscard]] std::vector<Ref<CD_Document_Type>> can_edit_document_types() const;
    void setCan_edit_document_types(const std::vector<Ref<CD_Document_Type>>& members);
    [[nodiscard]] std::vector<Ref<CD_Storage_Path>> can_view_storage_paths() const;
    void setCan_view_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members);
    [[nodiscard]] std::vector<Ref<CD_Storage_Path>> can_edit_storage_paths() const;
    void setCan_edit_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members);
};

} // namespace ledgerfinch
