// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_User.h"

#include "store/entities/CD_Correspondent.h"
#include "store/entities/CD_Document.h"
#include "store/entities/CD_Document_Type.h"
#include "store/entities/CD_Group.h"
#include "store/entities/CD_Note.h"
#include "store/entities/CD_Permission.h"
#include "store/entities/CD_Saved_View.h"
#include "store/entities/CD_Storage_Path.h"
#include "store/entities/CD_Tag.h"

namespace ledgerfinch {

std::vector<Ref<CD_Group>> CD_User::groups() const {
    return many<"groups", CD_Group>();
}
void CD_User::setGroups(const std::vector<Ref<CD_Group>>& members) {
    setMany<"groups", CD_Group>(members);
}
std::vector<Ref<CD_Permission>> CD_User::user_permissions() const {
    return many<"user_permissions", CD_Permission>();
}
void CD_User::setUser_permissions(const std::vector<Ref<CD_Permission>>& members) {
    setMany<"user_permissions", CD_Permission>(members);
}
std::vector<Ref<CD_Permission>> CD_User::inherited_permissions() const {
    return many<"inherited_permissions", CD_Permission>();
}
void CD_User::setInherited_permissions(const std::vector<Ref<CD_Permission>>& members) {
    setMany<"inherited_permissions", CD_Permission>(members);
}
std::vector<Ref<CD_Note>> CD_User::notes() const {
    return many<"notes", CD_Note>();
}
void CD_User::setNotes(const std::vector<Ref<CD_Note>>& members) {
    setMany<"notes", CD_Note>(members);
}
std::vector<Ref<CD_Document>> CD_User::owned_documents() const {
    return many<"owned_documents", CD_Document>();
}
void CD_User::setOwned_documents(const std::vector<Ref<CD_Document>>& members) {
    setMany<"owned_documents", CD_Document>(members);
}
std::vector<Ref<CD_Tag>> CD_User::owned_tags() const {
    return many<"owned_tags", CD_Tag>();
}
void CD_User::setOwned_tags(const std::vector<Ref<CD_Tag>>& members) {
    setMany<"owned_tags", CD_Tag>(members);
}
std::vector<Ref<CD_Correspondent>> CD_User::owned_correspondents() const {
    return many<"owned_correspondents", CD_Correspondent>();
}
void CD_User::setOwned_correspondents(const std::vector<Ref<CD_Correspondent>>& members) {
    setMany<"owned_correspondents", CD_Correspondent>(members);
}
std::vector<Ref<CD_Document_Type>> CD_User::owned_document_types() const {
    return many<"owned_document_types", CD_Document_Type>();
}
void CD_User::setOwned_document_types(const std::vector<Ref<CD_Document_Type>>& members) {
    setMany<"owned_document_types", CD_Document_Type>(members);
}
std::vector<Ref<CD_Storage_Path>> CD_User::owned_storage_paths() const {
    return many<"owned_storage_paths", CD_Storage_Path>();
}
void CD_User::setOwned_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members) {
    setMany<"owned_storage_paths", CD_Storage_Path>(members);
}
std::vector<Ref<CD_Saved_View>> CD_User::owned_saved_views() const {
    return many<"owned_saved_views", CD_Saved_View>();
}
void CD_User::setOwned_saved_views(const std::vector<Ref<CD_Saved_View>>& members) {
    setMany<"owned_saved_views", CD_Saved_View>(members);
}
std::vector<Ref<CD_Document>> CD_User::can_view_documents() const {
    return many<"can_view_documents", CD_Document>();
}
void CD_User::setCan_view_documents(const std::vector<Ref<CD_Document>>& members) {
    setMany<"can_view_documents", CD_Document>(members);
}
std::vector<Ref<CD_Document>> CD_User::can_edit_documents() const {
    return many<"can_edit_documents", CD_Document>();
}
void CD_User::setCan_edit_documents(const std::vector<Ref<CD_Document>>& members) {
    setMany<"can_edit_documents", CD_Document>(members);
}
std::vector<Ref<CD_Tag>> CD_User::can_view_tags() const {
    return many<"can_view_tags", CD_Tag>();
}
void CD_User::setCan_view_tags(const std::vector<Ref<CD_Tag>>& members) {
    setMany<"can_view_tags", CD_Tag>(members);
}
std::vector<Ref<CD_Tag>> CD_User::can_edit_tags() const {
    return many<"can_edit_tags", CD_Tag>();
}
void CD_User::setCan_edit_tags(const std::vector<Ref<CD_Tag>>& members) {
    setMany<"can_edit_tags", CD_Tag>(members);
}
std::vector<Ref<CD_Correspondent>> CD_User::can_view_correspondents() const {
    return many<"can_view_correspondents", CD_Correspondent>();
}
void CD_User::setCan_view_correspondents(const std::vector<Ref<CD_Correspondent>>& members) {
    setMany<"can_view_correspondents", CD_Correspondent>(members);
}
std::vector<Ref<CD_Correspondent>> CD_User::can_edit_correspondents() const {
    return many<"can_edit_correspondents", CD_Correspondent>();
}
void CD_User::setCan_edit_correspondents(const std::vector<Ref<CD_Correspondent>>& members) {
    setMany<"can_edit_correspondents", CD_Correspondent>(members);
}
std::vector<Ref<CD_Document_Type>> CD_User::can_view_document_type() const {
    return many<"can_view_document_type", CD_Document_Type>();
}
void CD_User::setCan_view_document_type(const std::vector<Ref<CD_Document_Type>>& members) {
    setMany<"can_view_document_type", CD_Document_Type>(members);
}
std::vector<Ref<CD_Document_Type>> CD_User::can_edit_document_type() const {
    return many<"can_edit_document_type", CD_Document_Type>();
}
void CD_User::setCan_edit_document_type(const std::vector<Ref<CD_Document_Type>>& members) {
    setMany<"can_edit_document_type", CD_Document_Type>(members);
}
std::vector<Ref<CD_Storage_Path>> CD_User::can_view_storage_paths() const {
    return many<"can_view_storage_paths", CD_Storage_Path>();
}
void CD_User::setCan_view_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members) {
    setMany<"can_view_storage_paths", CD_Storage_Path>(members);
}
std::vector<Ref<CD_Storage_Path>> CD_User::can_edit_storage_paths() const {
    return many<"can_edit_storage_paths", CD_Storage_Path>();
}
void CD_User::setCan_edit_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members) {
    setMany<"can_edit_storage_paths", CD_Storage_Path>(members);
}

} // namespace ledgerfinch
