// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Custom_Filter.h"

#include "store/entities/CD_Custom_Query.h"

namespace ledgerfinch {

Ref<CD_Custom_Query> CD_Custom_Filter::ofCustomQuery() const {
    return one<"ofCustomQuery", CD_Custom_Query>();
}
void CD_Custom_Filter::setOfCustomQuery(const Ref<CD_Custom_Query>& target) {
    setOne<"ofCustomQuery", CD_Custom_Query>(target);
}

} // namespace ledgerfinch
