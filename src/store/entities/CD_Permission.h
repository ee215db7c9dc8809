// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Schema.h"

namespace ledgerfinch {

class CD_Group;
class CD_User;

/// One right of a user or a group, as the server spells it. Exactly one of the three links is set.
class CD_Permission final : public EntityObject<CD_Permission> {
public:
    static constexpr std::string_view kEntityName = "CD_Permission";
    static constexpr auto kAttributes = std::to_array<schema::Attribute>({
        schema::text("stringRepresentation"),
    });
    static constexpr auto kRelations = std::to_array<schema::Relation>({
        schema::toOne("ofUser", "CD_User", "user_permissions"),
        schema::toOne("inheritedBy", "CD_User", "inherited_permissions"),
        schema::toOne("ofGroup", "CD_Group", "permissions"),
    });

    [[nodiscard]] std::optional<std::string> stringRepresentation() const { return get<"stringRepresentation">(); }
    void setStringRepresentation(std::optional<std::string> value) { set<"stringRepresentation">(std::move(value)); }

    [[nodiscard]] Ref<CD_User> ofUser() const;
    void setOfUser(const Ref<CD_User>& target);
    [[nodiscard]] Ref<CD_User> inheritedBy() const;
    void setInheritedBy(const Ref<CD_User>& target);
    [[nodiscard]] Ref<CD_Group> ofGroup() const;
    void setOfGroup(const Ref<CD_Group>& target);
};

} // namespace ledgerfinch
