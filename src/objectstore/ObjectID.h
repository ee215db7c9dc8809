// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <vector>

namespace ledgerfinch {

/// The identity of an object: its store, entity and row. A cheap value that may cross threads; given at insertion, for
/// life. An id of another store finds nothing.
struct ObjectID {
    std::uint64_t store = 0; ///< random identity of the store file
    std::uint32_t entity = 0;
    std::int64_t row = 0; ///< 0: none
    [[nodiscard]] bool isValid() const { return row != 0; }
    auto operator<=>(const ObjectID&) const = default;
};

struct ObjectIDHash {
    std::size_t operator()(const ObjectID& id) const noexcept {
        return std::hash<std::int64_t>{}(id.row * 31 + static_cast<std::int64_t>(id.entity)) ^
               std::hash<std::uint64_t>{}(id.store);
    }
};

/// What one save, batch or other process moved.
struct ChangeSet {
    std::vector<ObjectID> inserted;
    std::vector<ObjectID> updated;
    std::vector<ObjectID> deleted;
    /// Too much to tell (a reset, a gap in the change log): everything may have changed.
    bool everything = false;
    [[nodiscard]] bool empty() const { return inserted.empty() && updated.empty() && deleted.empty() && !everything; }
};

} // namespace ledgerfinch
