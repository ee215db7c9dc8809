// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Custom_Field_Value.h"

#include "store/entities/CD_Custom_Field.h"
#include "store/entities/CD_Document.h"

namespace ledgerfinch {

Ref<CD_Document> CD_Custom_Field_Value::ofDocument() const {
    return one<"ofDocument", CD_Document>();
}
void CD_Custom_Field_Value::setOfDocument(const Ref<CD_Document>& target) {
    setOne<"ofDocument", CD_Document>(target);
}
Ref<CD_Custom_Field> CD_Custom_Field_Value::ofField() const {
    return one<"ofField", CD_Custom_Field>();
}
void CD_Custom_Field_Value::setOfField(const Ref<CD_Custom_Field>& target) {
    setOne<"ofField", CD_Custom_Field>(target);
}

} // namespace ledgerfinch
