// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

/// A record to be fetched or linked again; bookkeeping of RepairList.
class RepairEntry final : public EntityObject<RepairEntry> {
public:
    static constexpr std::string_view kEntityName = "RepairEntry";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::text("kind"),
        schema::integer("id", Indexed::Yes),
        schema::text("reason"),
    });
    static constexpr std::array<schema::Relation, 0> kRelations{};

    [[nodiscard]] std::optional<std::string> kind() const { return get<"kind">(); }
    void setKind(std::optional<std::string> value) { set<"kind">(std::move(value)); }
    [[nodiscard]] std::int64_t id() const { return get<"id">(); }
    void setId(std::int64_t value) { set<"id">(value); }
    [[nodiscard]] std::optional<std::string> reason() const { return get<"reason">(); }
    void setReason(std::optional<std::string> value) { set<"reason">(std::move(value)); }
};

} // namespace ledgerfinch
