// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Custom_Field;
class CD_Document;

/// The value of one field on one document: as JSON, and as text for display and predicates.
class CD_Custom_Field_Value final : public EntityObject<CD_Custom_Field_Value> {
public:
    static constexpr std::string_view kEntityName = "CD_Custom_Field_Value";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::binary("value"),
        schema::text("value_as_string"),
        schema::text("currency"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("ofDocument", "CD_Document", "custom_field_values"),
        schema::toOne("ofField", "CD_Custom_Field", "values"),
    });

    [[nodiscard]] std::optional<std::string> value() const { return get<"value">(); }
    void setValue(std::optional<std::string> value) { set<"value">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> value_as_string() const { return get<"value_as_string">(); }
    void setValue_as_string(std::optional<std::string> value) { set<"value_as_string">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> currency() const { return get<"currency">(); }
    void setCurrency(std::optional<std::string> value) { set<"currency">(std::move(value)); }

    [[nodiscard]] Ref<CD_Document> ofDocument() const;
    void setOfDocument(const Ref<CD_Document>& target);
    [[nodiscard]] Ref<CD_Custom_Field> ofField() const;
    void setOfField(const Ref<CD_Custom_Field>& target);
};

} // namespace ledgerfinch
