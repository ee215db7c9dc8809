// SPDX-License-Identifier: GPL-3.0-or-later
// For callers that must know: that a commit is on the disk, and that an object really isn't there.
#include "objectstore/ContainerPrivate.h"
#include "objectstore/ContextPrivate.h"

#include <sqlite3.h>

namespace ledgerfinch {

Result<void> PersistentContainer::makeDurable() {
    if (m_d->description.durability == Durability::Full) return {};
    const std::lock_guard guard(m_d->utilityMutex);
    Error error;
    sqlite::Database* database = m_d->utilityDatabase(error);
    if (!database) return error;
    {
        // A connection opens the log with its first read.
        sqlite::Use touch(database->statement("SELECT count(*) FROM sqlite_master"));
        if (!touch || touch->step() != SQLITE_ROW) return database->lastError("making a commit durable");
    }
    // Commits lie in the log, or were synced with the main file when the log began anew: syncing it does for all.
    sqlite3_file* log = nullptr;
    int code = sqlite3_file_control(database->handle(), "main", SQLITE_FCNTL_JOURNAL_POINTER, &log);
    if (code == SQLITE_OK && log && log->pMethods) code = log->pMethods->xSync(log, SQLITE_SYNC_NORMAL);
    if (code != SQLITE_OK) return sqlite::makeError(code, nullptr, "making a commit durable");
    return {};
}

Result<Ref<ManagedObject>> ManagedObjectContext::findWithID(std::string_view entityName, std::int64_t id) {
    if (auto found = firstWithID(entityName, id)) return found;
    // The short look-up remembers what it learnt, and nothing when the store failed.
    const auto& remembered = m_d->idCaches[model().entity(entityName).index].rows;
    if (const auto known = remembered.find(id); known != remembered.end() && known->second == 0)
        return Ref<ManagedObject>();
    auto sameId = Predicate::parse("id = %d", {Value(id)});
    if (!sameId) return sameId.error();
    FetchRequest request;
    request.entity = entityName;
    request.predicate = std::move(*sameId);
    request.limit = 1;
    auto found = fetch(request);
    if (!found) return found.error();
    return found->empty() ? Ref<ManagedObject>() : std::move(found->front());
}

} // namespace ledgerfinch
