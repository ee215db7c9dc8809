// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObjectContext.h"

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

class CoreDataHandler;

struct RepairItem {
    std::string kind;    ///< entity name ("CD_Document")
    std::int64_t id = 0; ///< server id
    std::string reason;  ///< kRefused or kUnresolved
    auto operator<=>(const RepairItem&) const = default;
};

/// Records whose local state may differ from the server's, remembered in the store itself until they are mended. It
/// belongs to the context's store; a null context means the view context. Blocks as the handler's operations do.
class RepairList {
public:
    /// The server refused a write or never answered it: to be fetched again.
    static constexpr std::string_view kRefused = "refused";
    /// Relations were not there when it was merged: to be linked again.
    static constexpr std::string_view kUnresolved = "unresolved";
    /// In place of an id, which no record has: the whole list of this kind did not come.
    static constexpr std::int64_t kListMissing = 0;
    /// It came since, and documents that were merged without it are to be asked for once more.
    static constexpr std::int64_t kListCame = -1;

    explicit RepairList(CoreDataHandler& handler) : m_handler(handler) {}

    /// Durable when it returns. What is there already stays; a refusal that comes again is a new one. Leaves other
    /// pending changes pending.
    Result<void> add(std::string_view kind, std::int64_t id, std::string_view reason,
                     std::shared_ptr<ManagedObjectContext> context = nullptr);
    /// With an empty reason, whatever the reason. A refusal that came after this process last read the list stays, also
    /// when another process noted it: whoever read the list then hasn't mended that one.
    Result<void> remove(std::string_view kind, std::int64_t id, std::string_view reason = {},
                        std::shared_ptr<ManagedObjectContext> context = nullptr);
    /// In the order they were added; with a reason, only those.
    [[nodiscard]] std::vector<RepairItem> entries(std::string_view reason = {},
                                                  std::shared_ptr<ManagedObjectContext> context = nullptr) const;

private:
    CoreDataHandler& m_handler;
};

} // namespace ledgerfinch
