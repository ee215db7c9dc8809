// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObjectContext.h"
#include "store/entities/RepairEntry.h"

#include <cstdint>
#include <string_view>

/// The rows behind RepairList, for merges that note a repair within their own save. Inside the context's queue; nothing
/// here saves.
namespace ledgerfinch::repair {

Ref<RepairEntry> find(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason);
/// Null when it was there already.
Ref<RepairEntry> put(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason);
/// A refusal that came after the list was last read stays.
void drop(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason);

// Refusals of this process, so that a fetch under way doesn't count as the mending of one that came after it began.
void noteRefused(const ManagedObjectContext& context, std::string_view kind, std::int64_t id);
void noteRead(const ManagedObjectContext& context, std::string_view kind, std::int64_t id);
bool cameAgain(const ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason);

} // namespace ledgerfinch::repair
