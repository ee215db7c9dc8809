// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Saved_View.h"

#include "store/entities/CD_Filter_Rule.h"
#include "store/entities/CD_User.h"

namespace ledgerfinch {

std::vector<Ref<CD_Filter_Rule>> CD_Saved_View::filter_rules() const {
    return many<"filter_rules", CD_Filter_Rule>();
}
void CD_Saved_View::setFilter_rules(const std::vector<Ref<CD_Filter_Rule>>& members) {
    setMany<"filter_rules", CD_Filter_Rule>(members);
}
Ref<CD_User> CD_Saved_View::owner() const {
    return one<"owner", CD_User>();
}
void CD_Saved_View::setOwner(const Ref<CD_User>& target) {
    setOne<"owner", CD_User>(target);
}

} // namespace ledgerfinch
