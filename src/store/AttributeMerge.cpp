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
void writeMatching(Object& object, const Record& record, Authority authority) {
    merge::take(object, &Object::setSlug, record.slug, record, "slug", authority);
    merge::take(object, &Object::setName, record.name, record, "name", authority);
    merge::take(object, &Object::setMatch, record.match, record, "match", authority);
    merge::take(object, &Object::setMatching_algorithm, record.matching_algorithm, record, "matching_algorithm",
                authority);
    merge::take(object, &Object::setIs_insensitive, record.is_insensitive, record, "is_insensitive", authority);
}

/// A group's side of this relation holds one correspondent, so the last correspondent merged takes a group that several
/// of them name. Without this, every pass over an unchanged server would pass the group round all of them again and
/// end where it began.
bool groupsWouldOnlyGoRound(const CD_Correspondent& correspondent, const Correspondent& record,
                            const std::vector<Ref<CD_Group>>& groups) {
    const auto before = correspondent.server_shadow();
    if (!before || shadowAfter(before, record.raw) != *before) return false;
    for (const auto& held : correspondent.editable_by_groups())
        if (std::find(groups.begin(), groups.end(), held) == groups.end()) return false;
    return std::all_of(groups.begin(), groups.end(),
                       [](const Ref<CD_Group>& group) { return group->can_edit_correspondents() != nullptr; });
}

Result<ObjectID> mergeCorrespondent(ManagedObjectContext& context, const Correspondent& record, Authority authority,
                                    const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save correspondent %@", [&](merge::Finder& finder) {
        const auto correspondent = finder.findOrInsert<CD_Correspondent>(record.id);
        auto access = merge::resolveAccess(finder, record.permissions);
        writeMatching(*correspondent, record, authority);
        if (record.last_correspondence)
            correspondent->setLast_correspondence(merge::parseServerDate(*record.last_correspondence));
        else if (authority == Authority::ServerWins && merge::deliveredAsNull(record.raw, "last_correspondence"))
            correspondent->setLast_correspondence(std::nullopt);
        // A correspondent gets an owner only from its own screen, and loses or changes it only to mend a refused write.
        if (authority == Authority::ServerWins) merge::writeOwner(finder, *correspondent, record, authority);
        if (groupsWouldOnlyGoRound(*correspondent, record, access.changeGroups))
            access.changeGroups = correspondent->editable_by_groups();
        merge::writeAccess(*correspondent, access);
        setServerShadow(*correspondent, record.raw);
        merge::finishRepair<CD_Correspondent>(finder.context(), record.id, authority);
        return correspondent;
    });
}

Result<ObjectID> mergeDocumentType(ManagedObjectContext& context, const Document_Type& record, Authority authority,
                                   const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save document type %@", [&](merge::Finder& finder) {
        const auto type = finder.findOrInsert<CD_Document_Type>(record.id);
        const auto access = merge::resolveAccess(finder, record.permissions);
        writeMatching(*type, record, authority);
        merge::writeOwner(finder, *type, record, authority);
        merge::writeAccess(*type, access);
        setServerShadow(*type, record.raw);
        merge::finishRepair<CD_Document_Type>(finder.context(), record.id, authority);
        return type;
    });
}

Result<ObjectID> mergeStoragePath(ManagedObjectContext& context, const Storage_Path& record, Authority authority,
                                  const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save storage path %@", [&](merge::Finder& finder) {
        const auto path = finder.findOrInsert<CD_Storage_Path>(record.id);
        const auto access = merge::resolveAccess(finder, record.permissions);
        writeMatching(*path, record, authority);
        merge::take(*path, &CD_Storage_Path::setPath, record.path, record, "path", authority);
        merge::writeOwner(finder, *path, record, authority);
        merge::writeAccess(*path, access);
        setServerShadow(*path, record.raw);
        merge::finishRepair<CD_Storage_Path>(finder.context(), record.id, authority);
        return path;
    });
}

} // namespace

MergeOutcome CoreDataHandler::saveCorrespondents(const std::vector<Correspondent>& records, Delivery delivery,
                                                 ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed =
        merge::removeOutdated<CD_Correspondent>(*this, context, m_log, records, delivery, kCorrespondentRemoval,
                                                [](const CD_Correspondent& object) { return object.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const Correspondent& record) {
                         return mergeCorrespondent(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveCorrespondent(const Correspondent& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeCorrespondent(entered, record, authority, m_log);
    });
}

MergeOutcome CoreDataHandler::saveDocumentTypes(const std::vector<Document_Type>& records, Delivery delivery,
                                                ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed =
        merge::removeOutdated<CD_Document_Type>(*this, context, m_log, records, delivery, kDocumentTypeRemoval,
                                                [](const CD_Document_Type& object) { return object.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const Document_Type& record) {
                         return mergeDocumentType(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveDocumentType(const Document_Type& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeDocumentType(entered, record, authority, m_log);
    });
}

MergeOutcome CoreDataHandler::saveStoragePaths(const std::vector<Storage_Path>& records, Delivery delivery,
                                               ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed =
        merge::removeOutdated<CD_Storage_Path>(*this, context, m_log, records, delivery, kStoragePathRemoval,
                                               [](const CD_Storage_Path& object) { return object.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const Storage_Path& record) {
                         return mergeStoragePath(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveStoragePath(const Storage_Path& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeStoragePath(entered, record, authority, m_log);
    });
}

} // namespace ledgerfinch
