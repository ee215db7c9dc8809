// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ChangeLog.h"
#include "objectstore/ContextPrivate.h"
#include "objectstore/Inbox.h"
#include "objectstore/PersistentContainer.h"
#include "objectstore/RowAllocator.h"
#include "objectstore/StoreSql.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace ledgerfinch {

/// What a container and its contexts share. Each member says what guards it; the rest never changes after opening.
struct PersistentContainer::Private {
    Private(const Model& model, StoreDescription storeDescription, const Logger& logger)
        : sql(model), description(std::move(storeDescription)), log(logger) {}

    StoreSql sql;
    StoreDescription description;
    Logger log;
    std::uint64_t identity = 0;
    std::unique_ptr<ChangeLog> changeLog;
    std::unique_ptr<RowAllocator> rows;
    std::atomic<std::uint64_t> rowsWritten{0};
    sqlite::Database::Fingerprint commitAtOpening; ///< with which a context need not look at the log
    bool knowsCommitAtOpening = false;

    // Connections that wait for use.
    std::mutex idleMutex;
    std::vector<std::unique_ptr<sqlite::Database>> idle;
    Result<std::unique_ptr<sqlite::Database>> takeConnection();
    void giveBack(std::unique_ptr<sqlite::Database> connection);

    // The connection for work of the container's own: reserving rows, looking around, batches.
    std::mutex utilityMutex;
    std::unique_ptr<sqlite::Database> utility;
    sqlite::Database* utilityDatabase(Error& error); ///< with the mutex held

    // Reading connections at work.
    std::mutex readersMutex;
    struct Reader {
        sqlite::Database* database;
        bool interrupted = false;
    };
    std::vector<Reader*> readers;

    // Contexts.
    std::mutex contextsMutex;
    std::vector<std::weak_ptr<Inbox>> inboxes;
    std::mutex viewContextMutex;
    std::shared_ptr<ManagedObjectContext> viewContext;
    /// Fills the inboxes; the ones returned are to be woken, with no lock held.
    [[nodiscard]] std::vector<std::shared_ptr<Inbox>> fillInboxes(const ChangeSet& changes, const Inbox* except);
    void tellContexts(const ChangeSet& changes, const Inbox* except);

    // Changes of other processes.
    std::mutex remoteMutex;
    std::int64_t lastChange = 0; ///< the last entry of the change log that was looked at
    /// Reads what others wrote into the log and tells the contexts. False when the store failed.
    bool pullRemote(sqlite::Database& database);
    std::mutex seenMutex;
    sqlite::Database::Fingerprint seenCommit; ///< of processRemoteChanges
    bool hasSeenCommit = false;
    struct RemoteCallbacks {
        std::mutex mutex;
        std::uint64_t next = 1;
        std::vector<std::pair<std::uint64_t, std::shared_ptr<const std::function<void()>>>> list;
    };
    std::shared_ptr<RemoteCallbacks> remoteCallbacks = std::make_shared<RemoteCallbacks>();
    void tellRemoteChange();
};

} // namespace ledgerfinch
