// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Database.h"

#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

namespace ledgerfinch {

/// Gives out rows, ascending, that no other process gives out: it reserves them in blocks, in the file. Any thread.
class RowAllocator {
public:
    /// Runs the given work with a connection; false when there is none.
    using WithDatabase = std::function<bool(const std::function<bool(sqlite::Database&)>&)>;

    RowAllocator(std::vector<std::int64_t> entityNumbers, WithDatabase withDatabase);

    /// Never fails: when no block can be reserved (a full disk), the rows come from a random place far above all
    /// reserved ones, where nobody else's will be.
    std::int64_t next(std::size_t entity);

private:
    struct Block {
        std::int64_t number = 0; ///< of the entity in the file
        std::int64_t next = 0;
        std::int64_t end = 0;
        std::int64_t size = 128;
    };
    bool reserve(sqlite::Database& database, Block& block) const;

    std::mutex m_mutex;
    std::vector<Block> m_blocks;
    WithDatabase m_withDatabase;
};

} // namespace ledgerfinch
