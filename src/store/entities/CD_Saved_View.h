// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Filter_Rule;
class CD_User;

/// A saved view of the server.
class CD_Saved_View final : public EntityObject<CD_Saved_View> {
public:
    static constexpr std::string_view kEntityName = "CD_Saved_View";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::text("name"),
        schema::boolean("show_on_dashboard"),
        schema::boolean("show_in_sidebar"),
        schema::boolean("sort_reverse"),
        schema::text("sort_field"),
        schema::binary("server_shadow"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toMany("filter_rules", "CD_Filter_Rule", "ofSavedView", DeleteRule::Cascade),
        schema::toOne("owner", "CD_User", "owned_saved_views"),
    });

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> name() const { return get<"name">(); }
    void setName(std::optional<std::string> value) { set<"name">(std::move(value)); }
    [[nodiscard]] bool show_on_dashboard() const { return get<"show_on_dashboard">(); }
    void setShow_on_dashboard(bool value) { set<"show_on_dashboard">(value); }
    [[nodiscard]] bool show_in_sidebar() const { return get<"show_in_sidebar">(); }
    void setShow_in_sidebar(bool value) { set<"show_in_sidebar">(value); }
    [[nodiscard]] bool sort_reverse() const { return get<"sort_reverse">(); }
    void setSort_reverse(bool value) { set<"sort_reverse">(value); }
    [[nodiscard]] std::optional<std::string> sort_field() const { return get<"sort_field">(); }
    void setSort_field(std::optional<std::string> value) { set<"sort_field">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> server_shadow() const { return get<"server_shadow">(); }
    void setServer_shadow(std::optional<std::string> value) { set<"server_shadow">(std::move(value)); }

    [[nodiscard]] std::vector<Ref<CD_Filter_Rule>> filter_rules() const;
    void setFilter_rules(const std::vector<Ref<CD_Filter_Rule>>& members);
    [[nodiscard]] Ref<CD_User> owner() const;
    void setOwner(const Ref<CD_User>& target);
};

} // namespace ledgerfinch
