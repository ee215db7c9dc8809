// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Custom_Field_Value;
class CD_Document;

/// The definition of a custom field. data_type is the text on the wire, extra_data the JSON encoding of the extra data.
class CD_Custom_Field final : public EntityObject<CD_Custom_Field> {
public:
    static constexpr std::string_view kEntityName = "CD_Custom_Field";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::text("name"),
        schema::text("data_type"),
        schema::binary("extra_data"),
        schema::binary("server_shadow"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toMany("ofDocument", "CD_Document", "custom_fields"),
        schema::toMany("values", "CD_Custom_Field_Value", "ofField"),
    });

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> name() const { return get<"name">(); }
    void setName(std::optional<std::string> value) { set<"name">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> data_type() const { return get<"data_type">(); }
    void setData_type(std::optional<std::string> value) { set<"data_type">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> extra_data() const { return get<"extra_data">(); }
    void setExtra_data(std::optional<std::string> value) { set<"extra_data">(std::move(value)); }
    [[nodiscard]] std::optional<std::string> server_shadow() const { return get<"server_shadow">(); }
    void setServer_shadow(std::optional<std::string> value) { set<"server_shadow">(std::move(value)); }

    [[nodiscard]] std::vector<Ref<CD_Document>> ofDocument() const;
    void setOfDocument(const std::vector<Ref<CD_Document>>& members);
    [[nodiscard]] std::vector<Ref<CD_Custom_Field_Value>> values() const;
    void setValues(const std::vector<Ref<CD_Custom_Field_Value>>& members);
};

} // namespace ledgerfinch
