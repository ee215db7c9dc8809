// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFolder.h"

#include "store/entities/Entities.h"
#include "store/entities/Models.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

/// Holds custom queries and no documents.
constexpr std::string_view kQueryStore = "Ledgerfinch-queries";
constexpr int kBusyMilliseconds = 5000;

struct Close {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, Close>;
using Statement = std::unique_ptr<sqlite3_stmt, Close>;

Error failure(const std::filesystem::path& file, sqlite3* database) {
    return {"Couldn't read " + file.filename().string() + ": " + sqlite3_errmsg(database)};
}

Result<Database> openForReading(const std::filesystem::path& file) {
    sqlite3* raw = nullptr;
    const int status = sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, nullptr);
    Database database(raw);
    if (status != SQLITE_OK) return failure(file, raw);
    sqlite3_busy_timeout(raw, kBusyMilliseconds);
    return database;
}

using Row = std::function<bool(sqlite3_stmt*)>;

/// Hands each row to `row`, which returns false for one that it can't read.
Result<void> query(const std::filesystem::path& file, sqlite3* database, const std::string& sql, const Row& row) {
    sqlite3_stmt* raw = nullptr;
    const int prepared = sqlite3_prepare_v2(database, sql.c_str(), -1, &raw, nullptr);
    const Statement statement(raw);
    if (prepared != SQLITE_OK) return failure(file, database);
    int status = SQLITE_ROW;
    while ((status = sqlite3_step(raw)) == SQLITE_ROW)
        if (!row(raw)) return Error{"Couldn't read " + file.filename().string() + ": unexpected value"};
    if (status != SQLITE_DONE) return failure(file, database);
    return {};
}

std::string identifier(std::string_view name) {
    return '"' + std::string(name) + '"';
}

/// Of the documents' table. A bare name that no column has would be taken for a text.
std::string column(std::string_view name) {
    return identifier(ledgerfinchModel().entity(CD_Document::kEntityName).table) + '.' + identifier(name);
}

std::optional<Uuid> uuidAt(sqlite3_stmt* statement, int column) {
    const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    if (!bytes) return std::nullopt;
    std::array<std::uint8_t, 16> raw{};
    if (size != raw.size()) return Uuid::parse(std::string_view(bytes, size));
    std::copy_n(reinterpret_cast<const std::uint8_t*>(bytes), raw.size(), raw.begin());
    return Uuid(raw);
}

/// Whether the store has documents at all: the store of custom queries has none, and neither has a new, empty file.
Result<bool> hasDocuments(const std::filesystem::path& file, sqlite3* database, const std::string& table) {
    bool found = false;
    const auto listed =
        query(file, database, "SELECT name FROM sqlite_master WHERE type = 'table'", [&](sqlite3_stmt* statement) {
            const auto* name = sqlite3_column_text(statement, 0);
            found |= name && reinterpret_cast<const char*>(name) == table;
            return true;
        });
    if (!listed) return listed.error();
    return found;
}

Result<void> addDocumentsOf(const std::filesystem::path& file, KnownDocuments& known) {
    const auto database = openForReading(file);
    if (!database) return database.error();
    const auto& table = ledgerfinchModel().entity(CD_Document::kEntityName).table;
    const auto documents = hasDocuments(file, database->get(), table);
    if (!documents) return documents.error();
    if (!*documents) {
        if (file.stem() != kQueryStore) known.emptyStores.insert(file.stem().string());
        return {};
    }
    return query(file, database->get(),
                 "SELECT " + column("uuid") + ", " + column("server_shadow") + " IS NULL FROM " + identifier(table) +
                     " WHERE " + column("uuid") + " IS NOT NULL",
                 [&known](sqlite3_stmt* statement) {
                     const auto uuid = uuidAt(statement, 0);
                     if (uuid) (sqlite3_column_int(statement, 1) != 0 ? known.local : known.delivered).insert(*uuid);
                     return uuid.has_value();
                 });
}

} // namespace

Result<KnownDocuments> readKnownDocuments(const std::filesystem::path& folder, const std::set<std::string>& expected) {
    KnownDocuments known;
    std::set<std::string> missing = expected;
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        const auto& file = entries->path();
        if (file.extension() != ".sqlite") continue;
        if (const auto added = addDocumentsOf(file, known); !added) return added.error();
        missing.erase(file.stem().string());
    }
    if (error) return Error{"Couldn't list the stores: " + error.message()};
    if (!missing.empty()) return Error{"The store " + *missing.begin() + " isn't there"};
    return known;
}

Result<void> visitDocumentIds(const PersistentContainer& container, const std::function<void(std::int64_t)>& visit) {
    const auto database = openForReading(container.file());
    if (!database) return database.error();
    const auto& table = container.model().entity(CD_Document::kEntityName).table;
    return query(container.file(), database->get(),
                 "SELECT " + column("id") + " FROM " + identifier(table) + " ORDER BY " + column("id"),
                 [&visit](sqlite3_stmt* statement) {
                     visit(sqlite3_column_int64(statement, 0));
                     return true;
                 });
}

Result<std::optional<std::int64_t>> countDocuments(const std::filesystem::path& file) {
    const auto database = openForReading(file);
    if (!database) return database.error();
    const auto& table = ledgerfinchModel().entity(CD_Document::kEntityName).table;
    const auto documents = hasDocuments(file, database->get(), table);
    if (!documents) return documents.error();
    std::optional<std::int64_t> count;
    if (!*documents) return count;
    const auto counted =
        query(file, database->get(), "SELECT count(*) FROM " + identifier(table), [&count](sqlite3_stmt* statement) {
            count = sqlite3_column_int64(statement, 0);
            return true;
        });
    if (!counted) return counted.error();
    return count;
}

Result<bool> hasDeliveredDocuments(const PersistentContainer& container) {
    const auto database = openForReading(container.file());
    if (!database) return database.error();
    const auto& table = container.model().entity(CD_Document::kEntityName).table;
    bool found = false;
    const auto asked =
        query(container.file(), database->get(),
              "SELECT 1 FROM " + identifier(table) + " WHERE " + column("server_shadow") + " IS NOT NULL LIMIT 1",
              [&found](sqlite3_stmt*) { return found = true; });
    if (!asked) return asked.error();
    return found;
}

} // namespace ledgerfinch
