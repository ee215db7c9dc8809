// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Note.h"

#include "store/entities/CD_Document.h"
#include "store/entities/CD_User.h"

namespace ledgerfinch {

Ref<CD_Document> CD_Note::document() const {
    return one<"document", CD_Document>();
}
void CD_Note::setDocument(const Ref<CD_Document>& target) {
    setOne<"document", CD_Document>(target);
}
Ref<CD_User> CD_Note::user() const {
    return one<"user", CD_User>();
}
void CD_Note::setUser(const Ref<CD_User>& target) {
    setOne<"user", CD_User>(target);
}

} // namespace ledgerfinch
