// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "store/MergeSupport.h"
#include "store/StoreFolder.h"

#include <algorithm>
#include <iterator>
#include <span>

namespace ledgerfinch {
namespace {

// One save each: long enough to be quick, short enough that nobody waits behind it.
constexpr std::size_t kPiece = 200;

/// Deletes one piece of the outdated and gives the uuids whose files may go, once it is saved.
Result<std::vector<Uuid>> removePiece(ManagedObjectContext& context, std::span<const std::int64_t> outdated,
                                      const Logger& log, MergeOutcome& outcome) {
    std::vector<Uuid> uuids;
    std::size_t count = 0;
    merge::Finder finder(context);
    for (const auto id : outdated) {
        for (const auto& document : merge::deliveredDocuments(finder, id)) {
            log.debug("documents to delete: %s", document->title().value_or("none"));
            if (const auto uuid = document->uuid()) uuids.push_back(*uuid);
            context.remove(*document);
            ++count;
        }
    }
    if (count == 0 && !finder.failure()) return uuids;
    const Result<void> saved = finder.failure() ? Result<void>(*finder.failure()) : context.save();
    if (!saved) {
        context.rollback();
        log.error("Failed to delete documents %@", saved.error().message);
        outcome.failed += outdated.size();
        return saved.error();
    }
    outcome.removed += count;
    return uuids;
}

Result<void> removeAndSave(ManagedObjectContext& context, ManagedObject& object, const Logger& log) {
    context.remove(object);
    auto saved = context.save();
    if (saved) return saved;
    context.rollback();
    log.error("Failed to delete object %@", saved.error().message);
    return saved;
}

/// The deletion and nothing else: what is being edited in the same context is neither saved nor undone by it. Beside
/// such an edit the deletion takes a context of its own, from which it reaches this one as any other save does.
Result<void> removeAlone(ManagedObjectContext& context, ManagedObject& object, const Logger& log) {
    if (!context.hasChanges()) return removeAndSave(context, object, log);
    if (object.isInserted()) {
        context.remove(object);
        return {};
    }
    return merge::besideEdits(context, [&](ManagedObjectContext& clean) -> Result<void> {
        const auto same = clean.existingObject(object.objectID());
        return same ? removeAndSave(clean, *same, log) : Error{"The object is gone already"};
    });
}

} // namespace

std::vector<std::int64_t> CoreDataHandler::storedDocumentIds(ContextRef context) {
    context = contextOrView(std::move(context));
    std::vector<std::int64_t> ids;
    const auto read = visitDocumentIds(context->container(), [&ids](std::int64_t id) { ids.push_back(id); });
    if (read) return ids;
    m_log.error("error determining outdated documents: %@", read.error().message);
    return {};
}

MergeOutcome CoreDataHandler::removeOutdatedDocuments(const std::vector<std::int64_t>& serverIds, ContextRef context) {
    context = contextOrView(std::move(context));
    const auto stored = storedDocumentIds(context);
    return removeOutdatedDocuments(serverIds, stored, std::move(context));
}

MergeOutcome CoreDataHandler::removeOutdatedDocuments(const std::vector<std::int64_t>& serverIds,
                                                      const std::vector<std::int64_t>& storedBefore,
                                                      ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    // Sorted rather than hashed: with hundreds of thousands of documents the memory counts.
    std::vector<std::int64_t> known(serverIds);
    std::sort(known.begin(), known.end());
    std::vector<std::int64_t> outdated;
    std::copy_if(storedBefore.begin(), storedBefore.end(), std::back_inserter(outdated),
                 [&known](std::int64_t id) { return !std::binary_search(known.begin(), known.end(), id); });
    for (std::span<const std::int64_t> rest(outdated); !rest.empty();) {
        const auto piece = rest.first(std::min(kPiece, rest.size()));
        rest = rest.subspan(piece.size());
        Result<std::vector<Uuid>> uuids = Error{};
        context->performAndWait([&] { uuids = removePiece(*context, piece, m_log, outcome); });
        if (!uuids && merge::endsTheList(uuids.error())) {
            m_writeFailure.note(uuids.error());
            outcome.failed += rest.size();
            break;
        }
        if (!uuids) continue;
        for (const auto& uuid : *uuids)
            m_files.removeFiles(uuid);
    }
    return outcome;
}

std::vector<std::int64_t> CoreDataHandler::missingDocuments(const std::vector<std::int64_t>& serverIds,
                                                            ContextRef context) {
    context = contextOrView(std::move(context));
    std::vector<std::int64_t> missing(serverIds);
    std::sort(missing.begin(), missing.end());
    missing.erase(std::unique(missing.begin(), missing.end()), missing.end());
    std::size_t next = 0; // both sides ascend
    std::size_t kept = 0;
    const auto read = visitDocumentIds(context->container(), [&](std::int64_t id) {
        while (next < missing.size() && missing[next] < id)
            missing[kept++] = missing[next++];
        if (next < missing.size() && missing[next] == id) ++next;
    });
    if (!read) {
        m_log.error("error determining missing documents: %@", read.error().message);
        return {};
    }
    while (next < missing.size())
        missing[kept++] = missing[next++];
    missing.resize(kept);
    return missing;
}

bool CoreDataHandler::deleteDocument(const Ref<CD_Document>& document, ContextRef context) {
    if (!document) return false;
    context = contextOrView(std::move(context));
    bool hasFiles = false;
    context->performAndWait([&] { hasFiles = document->uuid().has_value(); });
    return hasFiles && deleteObject(document->objectID(), context);
}

bool CoreDataHandler::deleteObject(const ObjectID& id, ContextRef context) {
    context = contextOrView(std::move(context));
    std::optional<Uuid> uuid;
    bool deleted = false;
    context->performAndWait([&] {
        const auto object = context->existingObject(id);
        if (!object) return;
        if (const auto document = std::dynamic_pointer_cast<CD_Document>(object)) uuid = document->uuid();
        const auto removed = removeAlone(*context, *object, m_log);
        deleted = removed.ok();
        if (!removed && merge::endsTheList(removed.error())) m_writeFailure.note(removed.error());
    });
    if (deleted && uuid) m_files.removeFiles(*uuid);
    return deleted;
}

} // namespace ledgerfinch
