// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Document.h"

#include "store/entities/CD_Correspondent.h"
#include "store/entities/CD_Custom_Field.h"
#include "store/entities/CD_Custom_Field_Value.h"
#include "store/entities/CD_Document_Content.h"
#include "store/entities/CD_Document_Type.h"
#include "store/entities/CD_Group.h"
#include "store/entities/CD_Note.h"
#include "store/entities/CD_Storage_Path.h"
#include "store/entities/CD_Tag.h"
#include "store/entities/CD_User.h"

namespace ledgerfinch {

Ref<CD_Document_Content> CD_Document::content() const {
    return one<"content", CD_Document_Content>();
}
void CD_Document::setContent(const Ref<CD_Document_Content>& target) {
    setOne<"content", CD_Document_Content>(target);
}
Ref<CD_Correspondent> CD_Document::correspondent() const {
    return one<"correspondent", CD_Correspondent>();
}
void CD_Document::setCorrespondent(const Ref<CD_Correspondent>& target) {
    setOne<"correspondent", CD_Correspondent>(target);
}
Ref<CD_Document_Type> CD_Document::document_type() const {
    return one<"document_type", CD_Document_Type>();
}
void CD_Document::setDocument_type(const Ref<CD_Document_Type>& target) {
    setOne<"document_type", CD_Document_Type>(target);
}
Ref<CD_Storage_Path> CD_Document::storage_path() const {
    return one<"storage_path", CD_Storage_Path>();
}
void CD_Document::setStorage_path(const Ref<CD_Storage_Path>& target) {
    setOne<"storage_path", CD_Storage_Path>(target);
}
Ref<CD_User> CD_Document::owner() const {
    return one<"owner", CD_User>();
}
void CD_Document::setOwner(const Ref<CD_User>& target) {
    setOne<"owner", CD_User>(target);
}
std::vector<Ref<CD_Tag>> CD_Document::tags() const {
    return many<"tags", CD_Tag>();
}
void CD_Document::setTags(const std::vector<Ref<CD_Tag>>& members) {
    setMany<"tags", CD_Tag>(members);
}
void CD_Document::addTagsObject(const Ref<CD_Tag>& member) {
    addTo<"tags", CD_Tag>(member);
}
void CD_Document::removeTagsObject(const Ref<CD_Tag>& member) {
    removeFrom<"tags", CD_Tag>(member);
}
std::vector<Ref<CD_Note>> CD_Document::notes() const {
    return many<"notes", CD_Note>();
}
void CD_Document::setNotes(const std::vector<Ref<CD_Note>>& members) {
    setMany<"notes", CD_Note>(members);
}
std::vector<Ref<CD_Custom_Field>> CD_Document::custom_fields() const {
    return many<"custom_fields", CD_Custom_Field>();
}
void CD_Document::setCustom_fields(const std::vector<Ref<CD_Custom_Field>>& members) {
    setMany<"custom_fields", CD_Custom_Field>(members);
}
void CD_Document::addCustom_fieldsObject(const Ref<CD_Custom_Field>& member) {
    addTo<"custom_fields", CD_Custom_Field>(member);
}
std::vector<Ref<CD_Custom_Field_Value>> CD_Document::custom_field_values() const {
    return many<"custom_field_values", CD_Custom_Field_Value>();
}
void CD_Document::setCustom_field_values(const std::vector<Ref<CD_Custom_Field_Value>>& members) {
    setMany<"custom_field_values", CD_Custom_Field_Value>(members);
}
void CD_Document::addCustom_field_valuesObject(const Ref<CD_Custom_Field_Value>& member) {
    addTo<"custom_field_values", CD_Custom_Field_Value>(member);
}
std::vector<Ref<CD_User>> CD_Document::viewable_by_user() const {
    return many<"viewable_by_user", CD_User>();
}
void CD_Document::setViewable_by_user(const std::vector<Ref<CD_User>>& members) {
    setMany<"viewable_by_user", CD_User>(members);
}
std::vector<Ref<CD_User>> CD_Document::editable_by_user() const {
    return many<"editable_by_user", CD_User>();
}
void CD_Document::setEditable_by_user(const std::vector<Ref<CD_User>>& members) {
    setMany<"editable_by_user", CD_User>(members);
}
std::vector<Ref<CD_Group>> CD_Document::viewable_by_group() const {
    return many<"viewable_by_group", CD_Group>();
}
void CD_Document::setViewable_by_group(const std::vector<Ref<CD_Group>>& members) {
    setMany<"viewable_by_group", CD_Group>(members);
}
std::vector<Ref<CD_Group>> CD_Document::editable_by_group() const {
    return many<"editable_by_group", CD_Group>();
}
void CD_Document::setEditable_by_group(const std::vector<Ref<CD_Group>>& members) {
    setMany<"editable_by_group", CD_Group>(members);
}

void CD_Document::willSave() {
    m_updatedInSave = isUpdated();
}

// Reported only once the save is committed, so that what reads the store afterwards finds the document as it now is.
void CD_Document::didSave() {
    const bool updated = std::exchange(m_updatedInSave, false);
    if (!m_sink) return;
    if (isDeleted()) {
        if (const auto key = uuid()) m_sink->documentRemoved(*key);
    } else if (updated || isInserted()) {
        m_sink->documentSaved(objectID());
    }
}

} // namespace ledgerfinch
