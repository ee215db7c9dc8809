// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Custom_Query;

/// One condition of a custom query.
class CD_Custom_Filter final : public EntityObject<CD_Custom_Filter> {
public:
    static constexpr std::string_view kEntityName = "CD_Custom_Filter";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::text("queryString"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("ofCustomQuery", "CD_Custom_Query", "filters"),
    });

    [[nodiscard]] std::optional<std::string> queryString() const { return get<"queryString">(); }
    void setQueryString(std::optional<std::string> value) { set<"queryString">(std::move(value)); }

    [[nodiscard]] Ref<CD_Custom_Query> ofCustomQuery() const;
    void setOfCustomQuery(const Ref<CD_Custom_Query>& target);
};

} // namespace ledgerfinch
