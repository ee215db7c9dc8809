// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreRemoval.h"

#include "store/FilenameSchemes.h"
#include "store/StoreFolder.h"
#include "store/StoreNames.h"
#include "store/entities/Entities.h"
#include "store/entities/Models.h"

#include <algorithm>
#include <chrono>
#include <sqlite3.h>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kSuffix = ".sqlite";
constexpr std::chrono::hours kUntouched{24};

/// A store that nobody else has open, and that nobody can write to while this lives.
class SoleConnection {
public:
    static Result<SoleConnection> open(const fs::path& file) {
        sqlite3* raw = nullptr;
        const int opened = sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
        SoleConnection connection(raw);
        // Leaving the write-ahead log takes being alone, and takes its files away.
        if (opened != SQLITE_OK || !connection.run("PRAGMA journal_mode = DELETE") ||
            !connection.answers("PRAGMA journal_mode", "delete") || !connection.run("BEGIN EXCLUSIVE"))
            return Error{"The store is in use"};
        return connection;
    }
    /// No document, also none that was added on this device; false for a file without tables.
    [[nodiscard]] bool isEmpty() const {
        const auto& table = ledgerfinchModel().entity(CD_Document::kEntityName).table;
        return answers("SELECT CASE count(*) WHEN 0 THEN 'empty' END FROM \"" + table + '"', "empty");
    }
    SoleConnection(SoleConnection&& other) noexcept : m_database(std::exchange(other.m_database, nullptr)) {}
    SoleConnection& operator=(SoleConnection&&) = delete;
    ~SoleConnection() { sqlite3_close_v2(m_database); }

private:
    explicit SoleConnection(sqlite3* database) : m_database(database) {}
    bool run(const char* sql) { return sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }
    /// Whether the one value of the answer is this.
    [[nodiscard]] bool answers(const std::string& sql, std::string_view expected) const {
        struct Question {
            std::string_view expected;
            bool met = false;
        } question{expected};
        const auto compare = [](void* asked, int, char** values, char**) {
            auto& its = *static_cast<Question*>(asked);
            its.met = values[0] && its.expected == values[0];
            return 0;
        };
        return sqlite3_exec(m_database, sql.c_str(), compare, &question, nullptr) == SQLITE_OK && question.met;
    }

    sqlite3* m_database;
};

Result<void> checkEmpty(const fs::path& file) {
    const auto documents = countDocuments(file);
    if (!documents) return documents.error();
    if (!*documents) return Error{"It isn't known what the store held"};
    if (**documents != 0) return Error{"The store isn't empty"};
    return {};
}

bool isUntouched(const fs::path& file, Timestamp now) {
    struct stat status {};
    if (::lstat(file.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
    const auto touched = std::chrono::seconds(std::max(status.st_mtim.tv_sec, status.st_ctim.tv_sec));
    return Timestamp(touched) < now - kUntouched;
}

} // namespace

fs::path syncLockFile(const Paths& paths, const fs::path& storeFile) {
    return paths.state / (storeFile.stem().string() + ".sync.lock");
}

Result<void> removeStoreFiles(const Services& services, std::string_view name) {
    const Error inUse{"The store is somebody's"};
    if (!isStoreName(name) || storeNames::mayBeInUse(*services.defaults, name)) return inUse;
    const auto file = services.paths.container / (std::string(name) + std::string(kSuffix));
    if (auto empty = checkEmpty(file); !empty) return empty;
    const auto lockFile = syncLockFile(services.paths, file);
    const auto lock = FileLock::tryLock(lockFile);
    if (!lock) return lock.error();
    {
        const auto alone = SoleConnection::open(file);
        if (!alone) return alone.error();
        // Once more, now that nobody can fill it.
        if (!alone->isEmpty()) return Error{"The store isn't empty"};
        if (storeNames::mayBeInUse(*services.defaults, name)) return inUse;
        if (auto removed = services.files->removeAll(file); !removed) return removed;
    }
    Result<void> result;
    for (const auto* beside : {"-wal", "-shm", "-journal"})
        if (auto removed = services.files->removeAll(file.string() + beside); !removed) result = std::move(removed);
    if (auto removed = services.files->removeAll(lockFile); !removed) result = std::move(removed);
    return result;
}

std::size_t removeLeftoverStores(const Services& services) {
    std::vector<fs::path> stores;
    std::error_code error;
    for (fs::directory_iterator at(services.paths.container, error); !error && at != fs::directory_iterator();
         at.increment(error))
        if (at->path().extension() == kSuffix && isUntouched(at->path(), services.clock->now()))
            stores.push_back(at->path());
    std::size_t removed = 0;
    for (const auto& store : stores)
        if (removeStoreFiles(services, store.stem().string())) ++removed;
    return removed;
}

} // namespace ledgerfinch
