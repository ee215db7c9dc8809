// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Correspondent.h"

#include "store/entities/CD_Document.h"
#include "store/entities/CD_Group.h"
#include "store/entities/CD_User.h"

namespace ledgerfinch {

std::vector<Ref<CD_Document>> CD_Correspondent::ofDocument() const {
    return many<"ofDocument", CD_Document>();
}
void CD_Correspondent::setOfDocument(const std::vector<Ref<CD_Document>>& members) {
    setMany<"ofDocument", CD_Document>(members);
}
Ref<CD_User> CD_Correspondent::owner() const {
    return one<"owner", CD_User>();
}
void CD_Correspondent::setOwner(const Ref<CD_User>& target) {
    setOne<"owner", CD_User>(target);
}
std::vector<Ref<CD_User>> CD_Correspondent::viewable_by_users() const {
    return many<"viewable_by_users", CD_User>();
}
void CD_Correspondent::setViewable_by_users(const std::vector<Ref<CD_User>>& members) {
    setMany<"viewable_by_users", CD_User>(members);
}
std::vector<Ref<CD_User>> CD_Correspondent::editable_by_users() const {
    return many<"editable_by_users", CD_User>();
}
void CD_Correspondent::setEditable_by_users(const std::vector<Ref<CD_User>>& members) {
    setMany<"editable_by_users", CD_User>(members);
}
std::vector<Ref<CD_Group>> CD_Correspondent::viewable_by_groups() const {
    return many<"viewable_by_groups", CD_Group>();
}
void CD_Correspondent::setViewable_by_groups(const std::vector<Ref<CD_Group>>& members) {
    setMany<"viewable_by_groups", CD_Group>(members);
}
std::vector<Ref<CD_Group>> CD_Correspondent::editable_by_groups() const {
    return many<"editable_by_groups", CD_Group>();
}
void CD_Correspondent::setEditable_by_groups(const std::vector<Ref<CD_Group>>& members) {
    setMany<"editable_by_groups", CD_Group>(members);
}

} // namespace ledgerfinch
