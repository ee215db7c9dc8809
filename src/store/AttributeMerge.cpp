// SPDX-License-Identifier: GPL-3.0-or-later
// Correspondents, document types and storage paths: what tags are merged like, without colours.
#include "store/CoreDataHandler.h"

#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

namespace ledgerfinch {
namespace {

constexpr merge::RemovalTexts kCorrespondentRemoval{"Error obtaining correspondents", "correspondents to delete: %s",
                                                    "error determining outdated correspondents: %@"};
constexpr merge::RemovalTexts kDocumentTypeRemoval{"Error obtaining document types", "document types to delete: %s",
                                                   "error determining outdated document types: %@"};
constexpr merge::RemovalTexts kStoragePathRemoval{"Error obtaining storage paths", "storage paths to delete: %s",
                                                  "error determining outdated storage paths: %@"};

template <class Object, class Record>
void writeMatching(Object& object, const Record& record) {
    merge::setIfPresent(object, &Object::setSlug, record.slug);
    merge::setIfPresent(object, &Object::setName, record.name);
    merge::setIfPresent(object, &Object::setMatch, record.match);
    merge::setIfPresent(object, &Object::setMatching_algorithm, record.matching_algorithm);
    merge::setIfPresent(object, &Object::setIs_insensitive, record.is_insensitive);
}

/// A group's side of this relation holds one correspondent, so the last correspondent merged takes a group that several
/// of them name. Without this, every pass over an unchanged server would pass the group round all of them again and
/// end where it began.
bool groupsWouldOnlyGoRound(const CD_Correspondent& correspondent, const Correspondent& record,
                            const std::vector<Ref<CD_Group>>& groups) {
    if (correspondent.server_shadow() != record.raw) return false;
    for (const auto& held : correspondent.editable_by_groups())
        if (std::find(groups.begin(), groups.end(), held) == groups.end()) return false;
    return std::all_of(groups.begin(), groups.end(),
                       [](const Ref<CD_Group>& group) { return group->can_edit_correspondents() != nullptr; });
}

} // namespace

MergeOutcome CoreDataHandler::saveCorrespondents(const std::vector<Correspondent>& records, Delivery delivery,
                                                 ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed =
        merge::removeOutdated<CD_Correspondent>(*this, context, m_log, records, delivery, kCorrespondentRemoval,
                                                [](const CD_Correspondent& object) { return object.name(); });
    merge::saveEach(records, delivery, outcome,
                    [&](const Correspondent& record) { return saveCorrespondent(record, context).isValid(); });
    return outcome;
}

ObjectID CoreDataHandler::saveCorrespondent(const Correspondent& record, ContextRef context, Authority authority) {
    context = contextOrView(std::move(context));
    ObjectID saved;
    context->performAndWait([&] {
        const auto correspondent = merge::findOrInsert<CD_Correspondent>(*context, record.id);
        auto access = merge::resolveAccess(*context, record.permissions);
        writeMatching(*correspondent, record);
        if (record.last_correspondence)
            correspondent->setLast_correspondence(merge::parseServerDate(*record.last_correspondence));
        // The owner is not taken over: a correspondent gets one only from its own screen.
        if (groupsWouldOnlyGoRound(*correspondent, record, access.changeGroups))
            access.changeGroups = correspondent->editable_by_groups();
        merge::writeAccess(*correspondent, access);
        setServerShadow(*correspondent, record.raw);
        merge::finishRepair<CD_Correspondent>(*context, record.id, authority);
        if (merge::save(*context, m_log, "Failed to save correspondent %@")) saved = correspondent->objectID();
    });
    return saved;
}

MergeOutcome CoreDataHandler::saveDocumentTypes(const std::vector<Document_Type>& records, Delivery delivery,
                                                ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed =
        merge::removeOutdated<CD_Document_Type>(*this, context, m_log, records, delivery, kDocumentTypeRemoval,
                                                [](const CD_Document_Type& object) { return object.name(); });
    merge::saveEach(records, delivery, outcome,
                    [&](const Document_Type& record) { return saveDocumentType(record, context).isValid(); });
    return outcome;
}

ObjectID CoreDataHandler::saveDocumentType(const Document_Type& record, ContextRef context, Authority authority) {
    context = contextOrView(std::move(context));
    ObjectID saved;
    context->performAndWait([&] {
        const auto type = merge::findOrInsert<CD_Document_Type>(*context, record.id);
        const auto access = merge::resolveAccess(*context, record.permissions);
        writeMatching(*type, record);
        merge::writeOwner(*context, *type, record, authority);
        merge::writeAccess(*type, access);
        setServerShadow(*type, record.raw);
        merge::finishRepair<CD_Document_Type>(*context, record.id, authority);
        if (merge::save(*context, m_log, "Failed to save document type %@")) saved = type->objectID();
    });
    return saved;
}

MergeOutcome CoreDataHandler::saveStoragePaths(const std::vector<Storage_Path>& records, Delivery delivery,
                                               ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed =
        merge::removeOutdated<CD_Storage_Path>(*this, context, m_log, records, delivery, kStoragePathRemoval,
                                               [](const CD_Storage_Path& object) { return object.name(); });
    merge::saveEach(records, delivery, outcome,
                    [&](const Storage_Path& record) { return saveStoragePath(record, context).isValid(); });
    return outcome;
}

ObjectID CoreDataHandler::saveStoragePath(const Storage_Path& record, ContextRef context, Authority authority) {
    context = contextOrView(std::move(context));
    ObjectID saved;
    context->performAndWait([&] {
        const auto path = merge::findOrInsert<CD_Storage_Path>(*context, record.id);
        const auto access = merge::resolveAccess(*context, record.permissions);
        writeMatching(*path, record);
        merge::setIfPresent(*path, &CD_Storage_Path::setPath, record.path);
        merge::writeOwner(*context, *path, record, authority);
        merge::writeAccess(*path, access);
        setServerShadow(*path, record.raw);
        merge::finishRepair<CD_Storage_Path>(*context, record.id, authority);
        if (merge::save(*context, m_log, "Failed to save storage path %@")) saved = path->objectID();
    });
    return saved;
}

} // namespace ledgerfinch
