// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Saved_View;

/// One rule of a saved view; rule_type is the server's number.
class CD_Filter_Rule final : public EntityObject<CD_Filter_Rule> {
public:
    static constexpr std::string_view kEntityName = "CD_Filter_Rule";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("rule_type"),
        schema::text("value"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("ofSavedView", "CD_Saved_View", "filter_rules"),
    });

    [[nodiscard]] std::int64_t rule_type() const { return get<"rule_type">(); }
    void setRule_type(std::int64_t value) { set<"rule_type">(value); }
    [[nodiscard]] std::optional<std::string> value() const { return get<"value">(); }
    void setValue(std::optional<std::string> value) { set<"value">(std::move(value)); }

    [[nodiscard]] Ref<CD_Saved_View> ofSavedView() const;
    void setOfSavedView(const Ref<CD_Saved_View>& target);
};

} // namespace ledgerfinch
