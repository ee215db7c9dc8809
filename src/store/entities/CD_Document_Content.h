// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Document;

/// The text of one document, apart from it, so that lists don't load it.
class CD_Document_Content final : public EntityObject<CD_Document_Content> {
public:
    static constexpr std::string_view kEntityName = "CD_Document_Content";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::text("content"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("ofDocument", "CD_Document", "content"),
    });

    [[nodiscard]] std::optional<std::string> content() const { return get<"content">(); }
    void setContent(std::optional<std::string> value) { set<"content">(std::move(value)); }

    [[nodiscard]] Ref<CD_Document> ofDocument() const;
    void setOfDocument(const Ref<CD_Document>& target);
};

} // namespace ledgerfinch
