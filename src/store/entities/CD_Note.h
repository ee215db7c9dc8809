// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Document;
class CD_User;

/// A note on a document.
class CD_Note final : public EntityObject<CD_Note> {
public:
    static constexpr std::string_view kEntityName = "CD_Note";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::integer("id", Indexed::Yes),
        schema::text("note"),
        schema::date("created"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("document", "CD_Document", "notes"),
        schema::toOne("user", "CD_User", "notes"),
    });

    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> note() const { return get<"note">(); }
    void setNote(std::optional<std::string> value) { set<"note">(std::move(value)); }
    [[nodiscard]] std::optional<Timestamp> created() const { return get<"created">(); }
    void setCreated(std::optional<Timestamp> value) { set<"created">(value); }

    [[nodiscard]] Ref<CD_Document> document() const;
    void setDocument(const Ref<CD_Document>& target);
    [[nodiscard]] Ref<CD_User> user() const;
    void setUser(const Ref<CD_User>& target);
};

} // namespace ledgerfinch
