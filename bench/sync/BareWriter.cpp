// SPDX-License-Identifier: GPL-3.0-or-later
#include "BareWriter.h"

#include "store/entities/Models.h"

#include <array>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>
#include <string>
#include <unordered_map>
#include <vector>

namespace ledgerfinch::bench {
namespace {

/// Entities with a life of their own, each after those it refers to. The rest belongs to one of them.
constexpr std::array<std::string_view, 9> kRecords{"CD_Group",         "CD_User",          "CD_Tag",
                                                   "CD_Document_Type", "CD_Correspondent", "CD_Storage_Path",
                                                   "CD_Custom_Field",  "CD_Saved_View",    "CD_Document"};

std::size_t rankOf(std::string_view entity) {
    std::size_t rank = 0;
    while (rank < kRecords.size() && kRecords[rank] != entity)
        ++rank;
    return rank;
}
bool isRecord(const Entity& entity) {
    return rankOf(entity.name) < kRecords.size();
}

/// Values and notes are written with their documents, not with the fields and users they name.
bool belongsToDocument(std::string_view part, std::string_view other) {
    return (part == "CD_Custom_Field_Value" || part == "CD_Note") && other != "CD_Document";
}

class Connection {
public:
    Connection(const std::filesystem::path& file, int flags) {
        check(sqlite3_open_v2(file.c_str(), &m_database, flags, nullptr));
    }
    ~Connection() { sqlite3_close_v2(m_database); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    void check(int code) const {
        if (code == SQLITE_OK || code == SQLITE_DONE || code == SQLITE_ROW) return;
        throw std::runtime_error(m_database ? sqlite3_errmsg(m_database) : "out of memory");
    }
    void execute(const std::string& sql) const {
        check(sqlite3_exec(m_database, sql.c_str(), nullptr, nullptr, nullptr));
    }
    [[nodiscard]] sqlite3_stmt* prepare(const std::string& sql) const {
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v2(m_database, sql.c_str(), -1, &statement, nullptr));
        return statement;
    }

private:
    sqlite3* m_database = nullptr;
};

struct FreeValue {
    void operator()(sqlite3_value* value) const { sqlite3_value_free(value); }
};
using Row = std::vector<std::unique_ptr<sqlite3_value, FreeValue>>;

/// One table in memory, with the statement that writes its rows.
struct Table {
    std::vector<std::string> columns;
    std::vector<Row> rows;
    sqlite3_stmt* insert = nullptr;

    [[nodiscard]] std::size_t column(const std::string& name) const {
        std::size_t index = 0;
        while (index < columns.size() && columns[index] != name)
            ++index;
        return index;
    }
};

/// Rows of a table by what one of its columns refers to.
using RowsByKey = std::unordered_map<std::int64_t, std::vector<const Row*>>;

class Copy {
public:
    Copy(const std::filesystem::path& store, const std::filesystem::path& target)
        : m_source(store, SQLITE_OPEN_READONLY), m_target(target, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE) {
        // Without foreign keys: groups and correspondents refer to each other, and nothing is as bare as that.
        m_target.execute("PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL; PRAGMA cache_size=-4096; "
                         "PRAGMA foreign_keys=ON; PRAGMA temp_store=MEMORY; PRAGMA wal_autocheckpoint=4000");
        copySchema();
        for (const Entity& entity : m_model.entities()) {
            read(entity.table);
            for (const Relation& relation : entity.relations)
                if (relation.storage == RelationStorage::JoinTable) read(relation.table);
        }
    }
    ~Copy() {
        for (auto& [name, table] : m_tables)
            sqlite3_finalize(table.insert);
        sqlite3_finalize(m_begin);
        sqlite3_finalize(m_commit);
    }
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    BareWrite write() {
        std::vector<std::function<void()>> records;
        for (const auto name : kRecords)
            plan(m_model.entity(name), records);
        m_begin = m_target.prepare("BEGIN IMMEDIATE");
        m_commit = m_target.prepare("COMMIT");
        const auto start = std::chrono::steady_clock::now();
        for (const auto& record : records) {
            run(m_begin);
            record();
            run(m_commit);
        }
        const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
        return {taken.count(), m_written};
    }

private:
    void copySchema() {
        sqlite3_stmt* statement = m_source.prepare("SELECT sql FROM sqlite_master WHERE sql IS NOT NULL AND type "
                                                   "IN('table','index') AND name NOT LIKE 'sqlite_%' "
                                                   "AND tbl_name NOT LIKE 'lf\\_meta' ESCAPE '\\' ORDER BY type DESC");
        while (sqlite3_step(statement) == SQLITE_ROW)
            m_target.execute(reinterpret_cast<const char*>(sqlite3_column_text(statement, 0)));
        sqlite3_finalize(statement);
    }

    void read(const std::string& name) {
        if (m_tables.contains(name)) return;
        Table& table = m_tables[name];
        sqlite3_stmt* statement = m_source.prepare("SELECT * FROM \"" + name + "\"");
        const int count = sqlite3_column_count(statement);
        std::string places;
        for (int column = 0; column < count; ++column) {
            table.columns.emplace_back(sqlite3_column_name(statement, column));
            places += column == 0 ? "?" : ",?";
        }
        while (sqlite3_step(statement) == SQLITE_ROW) {
            Row row;
            for (int column = 0; column < count; ++column)
                row.emplace_back(sqlite3_value_dup(sqlite3_column_value(statement, column)));
            table.rows.push_back(std::move(row));
        }
        sqlite3_finalize(statement);
        table.insert = m_target.prepare("INSERT INTO \"" + name + "\" VALUES(" + places + ")");
    }

    RowsByKey byColumn(const std::string& table, const std::string& column) {
        RowsByKey rows;
        const std::size_t index = m_tables[table].column(column);
        for (const Row& row : m_tables[table].rows)
            if (sqlite3_value_type(row[index].get()) != SQLITE_NULL)
                rows[sqlite3_value_int64(row[index].get())].push_back(&row);
        return rows;
    }

    /// One call for each record, which writes it with what belongs to it.
    void plan(const Entity& entity, std::vector<std::function<void()>>& records) {
        struct Part {
            Table* table;
            std::shared_ptr<const RowsByKey> rows;
            std::size_t key; ///< column of the record that the rows are looked up by
        };
        auto parts = std::make_shared<std::vector<Part>>();
        Table& own = m_tables[entity.table];
        const std::size_t pk = own.column("pk");
        const auto add = [&](const std::string& table, const std::string& column, std::size_t key) {
            parts->push_back({&m_tables[table], std::make_shared<const RowsByKey>(byColumn(table, column)), key});
        };
        for (const Relation& relation : entity.relations) {
            const Entity& target = m_model.entities()[relation.target];
            const bool ours = !isRecord(target) || rankOf(target.name) < rankOf(entity.name);
            if (relation.storage == RelationStorage::JoinTable && ours)
                add(relation.table, relation.ownColumn, pk);
            else if (relation.storage == RelationStorage::InverseColumn && !isRecord(target) &&
                     !belongsToDocument(target.name, entity.name))
                add(target.table, relation.targetColumn, pk);
            else if (relation.storage == RelationStorage::Column && !isRecord(target))
                add(target.table, "pk", own.column(relation.ownColumn));
        }
        for (const Row& row : own.rows)
            records.emplace_back([this, &own, &row, parts] {
                insert(own, row);
                for (const Part& part : *parts) {
                    const auto found = part.rows->find(sqlite3_value_int64(row[part.key].get()));
                    if (found == part.rows->end()) continue;
                    for (const Row* other : found->second)
                        insert(*part.table, *other);
                }
            });
    }

    void insert(const Table& table, const Row& row) {
        for (std::size_t column = 0; column < row.size(); ++column)
            m_target.check(sqlite3_bind_value(table.insert, static_cast<int>(column) + 1, row[column].get()));
        run(table.insert);
        ++m_written;
    }

    void run(sqlite3_stmt* statement) const {
        m_target.check(sqlite3_step(statement));
        m_target.check(sqlite3_reset(statement));
    }

    const Model& m_model = ledgerfinchModel();
    Connection m_source;
    Connection m_target;
    std::map<std::string, Table> m_tables;
    sqlite3_stmt* m_begin = nullptr;
    sqlite3_stmt* m_commit = nullptr;
    std::int64_t m_written = 0;
};

} // namespace

BareWrite writeBare(const std::filesystem::path& store, const std::filesystem::path& target) {
    Copy copy(store, target);
    return copy.write();
}

} // namespace ledgerfinch::bench
