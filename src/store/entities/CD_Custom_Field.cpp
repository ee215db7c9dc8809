// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Custom_Field.h"

#include "store/entities/CD_Custom_Field_Value.h"
#include "store/entities/CD_Document.h"

namespace ledgerfinch {

std::vector<Ref<CD_Document>> CD_Custom_Field::ofDocument() const {
    return many<"ofDocument", CD_Document>();
}
void CD_Custom_Field::setOfDocument(const std::vector<Ref<CD_Document>>& members) {
    setMany<"ofDocument", CD_Document>(members);
}
std::vector<Ref<CD_Custom_Field_Value>> CD_Custom_Field::values() const {
    return many<"values", CD_Custom_Field_Value>();
}
void CD_Custom_Field::setValues(const std::vector<Ref<CD_Custom_Field_Value>>& members) {
    setMany<"values", CD_Custom_Field_Value>(members);
}

} // namespace ledgerfinch
