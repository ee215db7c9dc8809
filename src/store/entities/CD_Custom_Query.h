// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Custom_Filter;

/// A query of the person's own, kept in a store of its own.
class CD_Custom_Query final : public EntityObject<CD_Custom_Query> {
public:
    static constexpr std::string_view kEntityName = "CD_Custom_Query";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::text("name"),
        schema::text("groupedBy"),
        schema::text("sortField"),
        schema::boolean("sortReverse"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toMany("filters", "CD_Custom_Filter", "ofCustomQuery", DeleteRule::Cascade),
    });

    [[nodiscard]] std::optional<std::string> name() const { return get<"name">(); }
    void setName(std::optional<std::string> value) { set<"name">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> groupedBy() const { return get<"groupedBy">(); }
    void setGroupedBy(std::optional<std::string> value) { set<"groupedBy">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> sortField() const { return get<"sortField">(); }
    void setSortField(std::optional<std::string> value) { set<"sortField">(std::move(value)); }
    [[nodiscard]] bool sortReverse() const { return get<"sortReverse">(); }
    void setSortReverse(bool value) { set<"sortReverse">(value); }

    [[nodiscard]] std::vector<Ref<CD_Custom_Filter>> filters() const;
    void setFilters(const std::vector<Ref<CD_Custom_Filter>>& members);
};

} // namespace ledgerfinch
