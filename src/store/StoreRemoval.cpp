// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreRemoval.h"

#include "store/FilenameSchemes.h"
#include "store/StoreFolder.h"
#include "store/StoreNames.h"

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
        if (opened != SQLITE_OK || !connection.run("PRAGMA journal_mode = DELETE") || !connection.isRollbackMode() ||
            !connection.run("BEGIN EXCLUSIVE"))
            return Error{"The store is in use"};
        return connection;
    }
    SoleConnection(SoleConnection&& other) noexcept : m_database(std::exchange(other.m_database, nullptr)) {}
    SoleConnection& operator=(SoleConnection&&) = delete;
    ~SoleConnection() { sqlite3_close_v2(m_database); }

private:
    explicit SoleConnection(sqlite3* database) : m_database(database) {}
    bool run(const char* sql) { return sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr) == SQLITE_OK; }
    bool isRollbackMode() {
        bool rollback = false;
        const auto compare = [](void* found, int, char** values, char**) {
            *static_cast<bool*>(found) = values[0] && std::string_view(values[0]) == "delete";
            return 0;
        };
        return sqlite3_exec(m_database, "PRAGMA journal_mode", compare, &rollback, nullptr) == SQLITE_OK && rollback;
    }

    sqlite3* m_database;
};

Result<void> checkRemovable(const Services& services, std::string_view name, const fs::path& file) {
    if (!isStoreName(name) || storeNames::mayBeInUse(*services.defaults, name)) return Error{"The store is somebody's"};
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
    const auto file = services.paths.container / (std::string(name) + std::string(kSuffix));
    if (auto removable = checkRemovable(services, name, file); !removable) return removable;
    const auto lockFile = syncLockFile(services.paths, file);
    const auto lock = FileLock::tryLock(lockFile);
    if (!lock) return lock.error();
    {
        const auto alone = SoleConnection::open(file);
        if (!alone) return alone.error();
        // Once more, now that nothing can change any more but the settings.
        if (auto removable = checkRemovable(services, name, file); !removable) return removable;
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
