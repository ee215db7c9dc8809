// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/PaperlessAttribute.h"
#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Document;
class CD_Group;
class CD_User;

/// A correspondent. document_count stays 0.
class CD_Correspondent final : public EntityObject<CD_Correspondent>, public PaperlessAttribute {
public:
    static constexpr std::string_view kEntityName = "CD_Correspondent";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::text("name"),
        schema::text("slug"),
        schema::text("match"),
        schema::integer("matching_algorithm"),
        schema::integer("document_count"),
        schema::boolean("is_insensitive"),
        schema::date("last_correspondence"),
        schema::binary("server_shadow"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toMany("ofDocument", "CD_Document", "correspondent"),
        schema::toOne("owner", "CD_User", "owned_correspondents"),
        schema::toMany("viewable_by_users", "CD_User", "can_view_correspondents"),
        schema::toMany("editable_by_users", "CD_User", "can_edit_correspondents"),
        schema::toMany("viewable_by_groups", "CD_Group", "can_view_correspondents"),
        schema::toMany("editable_by_groups", "CD_Group", "can_edit_correspondents"),
    });

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> name() const { return get<"name">(); }
    void setName(std::optional<std::string> value) { set<"name">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> slug() const { return get<"slug">(); }
    void setSlug(std::optional<std::string> value) { set<"slug">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> match() const { return get<"match">(); }
    void setMatch(std::optional<std::string> value) { set<"match">(std::move(value)); }
    [[nodiscard]] std::int64_t matching_algorithm() const { return get<"matching_algorithm">(); }
    void setMatching_algorithm(std::int64_t value) { set<"matching_algorithm">(value); }
    [[nodiscard]] std::int64_t document_count() const { return get<"document_count">(); }
    void setDocument_count(std::int64_t value) { set<"document_count">(value); }
    [[nodiscard]] bool is_insensitive() const { return get<"is_insensitive">(); }
    void setIs_insensitive(bool value) { set<"is_insensitive">(value); }
    [[nodiscard]] std::optional<Timestamp> last_correspondence() const { return get<"last_correspondence">(); }
    void setLast_correspondence(std::optional<Timestamp> value) { set<"last_correspondence">(value); }
    [[nodiscard]] std::optional<std::string> server_shadow() const { return get<"server_shadow">(); }
    void setServer_shadow(std::optional<std::string> value) { set<"server_shadow">(std::move(value)); }

    [[nodiscard]] std::vector<Ref<CD_Document>> ofDocument() const;
    void setOfDocument(const std::vector<Ref<CD_Document>>& members);
    [[nodiscard]] Ref<CD_User> owner() const;
    void setOwner(const Ref<CD_User>& target);
    [[nodiscard]] std::vector<Ref<CD_User>> viewable_by_users() const;
    void setViewable_by_users(const std::vector<Ref<CD_User>>& members);
    [[nodiscard]] std::vector<Ref<CD_User>> editable_by_users() const;
    void setEditable_by_users(const std::vector<Ref<CD_User>>& members);
    [[nodiscard]] std::vector<Ref<CD_Group>> viewable_by_groups() const;
    void setViewable_by_groups(const std::vector<Ref<CD_Group>>& members);
    [[nodiscard]] std::vector<Ref<CD_Group>> editable_by_groups() const;
    void setEditable_by_groups(const std::vector<Ref<CD_Group>>& members);

    [[nodiscard]] std::int64_t attributeId() const override { return id(); }
    [[nodiscard]] std::string attributeName() const override { return name().value_or("Untitled Correspondent"); }
    [[nodiscard]] std::optional<std::string> attributeColor() const override { return std::nullopt; }
    [[nodiscard]] std::optional<std::string> attributeTextColor() const override { return std::nullopt; }
};

} // namespace ledgerfinch
