// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "Stopwatch.h"

#include <filesystem>
#include <memory>
#include <sqlite3.h>
#include <string>
#include <vector>

namespace ledgerfinch::bench {

/// The rows of a merged store, one batch for each document, to be written again by bare prepared statements: what the
/// same writes cost without any engine.
class BareRows {
public:
    explicit BareRows(const std::filesystem::path& mergedStore);
    ~BareRows();
    BareRows(const BareRows&) = delete;
    BareRows& operator=(const BareRows&) = delete;

    /// Writes all rows into an empty store of the same schema: one transaction for what documents refer to, then one
    /// for each document. Seconds that the documents took.
    Seconds writeInto(const std::filesystem::path& emptyStore) const;
    [[nodiscard]] std::size_t documents() const { return m_documents.size(); }
    [[nodiscard]] std::size_t rowsOfDocuments() const;

private:
    struct Row {
        std::size_t table = 0;
        std::vector<sqlite3_value*> cells;
    };
    using Batch = std::vector<Row>;

    std::size_t tableIndex(const std::string& name);
    void read(sqlite3* database, const std::string& table, const std::string& condition, std::int64_t key, Batch& into);

    std::vector<std::string> m_tables;
    std::vector<std::size_t> m_columns; ///< of each table
    Batch m_others;
    std::vector<Batch> m_documents;
};

} // namespace ledgerfinch::bench
