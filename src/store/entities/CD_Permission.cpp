// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Permission.h"

#include "store/entities/CD_Group.h"
#include "store/entities/CD_User.h"

namespace ledgerfinch {

Ref<CD_User> CD_Permission::ofUser() const {
    return one<"ofUser", CD_User>();
}
void CD_Permission::setOfUser(const Ref<CD_User>& target) {
    setOne<"ofUser", CD_User>(target);
}
Ref<CD_User> CD_Permission::inheritedBy() const {
    return one<"inheritedBy", CD_User>();
}
void CD_Permission::setInheritedBy(const Ref<CD_User>& target) {
    setOne<"inheritedBy", CD_User>(target);
}
Ref<CD_Group> CD_Permission::ofGroup() const {
    return one<"ofGroup", CD_Group>();
}
void CD_Permission::setOfGroup(const Ref<CD_Group>& target) {
    setOne<"ofGroup", CD_Group>(target);
}

} // namespace ledgerfinch
