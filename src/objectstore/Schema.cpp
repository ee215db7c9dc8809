// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/Schema.h"

#include "objectstore/StoreSql.h"

#include <array>
#include <fcntl.h>
#include <random>
#include <set>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ledgerfinch::schema {
namespace {

/// "LFst": the application id in the header of every store (https://www.sqlite.org/fileformat2.html, 1.3.14).
constexpr std::uint32_t kApplicationID = 0x4c467374;

Error refusal(StoreErrorCode code, std::string sentence) {
    return Error{std::move(sentence), static_cast<int>(code)};
}

std::string nameOf(const std::filesystem::path& file) {
    return "\"" + file.filename().string() + "\"";
}

enum class Look { New, Ours, Unclear };

std::uint32_t bigEndian(const std::array<unsigned char, 100>& header, std::size_t offset) {
    return (std::uint32_t{header[offset]} << 24) | (std::uint32_t{header[offset + 1]} << 16) |
           (std::uint32_t{header[offset + 2]} << 8) | std::uint32_t{header[offset + 3]};
}

Error newerModel(const std::filesystem::path& file) {
    return refusal(StoreErrorCode::NewerModel,
                   "The store " + nameOf(file) + " was made by a newer version of the program.");
}

/// First look, at the first bytes of the file only.
Result<Look> lookAtHeader(const std::filesystem::path& file, const Model& model) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        if (errno == ENOENT) return Look::New;
        return refusal(StoreErrorCode::Unreadable, "The store " + nameOf(file) + " can't be read.");
    }
    struct stat status {};
    std::array<unsigned char, 100> header{};
    const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    const ssize_t size = isFile ? ::pread(descriptor, header.data(), header.size(), 0) : -1;
    ::close(descriptor);
    if (size < 0) return refusal(StoreErrorCode::Unreadable, "The store " + nameOf(file) + " can't be read.");
    if (size == 0) return Look::New; // a creation that a crash ended before its first byte
    if (size < 100 ||
        std::string_view(reinterpret_cast<const char*>(header.data()), 16) != std::string_view("SQLite format 3\0", 16))
        return refusal(StoreErrorCode::Damaged, "The file " + nameOf(file) + " is no store, or damaged.");
    if (bigEndian(header, 68) != kApplicationID) return Look::Unclear;
    if (bigEndian(header, 60) > static_cast<std::uint32_t>(model.version())) return newerModel(file);
    // Bytes 18 and 19 are 2 in a file with a write-ahead log.
    return header[18] == 2 && header[19] == 2 ? Look::Ours : Look::Unclear;
}

/// Reads one integer; nothing when there is no row.
Result<std::optional<std::int64_t>> readNumber(sqlite::Database& database, std::string_view sql) {
    sqlite::Use statement(database.statement(sql));
    if (!statement) return database.lastError("reading the description");
    const int code = statement->step();
    if (code == SQLITE_ROW) return std::optional(statement->integer(0));
    if (code == SQLITE_DONE) return std::optional<std::int64_t>();
    return database.error(code, "reading the description");
}

struct Description {
    bool isEmpty = false; ///< no table at all
    std::string model;
    std::int64_t version = 0;
    std::int64_t hash = 0;
    std::uint64_t identity = 0;
};

/// What the file says about itself; refuses what isn't a store of this model.
Result<Description> describe(sqlite::Database& database, const Model& model, const std::filesystem::path& file) {
    Description result;
    sqlite::Use meta(database.statement("SELECT model,version,hash,identity FROM lf_meta"));
    if (!meta) {
        if (database.lastCode() != SQLITE_ERROR) return database.lastError("reading the description");
        // No such table. A file with nothing in it is one to be made.
        auto things = readNumber(database, "SELECT count(*) FROM sqlite_master");
        if (!things) return things.error();
        auto version = readNumber(database, "PRAGMA user_version");
        if (!version) return version.error();
        if (things->value_or(0) != 0 || version->value_or(0) != 0)
            return refusal(StoreErrorCode::Unreadable, "The file " + nameOf(file) + " is a database, but no store.");
        result.isEmpty = true;
        return result;
    }
    const int code = meta->step();
    if (code != SQLITE_ROW && code != SQLITE_DONE) return database.error(code, "reading the description");
    if (code == SQLITE_DONE)
        return refusal(StoreErrorCode::Damaged, "The store " + nameOf(file) + " has lost its description.");
    result.model = meta->text(0);
    result.version = meta->integer(1);
    result.hash = meta->integer(2);
    result.identity = static_cast<std::uint64_t>(meta->integer(3));
    if (result.model != model.name())
        return refusal(StoreErrorCode::Unreadable, "The file " + nameOf(file) + " is a store of another kind.");
    if (result.version > model.version()) return newerModel(file);
    return result;
}

std::string columnDefinition(const AttributeDescription& attribute) {
    switch (attribute.type) {
    case AttributeType::Int64:
    case AttributeType::Boolean:
        return sqlName(attribute.name) + " INTEGER NOT NULL DEFAULT 0";
    case AttributeType::String:
        return sqlName(attribute.name) + " TEXT";
    case AttributeType::Date:
        return sqlName(attribute.name) + " INTEGER";
    case AttributeType::Binary:
    case AttributeType::Uuid:
        return sqlName(attribute.name) + " BLOB";
    }
    return {};
}

/// Foreign keys are checked at the commit, so the order of writing is free.
std::string columnDefinition(const Model& model, const Relation& relation) {
    const Entity& target = model.entities()[relation.target];
    const bool cascades = target.relations[relation.inverse].description.deleteRule == DeleteRule::Cascade;
    return sqlName(relation.ownColumn) + " INTEGER REFERENCES " + sqlName(target.table) + "(pk) ON DELETE " +
           (cascades ? "CASCADE" : "SET NULL") + " DEFERRABLE INITIALLY DEFERRED";
}

Result<std::set<std::string>> columnsOf(sqlite::Database& database, const std::string& table) {
    std::set<std::string> names;
    sqlite::Use statement(database.statement("SELECT name FROM pragma_table_info(?)"));
    if (!statement) return database.lastError("reading the tables");
    statement->bindText(1, table);
    int code = SQLITE_ROW;
    while ((code = statement->step()) == SQLITE_ROW)
        names.emplace(statement->text(0));
    if (code != SQLITE_DONE) return database.error(code, "reading the tables");
    return names;
}

/// Adds what the model has and the file hasn't. Everything is "if not exists", so it may run over any older state.
class Migration {
public:
    Migration(sqlite::Database& database, const Model& model) : m_database(database), m_model(model) {}

    Result<void> run() {
        for (const Entity& entity : m_model.entities())
            if (auto done = table(entity); !done) return done;
        for (const Entity& entity : m_model.entities())
            if (auto done = joinsAndTriggers(entity); !done) return done;
        return {};
    }

private:
    Result<void> execute(const std::string& sql) {
        if (const int code = m_database.execute(sql.c_str()); code != SQLITE_OK)
            return m_database.error(code, "bringing the store to the model");
        return {};
    }

    Result<void> table(const Entity& entity) {
        std::vector<std::pair<std::string, std::string>> columns;
        for (const auto& attribute : entity.attributes)
            columns.emplace_back(attribute.name, columnDefinition(attribute));
        for (const Relation& relation : entity.relations)
            if (relation.storage == RelationStorage::Column)
                columns.emplace_back(relation.ownColumn, columnDefinition(m_model, relation));

        auto present = columnsOf(m_database, entity.table);
        if (!present) return present.error();
        const std::string name = sqlName(entity.table);
        if (present->empty()) {
            std::string sql = "CREATE TABLE " + name + "(pk INTEGER PRIMARY KEY,version INTEGER NOT NULL";
            for (const auto& [column, definition] : columns)
                sql += "," + definition;
            if (auto done = execute(sql + ")"); !done) return done;
        } else {
            for (const auto& [column, definition] : columns) {
                if (present->contains(column)) continue;
                if (auto done = execute("ALTER TABLE " + name + " ADD COLUMN " + definition); !done) return done;
            }
        }
        for (const auto& attribute : entity.attributes)
            if (attribute.name == "id" || attribute.indexed == Indexed::Yes)
                if (auto done = index(entity, attribute.name); !done) return done;
        for (const Relation& relation : entity.relations)
            if (relation.storage == RelationStorage::Column)
                if (auto done = index(entity, relation.ownColumn); !done) return done;
        return execute("INSERT OR IGNORE INTO lf_entity(name,next) VALUES('" + entity.name + "',1)");
    }

    Result<void> index(const Entity& entity, const std::string& column) {
        return execute("CREATE INDEX IF NOT EXISTS " + sqlName("lf_index_" + entity.table + "_" + column) + " ON " +
                       sqlName(entity.table) + "(" + sqlName(column) + ")");
    }

    Result<void> joinsAndTriggers(const Entity& entity) {
        for (const Relation& relation : entity.relations) {
            const Entity& target = m_model.entities()[relation.target];
            if (relation.storage == RelationStorage::JoinTable && relation.ownColumn == "source") {
                const std::string join = sqlName(relation.table);
                const auto side = [](const char* column, const Entity& other) {
                    return std::string(column) + " INTEGER NOT NULL REFERENCES " + sqlName(other.table) +
                           "(pk) ON DELETE CASCADE DEFERRABLE INITIALLY DEFERRED";
                };
                if (auto done = execute("CREATE TABLE IF NOT EXISTS " + join + "(" + side("source", entity) + "," +
                                        side("target", target) + ",PRIMARY KEY(source,target)) WITHOUT ROWID;" +
                                        "CREATE INDEX IF NOT EXISTS " + sqlName(relation.table + "_reverse") + " ON " +
                                        join + "(target,source)");
                    !done)
                    return done;
            }
            // A foreign key deletes what points to the row; what the row itself points to takes a trigger.
            if (relation.description.deleteRule != DeleteRule::Cascade) continue;
            const std::string trigger = sqlName("lf_cascade_" + entity.table + "_" + relation.description.name);
            std::string body;
            if (relation.storage == RelationStorage::Column)
                body = "DELETE FROM " + sqlName(target.table) + " WHERE pk=OLD." + sqlName(relation.ownColumn);
            else if (relation.storage == RelationStorage::JoinTable)
                body = "DELETE FROM " + sqlName(target.table) + " WHERE pk IN (SELECT " + relation.targetColumn +
                       " FROM " + sqlName(relation.table) + " WHERE " + relation.ownColumn + "=OLD.pk)";
            else
                continue;
            if (auto done = execute("CREATE TRIGGER IF NOT EXISTS " + trigger + " BEFORE DELETE ON " +
                                    sqlName(entity.table) + " BEGIN " + body + "; END");
                !done)
                return done;
        }
        return {};
    }

    sqlite::Database& m_database;
    const Model& m_model;
};

std::int64_t randomNumber() {
    std::random_device source;
    return static_cast<std::int64_t>((std::uint64_t{source()} << 32) | source());
}

Result<void> migrate(sqlite::Database& database, const Model& model, const std::filesystem::path& file,
                     const Logger& log) {
    sqlite::Transaction transaction(database);
    if (const int code = transaction.begin(); code != SQLITE_OK) return database.error(code, "beginning a migration");
    // Another process may have been quicker.
    auto current = describe(database, model, file);
    if (!current) return current.error();
    const auto hash = static_cast<std::int64_t>(model.hash());
    if (!current->isEmpty && current->hash == hash) return {};

    if (current->isEmpty) {
        const std::string pragmas = "PRAGMA application_id=" + std::to_string(kApplicationID) +
                                    ";"
                                    "CREATE TABLE lf_meta(model TEXT NOT NULL,version INTEGER NOT NULL,"
                                    "hash INTEGER NOT NULL,identity INTEGER NOT NULL);"
                                    "CREATE TABLE lf_entity(number INTEGER PRIMARY KEY,name TEXT NOT NULL UNIQUE,"
                                    "next INTEGER NOT NULL);"
                                    "CREATE TABLE lf_change(seq INTEGER PRIMARY KEY,writer INTEGER NOT NULL,"
                                    "changes BLOB NOT NULL);";
        if (const int code = database.execute(pragmas.c_str()); code != SQLITE_OK)
            return database.error(code, "creating the store");
    } else {
        log.info("Bringing the store %{public}s from version %d to %d", file.filename().string(), current->version,
                 model.version());
    }
    if (auto done = Migration(database, model).run(); !done) return done;

    const std::int64_t identity = current->isEmpty ? randomNumber() : static_cast<std::int64_t>(current->identity);
    if (database.execute("DELETE FROM lf_meta") != SQLITE_OK) return database.lastError("describing the store");
    sqlite::Use insert(database.statement("INSERT INTO lf_meta(model,version,hash,identity) VALUES(?,?,?,?)"));
    if (!insert) return database.lastError("describing the store");
    insert->bindText(1, model.name());
    insert->bind(2, std::int64_t{model.version()});
    insert->bind(3, hash);
    insert->bind(4, identity);
    if (const int code = insert->step(); code != SQLITE_DONE) return database.error(code, "describing the store");
    const std::string version = "PRAGMA user_version=" + std::to_string(model.version());
    if (const int code = database.execute(version.c_str()); code != SQLITE_OK)
        return database.error(code, "describing the store");
    if (const int code = transaction.commit(); code != SQLITE_OK) return database.error(code, "creating the store");
    // So that the header of the file itself tells whose it is. Failing here loses nothing.
    sqlite3_wal_checkpoint_v2(database.handle(), nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
    return {};
}

Result<void> checkWritable(const std::filesystem::path& file, bool exists) {
    const std::filesystem::path folder = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    if (exists && ::access(file.c_str(), R_OK) != 0)
        return refusal(StoreErrorCode::Unreadable, "The store " + nameOf(file) + " can't be read.");
    if ((exists && ::access(file.c_str(), W_OK) != 0) ||
        (::access(folder.c_str(), F_OK) == 0 && ::access(folder.c_str(), W_OK) != 0))
        return refusal(StoreErrorCode::ReadOnly, "The store " + nameOf(file) + " can't be written to.");
    return {};
}

Result<Description> describeReadOnly(const std::filesystem::path& file, const StoreDescription& description,
                                     const Model& model) {
    auto reading = sqlite::Database::open(file, description.vfs, sqlite::OpenMode::ReadOnly, description.durability);
    if (!reading) return reading.error();
    return describe(**reading, model, file);
}

std::uintmax_t sizeOf(const std::filesystem::path& file) {
    std::error_code failure;
    const auto size = std::filesystem::file_size(file, failure);
    return failure ? UINTMAX_MAX : size;
}

Result<void> readNumbers(StoreFile& store, const Model& model) {
    sqlite::Database& database = *store.connection;
    sqlite::Use statement(database.statement("SELECT name,number FROM lf_entity"));
    if (!statement) return database.lastError("reading the description");
    store.entityNumbers.assign(model.entities().size(), 0);
    int code = SQLITE_ROW;
    while ((code = statement->step()) == SQLITE_ROW)
        if (const Entity* entity = model.find(statement->text(0)))
            store.entityNumbers[entity->index] = statement->integer(1);
    if (code != SQLITE_DONE) return database.error(code, "reading the description");
    // Before the log is read, so that no commit falls between the two.
    store.hasCommit = database.fingerprint(store.commit);
    auto last = readNumber(database, "SELECT max(seq) FROM lf_change");
    if (!last) return last.error();
    store.lastChange = last->value_or(0);
    return {};
}

} // namespace

Result<StoreFile> open(const Model& model, const StoreDescription& description, const Logger& log) {
    const std::filesystem::path& file = description.file;
    auto look = lookAtHeader(file, model);
    if (!look) return look.error();
    if (auto writable = checkWritable(file, *look != Look::New); !writable) return writable.error();

    if (*look == Look::Unclear) {
        // A database by its first bytes: ask it, without the right to write.
        const auto known = describeReadOnly(file, description, model);
        // ReadOnly: a rollback journal asks for writing. A creation that a crash ended leaves one, beside a single
        // page.
        const bool wasBeingMade =
            !known && known.error().code == static_cast<int>(StoreErrorCode::ReadOnly) && sizeOf(file) <= 4096;
        if (!known && !wasBeingMade) return known.error();
    }

    auto connection = sqlite::Database::open(
        file, description.vfs, *look == Look::New ? sqlite::OpenMode::Create : sqlite::OpenMode::ReadWrite,
        description.durability);
    if (!connection) return connection.error();
    StoreFile store;
    store.connection = std::move(*connection);
    sqlite::Database& database = *store.connection;

    // Until it is known to be ours, not even closing may write.
    sqlite3_db_config(database.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    auto current = describe(database, model, file);
    if (!current) return current.error();
    sqlite3_db_config(database.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 0, nullptr);

    if (*look != Look::Ours) {
        if (const int code = database.execute("PRAGMA journal_mode=WAL"); code != SQLITE_OK)
            return database.error(code, "preparing the store");
    }
    if (current->isEmpty || current->hash != static_cast<std::int64_t>(model.hash())) {
        if (auto done = migrate(database, model, file, log); !done) return done.error();
        current = describe(database, model, file);
        if (!current) return current.error();
    }
    store.identity = current->identity;
    if (auto done = readNumbers(store, model); !done) return done.error();
    return store;
}

} // namespace ledgerfinch::schema
