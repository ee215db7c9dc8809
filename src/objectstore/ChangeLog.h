// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Database.h"
#include "objectstore/ObjectID.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

/// The log of changes in the file: an entry for each transaction that a context saved, numbered without gaps, the
/// oldest pruned. Through it processes learn of each other's commits. Entities are named by their number in the file,
/// because a process with another model may read it.
class ChangeLog {
public:
    ChangeLog(std::uint64_t store, std::int64_t writer, std::vector<std::int64_t> entityNumbers);

    /// Inside a write transaction. An SQLite code.
    int write(sqlite::Database& database, const ChangeSet& changes) const;

    struct News {
        ChangeSet changes;
        std::int64_t last = 0;
    };
    /// What other writers logged after this entry; nothing when the store failed.
    std::optional<News> readSince(sqlite::Database& database, std::int64_t seen) const;

    [[nodiscard]] std::string encode(const ChangeSet& changes) const;
    /// What can't be read, by damage or from a newer program, is everything.
    [[nodiscard]] ChangeSet decode(std::string_view bytes) const;

private:
    std::uint64_t m_store;
    std::int64_t m_writer;
    std::vector<std::int64_t> m_entityNumbers;
};

} // namespace ledgerfinch
