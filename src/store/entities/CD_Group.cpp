// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/CD_Group.h"

#include "store/entities/CD_Correspondent.h"
#include "store/entities/CD_Document.h"
#include "store/entities/CD_Document_Type.h"
#include "store/entities/CD_Permission.h"
#include "store/entities/CD_Storage_Path.h"
#include "store/entities/CD_Tag.h"
#include "store/entities/CD_User.h"

namespace ledgerfinch {

std::vector<Ref<CD_User>> CD_Group::members() const {
    return many<"members", CD_User>();
}
void CD_Group::setMembers(const std::vector<Ref<CD_User>>& members) {
    setMany<"members", CD_User>(members);
}
std::vector<Ref<CD_Permission>> CD_Group::permissions() const {
    return many<"permissions", CD_Permission>();
}
void CD_Group::setPermissions(const std::vector<Ref<CD_Permission>>& members) {
    setMany<"permissions", CD_Permission>(members);
}
std::vector<Ref<CD_Document>> CD_Group::can_view_documents() const {
    return many<"can_view_documents", CD_Document>();
}
void CD_Group::setCan_view_documents(const std::vector<Ref<CD_Document>>& members) {
    setMany<"can_view_documents", CD_Document>(members);
}
std::vector<Ref<CD_Document>> CD_Group::can_edit_documents() const {
    return many<"can_edit_documents", CD_Document>();
}
void CD_Group::setCan_edit_documents(const std::vector<Ref<CD_Document>>& members) {
    setMany<"can_edit_documents", CD_Document>(members);
}
std::vector<Ref<CD_Tag>> CD_Group::can_view_tags() const {
    return many<"can_view_tags", CD_Tag>();
}
void CD_Group::setCan_view_tags(const std::vector<Ref<CD_Tag>>& members) {
    setMany<"can_view_tags", CD_Tag>(members);
}
std::vector<Ref<CD_Tag>> CD_Group::can_edit_tags() const {
    return many<"can_edit_tags", CD_Tag>();
}
void CD_Group::setCan_edit_tags(const std::vector<Ref<CD_Tag>>& members) {
    setMany<"can_edit_tags", CD_Tag>(members);
}
std::vector<Ref<CD_Correspondent>> CD_Group::can_view_correspondents() const {
    return many<"can_view_correspondents", CD_Correspondent>();
}
void CD_Group::setCan_view_correspondents(const std::vector<Ref<CD_Correspondent>>& members) {
    setMany<"can_view_correspondents", CD_Correspondent>(members);
}
Ref<CD_Correspondent> CD_Group::can_edit_correspondents() const {
    return one<"can_edit_correspondents", CD_Correspondent>();
}
void CD_Group::setCan_edit_correspondents(const Ref<CD_Correspondent>& target) {
    setOne<"can_edit_correspondents", CD_Correspondent>(target);
}
std::vector<Ref<CD_Document_Type>> CD_Group::can_view_document_types() const {
    return many<"can_view_document_types", CD_Document_Type>();
}
void CD_Group::setCan_view_document_types(const std::vector<Ref<CD_Document_Type>>& members) {
    setMany<"can_view_document_types", CD_Document_Type>(members);
}
std::vector<Ref<CD_Document_Type>> CD_Group::can_edit_document_types() const {
    return many<"can_edit_document_types", CD_Document_Type>();
}
void CD_Group::setCan_edit_document_types(const std::vector<Ref<CD_Document_Type>>& members) {
    setMany<"can_edit_document_types", CD_Document_Type>(members);
}
std::vector<Ref<CD_Storage_Path>> CD_Group::can_view_storage_paths() const {
    return many<"can_view_storage_paths", CD_Storage_Path>();
}
void CD_Group::setCan_view_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members) {
    setMany<"can_view_storage_paths", CD_Storage_Path>(members);
}
std::vector<Ref<CD_Storage_Path>> CD_Group::can_edit_storage_paths() const {
    return many<"can_edit_storage_paths", CD_Storage_Path>();
}
void CD_Group::setCan_edit_storage_paths(const std::vector<Ref<CD_Storage_Path>>& members) {
    setMany<"can_edit_storage_paths", CD_Storage_Path>(members);
}

} // namespace ledgerfinch
