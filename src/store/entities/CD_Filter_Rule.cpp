// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Filter_Rule.h"

#include "store/entities/CD_Saved_View.h"

namespace ledgerfinch {

Ref<CD_Saved_View> CD_Filter_Rule::ofSavedView() const {
    return one<"ofSavedView", CD_Saved_View>();
}
void CD_Filter_Rule::setOfSavedView(const Ref<CD_Saved_View>& target) {
    setOne<"ofSavedView", CD_Saved_View>(target);
}

} // namespace ledgerfinch
