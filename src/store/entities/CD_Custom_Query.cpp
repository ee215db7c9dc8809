// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Custom_Query.h"

#include "store/entities/CD_Custom_Filter.h"

namespace ledgerfinch {

std::vector<Ref<CD_Custom_Filter>> CD_Custom_Query::filters() const {
    return many<"filters", CD_Custom_Filter>();
}
void CD_Custom_Query::setFilters(const std::vector<Ref<CD_Custom_Filter>>& members) {
    setMany<"filters", CD_Custom_Filter>(members);
}

} // namespace ledgerfinch
