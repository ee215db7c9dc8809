// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Document_Content.h"

#include "store/entities/CD_Document.h"

namespace ledgerfinch {

Ref<CD_Document> CD_Document_Content::ofDocument() const {
    return one<"ofDocument", CD_Document>();
}
void CD_Document_Content::setOfDocument(const Ref<CD_Document>& target) {
    setOne<"ofDocument", CD_Document>(target);
}

} // namespace ledgerfinch
