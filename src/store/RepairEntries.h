// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObjectContext.h"
#include "store/entities/RepairEntry.h"

#include <cstdint>
#include <string_view>

/// The rows behind RepairList, for merges that note a repair within their own save. Inside the context's queue; nothing
/// here saves.
///
/// A refusal of a record that is on the list already takes a new row in place of the old one. So the row tells one
/// refusal from the next, for every process that has the store open: whoever fetched the record for the old row finds
/// that row gone, and leaves the new one.
namespace ledgerfinch::repair {

[[nodiscard]] bool isNoted(ManagedObjectContext& context, std::string_view kind, std::int64_t id,
                           std::string_view reason);
/// Null when the record was on the list already; a refusal has taken a new row then.
Ref<RepairEntry> put(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason);
/// Takes the record off the list, but for a refusal that came after this process last read the list.
void drop(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason);
/// Takes this row off and no other: for whoever put it there.
void drop(ManagedObjectContext& context, const ObjectID& entry);

} // namespace ledgerfinch::repair
