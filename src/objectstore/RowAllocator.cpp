// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/RowAllocator.h"

#include <algorithm>
#include <random>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

constexpr std::int64_t kLargestBlock = 8192;
constexpr std::int64_t kFirstRandomRow = std::int64_t{1} << 61;

std::int64_t randomRow() {
    std::random_device source;
    const std::uint64_t bits = (std::uint64_t{source()} << 32) | source();
    return kFirstRandomRow + static_cast<std::int64_t>(bits >> 3);
}

} // namespace

RowAllocator::RowAllocator(std::vector<std::int64_t> entityNumbers, WithDatabase withDatabase)
    : m_withDatabase(std::move(withDatabase)) {
    for (const std::int64_t number : entityNumbers)
        m_blocks.push_back(Block{.number = number});
}

std::int64_t RowAllocator::next(std::size_t entity) {
    const std::lock_guard guard(m_mutex);
    Block& block = m_blocks[entity];
    if (block.next == block.end) {
        block.size = std::min(block.size * 2, kLargestBlock);
        const bool reserved = m_withDatabase([&](sqlite::Database& database) { return reserve(database, block); });
        if (!reserved) {
            // A short block, so that the next try at the file comes soon.
            block.next = randomRow();
            block.end = block.next + 16;
        }
    }
    return block.next++;
}

bool RowAllocator::reserve(sqlite::Database& database, Block& block) const {
    sqlite::Transaction transaction(database);
    if (transaction.begin() != SQLITE_OK) return false;
    std::int64_t end = 0;
    {
        sqlite::Use update(database.statement("UPDATE lf_entity SET next=next+? WHERE number=? RETURNING next"));
        if (!update) return false;
        update->bind(1, block.size);
        update->bind(2, block.number);
        if (update->step() != SQLITE_ROW) return false;
        end = update->integer(0);
    }
    if (transaction.commit() != SQLITE_OK) return false;
    block.next = end - block.size;
    block.end = end;
    return true;
}

} // namespace ledgerfinch
