// SPDX-License-Identifier: GPL-3.0-or-later
#include "BareRows.h"

#include "store/entities/Entities.h"
#include "store/entities/Models.h"

#include <cstdio>
#include <cstdlib>
#include <set>

namespace ledgerfinch::bench {
namespace {

void check(int status, sqlite3* database) {
    if (status == SQLITE_OK || status == SQLITE_ROW || status == SQLITE_DONE) return;
    std::fprintf(stderr, "%s\n", sqlite3_errmsg(database));
    std::abort();
}

sqlite3* open(const std::filesystem::path& file) {
    sqlite3* database = nullptr;
    check(sqlite3_open(file.c_str(), &database), database);
    return database;
}

sqlite3_stmt* prepare(sqlite3* database, const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v3(database, sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr), database);
    return statement;
}

std::string identifier(const std::string& name) {
    return '"' + name + '"';
}

void stepAndReset(sqlite3_stmt* statement, sqlite3* database) {
    check(sqlite3_step(statement), database);
    sqlite3_reset(statement);
}

} // namespace

BareRows::BareRows(const std::filesystem::path& mergedStore) {
    sqlite3* database = open(mergedStore);
    const Model& model = ledgerfinchModel();
    const Entity& document = model.entity(CD_Document::kEntityName);
    const auto& content = document.relations[CD_Document::relationIndex<"content">()];
    const auto& values = document.relations[CD_Document::relationIndex<"custom_field_values">()];
    const auto& contents = model.entity(CD_Document_Content::kEntityName).table;
    const auto& fieldValues = model.entity(CD_Custom_Field_Value::kEntityName).table;

    std::set<std::string> ofDocuments{document.table, contents, fieldValues};
    for (const auto& entity : model.entities())
        if (!ofDocuments.contains(entity.table)) read(database, entity.table, "?1 = ?1", 0, m_others);

    sqlite3_stmt* keys = prepare(database, "SELECT pk FROM " + identifier(document.table) + " ORDER BY pk");
    while (sqlite3_step(keys) == SQLITE_ROW) {
        const auto pk = sqlite3_column_int64(keys, 0);
        Batch& batch = m_documents.emplace_back();
        read(database, contents,
             "pk = (SELECT " + identifier(content.ownColumn) + " FROM " + identifier(document.table) +
                 " WHERE pk = ?1)",
             pk, batch);
        read(database, document.table, "pk = ?1", pk, batch);
        read(database, fieldValues, identifier(values.targetColumn) + " = ?1", pk, batch);
        for (const auto& relation : document.relations)
            if (relation.storage == RelationStorage::JoinTable)
                read(database, relation.table, identifier(relation.ownColumn) + " = ?1", pk, batch);
    }
    sqlite3_finalize(keys);
    sqlite3_close(database);
}

BareRows::~BareRows() {
    m_documents.push_back(std::move(m_others));
    for (const auto& batch : m_documents)
        for (const auto& row : batch)
            for (auto* cell : row.cells)
                sqlite3_value_free(cell);
}

std::size_t BareRows::tableIndex(const std::string& name) {
    for (std::size_t index = 0; index < m_tables.size(); ++index)
        if (m_tables[index] == name) return index;
    m_tables.push_back(name);
    m_columns.push_back(0);
    return m_tables.size() - 1;
}

void BareRows::read(sqlite3* database, const std::string& table, const std::string& condition, std::int64_t key,
                    Batch& into) {
    const std::size_t index = tableIndex(table);
    sqlite3_stmt* rows = prepare(database, "SELECT * FROM " + identifier(table) + " WHERE " + condition);
    sqlite3_bind_int64(rows, 1, key);
    while (sqlite3_step(rows) == SQLITE_ROW) {
        Row row{index, {}};
        for (int column = 0; column < sqlite3_column_count(rows); ++column)
            row.cells.push_back(sqlite3_value_dup(sqlite3_column_value(rows, column)));
        m_columns[index] = row.cells.size();
        into.push_back(std::move(row));
    }
    sqlite3_finalize(rows);
}

std::size_t BareRows::rowsOfDocuments() const {
    std::size_t rows = 0;
    for (const auto& batch : m_documents)
        rows += batch.size();
    return rows;
}

Seconds BareRows::writeInto(const std::filesystem::path& emptyStore) const {
    sqlite3* database = open(emptyStore);
    for (const char* setting : {"PRAGMA cache_size=-4096", "PRAGMA temp_store=MEMORY", "PRAGMA synchronous=NORMAL",
                                "PRAGMA foreign_keys=ON", "PRAGMA wal_autocheckpoint=4000"})
        check(sqlite3_exec(database, setting, nullptr, nullptr, nullptr), database);
    std::vector<sqlite3_stmt*> inserts;
    for (std::size_t index = 0; index < m_tables.size(); ++index) {
        std::string marks = "?";
        for (std::size_t column = 1; column < m_columns[index]; ++column)
            marks += ",?";
        inserts.push_back(m_columns[index] == 0 ? nullptr
                                                : prepare(database, "INSERT INTO " + identifier(m_tables[index]) +
                                                                        " VALUES(" + marks + ")"));
    }
    sqlite3_stmt* begin = prepare(database, "BEGIN IMMEDIATE");
    sqlite3_stmt* commit = prepare(database, "COMMIT");
    const auto write = [&](const Batch& batch) {
        stepAndReset(begin, database);
        for (const auto& row : batch) {
            sqlite3_stmt* insert = inserts[row.table];
            for (std::size_t column = 0; column < row.cells.size(); ++column)
                sqlite3_bind_value(insert, static_cast<int>(column) + 1, row.cells[column]);
            stepAndReset(insert, database);
        }
        stepAndReset(commit, database);
    };
    write(m_others);
    const Stopwatch watch;
    for (const auto& batch : m_documents)
        write(batch);
    const Seconds taken = watch.elapsed();

    for (auto* statement : inserts)
        sqlite3_finalize(statement);
    sqlite3_finalize(begin);
    sqlite3_finalize(commit);
    sqlite3_close(database);
    return taken;
}

} // namespace ledgerfinch::bench
