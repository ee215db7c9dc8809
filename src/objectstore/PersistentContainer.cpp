// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/PersistentContainer.h"

#include "objectstore/ContainerPrivate.h"
#include "objectstore/Schema.h"
#include "objectstore/SqlCompiler.h"
#include "objectstore/Values.h"

#include <random>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

constexpr std::size_t kIdleConnections = 4;
/// Rows deleted in one transaction of a batch.
constexpr int kBatchRows = 500;
constexpr int kBackupPages = 256;

Error unknownEntity(std::string_view name) {
    return Error{"The store has no entity \"" + std::string(name) + "\".", static_cast<int>(StoreErrorCode::Failed)};
}

std::int64_t randomNumber() {
    std::random_device source;
    return static_cast<std::int64_t>((std::uint64_t{source()} << 32) | source());
}

/// https://www.sqlite.org/walformat.html, 2.0
constexpr std::uintmax_t kIndexPiece = 32 * 1024;

bool isUnwritable(const Error& error) {
    return error.code == static_cast<int>(StoreErrorCode::ReadOnly) ||
           error.code == static_cast<int>(StoreErrorCode::Full);
}

/// How a file is read by whoever may not write it. Where a write-ahead log is, it is read with it, beside those who
/// write. Without one nobody has the file open, and SQLite, which would have to make one, must be told so.
sqlite::OpenMode readingMode(const std::filesystem::path& file) {
    const auto sizeOf = [&](const char* suffix) -> std::uintmax_t {
        std::error_code error;
        const auto size = std::filesystem::file_size(file.string() + suffix, error);
        return error ? 0 : size;
    };
    std::error_code error;
    if (!std::filesystem::exists(file.string() + "-wal", error)) return sqlite::OpenMode::Immutable;
    // A full disk leaves an index behind that is shorter than its first piece, and of no use.
    const bool hasIndex = sizeOf("-shm") >= kIndexPiece;
    return sizeOf("-wal") > 0 || hasIndex ? sqlite::OpenMode::ReadOnly : sqlite::OpenMode::Immutable;
}

/// The store as it is: no file is made and no model brought to it.
Result<schema::StoreFile> openToRead(const Model& model, const StoreDescription& description) {
    const std::string name = "\"" + description.file.filename().string() + "\"";
    schema::StoreFile store;
    auto opened = sqlite::Database::open(description.file, description.vfs, readingMode(description.file),
                                         description.durability);
    if (!opened) return opened.error();
    store.connection = std::move(*opened);
    sqlite::Database& database = *store.connection;
    const auto lost = [&](int code) {
        return database.error(code == SQLITE_DONE ? SQLITE_CORRUPT : code, "reading the description");
    };

    sqlite::Use meta(database.statement("SELECT model,hash,identity,(SELECT max(seq) FROM lf_change) FROM lf_meta"));
    if (!meta) return database.lastError("reading the description");
    if (const int code = meta->step(); code != SQLITE_ROW) return lost(code);
    if (meta->text(0) != model.name())
        return Error{"The file " + name + " is a store of another kind.", static_cast<int>(StoreErrorCode::Unreadable)};
    if (meta->integer(1) != static_cast<std::int64_t>(model.hash()))
        return Error{"The store " + name +
                         " is of an older version of the program and can't be written to, so it can't be used.",
                     static_cast<int>(StoreErrorCode::ReadOnly)};
    store.identity = static_cast<std::uint64_t>(meta->integer(2));
    store.lastChange = meta->integer(3);

    sqlite::Use entities(database.statement("SELECT name,number FROM lf_entity"));
    if (!entities) return database.lastError("reading the description");
    store.entityNumbers.assign(model.entities().size(), 0);
    int code = SQLITE_ROW;
    while ((code = entities->step()) == SQLITE_ROW)
        if (const Entity* entity = model.find(entities->text(0)))
            store.entityNumbers[entity->index] = entities->integer(1);
    if (code != SQLITE_DONE) return lost(code);
    return store;
}

} // namespace

Result<std::unique_ptr<sqlite::Database>> PersistentContainer::Private::takeConnection() {
    {
        const std::lock_guard guard(idleMutex);
        if (!idle.empty()) {
            auto connection = std::move(idle.back());
            idle.pop_back();
            return connection;
        }
    }
    const auto mode =
        description.access == StoreAccess::Read ? readingMode(description.file) : sqlite::OpenMode::ReadWrite;
    return sqlite::Database::open(description.file, description.vfs, mode, description.durability);
}

void PersistentContainer::Private::giveBack(std::unique_ptr<sqlite::Database> connection) {
    const std::lock_guard guard(idleMutex);
    if (idle.size() < kIdleConnections) idle.push_back(std::move(connection));
}

sqlite::Database* PersistentContainer::Private::utilityDatabase(Error& error) {
    if (utility) return utility.get();
    auto taken = takeConnection();
    if (!taken) {
        error = taken.error();
        return nullptr;
    }
    utility = std::move(*taken);
    return utility.get();
}

std::vector<std::shared_ptr<Inbox>> PersistentContainer::Private::fillInboxes(const ChangeSet& changes,
                                                                              const Inbox* except) {
    std::vector<std::shared_ptr<Inbox>> toWake;
    const std::lock_guard guard(contextsMutex);
    for (const auto& weak : inboxes)
        if (auto box = weak.lock(); box && box.get() != except && box->push(changes)) toWake.push_back(std::move(box));
    return toWake;
}

void PersistentContainer::Private::tellContexts(const ChangeSet& changes, const Inbox* except) {
    for (const auto& box : fillInboxes(changes, except))
        box->wake();
}

bool PersistentContainer::Private::pullRemote(sqlite::Database& database) {
    std::vector<std::shared_ptr<Inbox>> toWake;
    {
        const std::lock_guard guard(remoteMutex);
        auto news = changeLog->readSince(database, lastChange);
        if (!news) return false;
        lastChange = news->last;
        if (news->changes.empty()) return true;
        // Under the lock, so that whoever finds nothing new afterwards also finds its inbox filled.
        toWake = fillInboxes(news->changes, nullptr);
    }
    for (const auto& box : toWake)
        box->wake();
    tellRemoteChange();
    return true;
}

void PersistentContainer::Private::tellRemoteChange() {
    std::vector<std::shared_ptr<const std::function<void()>>> list;
    {
        const std::lock_guard guard(remoteCallbacks->mutex);
        for (const auto& [number, callback] : remoteCallbacks->list)
            list.push_back(callback);
    }
    for (const auto& callback : list)
        (*callback)();
}

PersistentContainer::PersistentContainer(std::unique_ptr<Private> d) : m_d(std::move(d)) {}

PersistentContainer::~PersistentContainer() {
    m_d->viewContext.reset();
}

Result<std::shared_ptr<PersistentContainer>> PersistentContainer::open(const Model& model, StoreDescription description,
                                                                       const Logger& log) {
    const bool onlyRead = description.access == StoreAccess::Read;
    auto store = onlyRead ? openToRead(model, description) : schema::open(model, description, log);
    if (!store && description.access == StoreAccess::WriteOrRead && isUnwritable(store.error())) {
        log.info("The store %{public}s is opened to read only: %{public}s", description.file.filename().string(),
                 store.error().message);
        if (auto opened = openToRead(model, description)) {
            store = std::move(opened);
            description.access = StoreAccess::Read;
        }
    }
    if (!store) {
        log.error("The store %{public}s wasn't opened: %{public}s", description.file.filename().string(),
                  store.error().message);
        return store.error();
    }
    auto d = std::make_unique<Private>(model, std::move(description), log);
    d->identity = store->identity;
    d->lastChange = store->lastChange;
    d->commitAtOpening = d->seenCommit = store->commit;
    d->knowsCommitAtOpening = d->hasSeenCommit = store->hasCommit;
    const std::int64_t writer = randomNumber();
    d->changeLog = std::make_unique<ChangeLog>(store->identity, writer, store->entityNumbers);
    d->rows = std::make_unique<RowAllocator>(std::move(store->entityNumbers), [shared = d.get()](const auto& work) {
        const std::lock_guard guard(shared->utilityMutex);
        Error error;
        sqlite::Database* database = shared->utilityDatabase(error);
        return database && work(*database);
    });
    d->idle.push_back(std::move(store->connection));
    return std::shared_ptr<PersistentContainer>(new PersistentContainer(std::move(d)));
}

const Model& PersistentContainer::model() const {
    return m_d->sql.model();
}
const std::filesystem::path& PersistentContainer::file() const {
    return m_d->description.file;
}
bool PersistentContainer::isReadOnly() const {
    return m_d->description.access == StoreAccess::Read;
}
std::uint64_t PersistentContainer::identity() const {
    return m_d->identity;
}
std::uint64_t PersistentContainer::rowsWritten() const {
    return m_d->rowsWritten;
}

std::shared_ptr<ManagedObjectContext> PersistentContainer::viewContext() {
    // Owned by the container and kept alive with it, so that neither holds the other for ever.
    const std::lock_guard guard(m_d->viewContextMutex);
    if (!m_d->viewContext)
        m_d->viewContext = ObjectStoreAccess::makeContext(std::make_unique<ContextEngine>(*this, ContextQueue::Main));
    return {shared_from_this(), m_d->viewContext.get()};
}

std::shared_ptr<ManagedObjectContext> PersistentContainer::newBackgroundContext() {
    auto engine = std::make_unique<ContextEngine>(*this, ContextQueue::Private);
    engine->keepAlive = shared_from_this();
    return ObjectStoreAccess::makeContext(std::move(engine));
}

std::shared_ptr<ManagedObjectContext> PersistentContainer::newMainContext() {
    auto engine = std::make_unique<ContextEngine>(*this, ContextQueue::Main);
    engine->keepAlive = shared_from_this();
    return ObjectStoreAccess::makeContext(std::move(engine));
}

Result<std::vector<ObjectID>> PersistentContainer::fetchIDs(const FetchRequest& request) {
    const Entity* entity = model().find(request.entity);
    if (!entity) return unknownEntity(request.entity);
    auto taken = m_d->takeConnection();
    if (!taken) return taken.error();
    Private::Reader reader{taken->get()};
    {
        const std::lock_guard guard(m_d->readersMutex);
        m_d->readers.push_back(&reader);
    }
    const auto isInterrupted = [&] {
        const std::lock_guard guard(m_d->readersMutex);
        return reader.interrupted;
    };
    std::vector<ObjectID> ids;
    int code = SQLITE_ERROR;
    Error failure;
    {
        const CompiledSql compiled = compileFetch(m_d->sql, *entity, request, FetchColumns::Row);
        sqlite::Use statement(reader.database->statement(compiled.text));
        if (statement) {
            for (std::size_t i = 0; i < compiled.values.size(); ++i)
                values::bind(*statement, static_cast<int>(i) + 1, compiled.values[i]);
            code = isInterrupted() ? SQLITE_INTERRUPT : statement->step();
            for (; code == SQLITE_ROW; code = statement->step()) {
                ids.push_back({m_d->identity, static_cast<std::uint32_t>(entity->index), statement->integer(0)});
                // An interrupt that came before the first step was lost on SQLite, not on us.
                if (ids.size() % 1024 == 0 && isInterrupted()) {
                    code = SQLITE_INTERRUPT;
                    break;
                }
            }
        }
        if (!statement) code = reader.database->lastCode();
        if (code != SQLITE_DONE && isInterrupted()) code = SQLITE_INTERRUPT; // whatever it struck
        if (code != SQLITE_DONE) failure = reader.database->error(code, "fetching " + entity->name);
    }
    {
        const std::lock_guard guard(m_d->readersMutex);
        std::erase(m_d->readers, &reader);
    }
    m_d->giveBack(std::move(*taken));
    if (code != SQLITE_DONE) return failure;
    return ids;
}

void PersistentContainer::interruptFetches() {
    const std::lock_guard guard(m_d->readersMutex);
    for (Private::Reader* reader : m_d->readers) {
        reader->interrupted = true;
        reader->database->interrupt();
    }
}

Result<void> PersistentContainer::batchDelete(std::string_view entityName) {
    const Entity* entity = model().find(entityName);
    if (!entity) return unknownEntity(entityName);
    ChangeSet everything;
    everything.everything = true;
    bool isDone = false;
    bool deletedAny = false;
    Result<void> result;
    while (!isDone && result) {
        // The lock is let go between two pieces, so that insertions get their rows meanwhile.
        const std::lock_guard guard(m_d->utilityMutex);
        Error error;
        sqlite::Database* database = m_d->utilityDatabase(error);
        if (!database) return error;
        sqlite::Transaction transaction(*database);
        const auto fail = [&](int code) {
            result = database->error(code, "deleting all of " + entity->name);
        };
        if (const int code = transaction.begin(); code != SQLITE_OK) {
            fail(code);
            break;
        }
        const std::int64_t before = database->totalChanges();
        {
            const std::string table = sqlName(entity->table);
            sqlite::Use statement(database->statement("DELETE FROM " + table + " WHERE pk IN (SELECT pk FROM " + table +
                                                      " ORDER BY pk LIMIT ?)"));
            if (!statement) {
                fail(database->lastCode());
                break;
            }
            statement->bind(1, std::int64_t{kBatchRows});
            if (const int code = statement->step(); code != SQLITE_DONE) {
                fail(code);
                break;
            }
        }
        isDone = database->changes() < kBatchRows;
        const std::int64_t written = database->totalChanges() - before;
        if (written > 0) {
            if (const int code = m_d->changeLog->write(*database, everything); code != SQLITE_OK) {
                fail(code);
                break;
            }
        }
        if (const int code = transaction.commit(); code != SQLITE_OK) {
            fail(code);
            break;
        }
        m_d->rowsWritten += static_cast<std::uint64_t>(written);
        deletedAny |= written > 0;
    }
    if (deletedAny) m_d->tellContexts(everything, nullptr);
    return result;
}

void PersistentContainer::processRemoteChanges() {
    auto taken = m_d->takeConnection();
    if (!taken) return;
    sqlite::Database::Fingerprint now;
    const bool known = (*taken)->fingerprint(now);
    {
        const std::lock_guard guard(m_d->seenMutex);
        if (known && m_d->hasSeenCommit && now == m_d->seenCommit) {
            m_d->giveBack(std::move(*taken));
            return;
        }
    }
    // Callbacks run in here, so no lock is held.
    const bool looked = m_d->pullRemote(**taken);
    m_d->giveBack(std::move(*taken));
    const std::lock_guard guard(m_d->seenMutex);
    m_d->hasSeenCommit = looked && known;
    m_d->seenCommit = now;
}

Subscription PersistentContainer::onRemoteChange(std::function<void()> callback) {
    const auto callbacks = m_d->remoteCallbacks;
    const std::lock_guard guard(callbacks->mutex);
    const std::uint64_t number = callbacks->next++;
    callbacks->list.emplace_back(number, std::make_shared<const std::function<void()>>(std::move(callback)));
    return Subscription([callbacks, number] {
        const std::lock_guard inner(callbacks->mutex);
        std::erase_if(callbacks->list, [&](const auto& entry) { return entry.first == number; });
    });
}

Result<void> PersistentContainer::backup(const std::filesystem::path& target) {
    auto source = m_d->takeConnection();
    if (!source) return source.error();
    std::error_code ignored;
    if (std::filesystem::exists(target, ignored))
        return Error{"The backup \"" + target.filename().string() + "\" exists already.",
                     static_cast<int>(StoreErrorCode::Failed)};
    Result<void> result;
    {
        auto copy = sqlite::Database::open(target, m_d->description.vfs, sqlite::OpenMode::Create, Durability::Full);
        if (!copy) return copy.error();
        sqlite3_backup* backup = sqlite3_backup_init((*copy)->handle(), "main", (*source)->handle(), "main");
        int code = backup ? SQLITE_OK : (*copy)->lastCode();
        // Inside one read transaction the source stands still, however many write meanwhile.
        if (backup) {
            (*source)->execute("BEGIN");
            sqlite3_exec((*source)->handle(), "SELECT count(*) FROM sqlite_master", nullptr, nullptr, nullptr);
            while ((code = sqlite3_backup_step(backup, kBackupPages)) == SQLITE_OK) {
            }
            const int finished = sqlite3_backup_finish(backup);
            if (code == SQLITE_DONE) code = finished;
            (*source)->execute("ROLLBACK");
        }
        if (code != SQLITE_OK) result = (*copy)->error(code, "copying the store");
    }
    m_d->giveBack(std::move(*source));
    if (!result) {
        for (const char* suffix : {"", "-wal", "-shm", "-journal"})
            std::filesystem::remove(target.string() + suffix, ignored);
    }
    return result;
}

Result<void> PersistentContainer::verify() {
    auto taken = m_d->takeConnection();
    if (!taken) return taken.error();
    sqlite::Database& database = **taken;
    const auto check = [&](const char* pragma, bool expectsOk) -> Result<void> {
        sqlite::Use statement(database.statement(pragma));
        if (!statement) return database.lastError("checking the store");
        const int code = statement->step();
        if (code == SQLITE_DONE && !expectsOk) return {};
        if (code != SQLITE_ROW) return database.error(code, "checking the store");
        if (expectsOk && statement->text(0) == "ok") return {};
        return Error{"The store is damaged. (" + std::string(statement->text(0)) + ")",
                     static_cast<int>(StoreErrorCode::Damaged)};
    };
    auto result = check("PRAGMA integrity_check", true);
    if (result) result = check("PRAGMA foreign_key_check", false);
    m_d->giveBack(std::move(*taken));
    return result;
}

} // namespace ledgerfinch
