// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Services.h"

#include <cstddef>
#include <filesystem>
#include <string_view>

namespace ledgerfinch {

/// The lock that a sync of the store holds.
[[nodiscard]] std::filesystem::path syncLockFile(const Paths& paths, const std::filesystem::path& storeFile);

/// Removes the files of a store that was emptied because its server was let go: the store, what the database keeps
/// beside it, and its lock. Fails, and leaves everything, when the store is still somebody's (an entry or the active
/// server names it, or the entries can't be read), when it isn't empty of documents, or when anybody has it open or
/// syncs it. Any thread.
Result<void> removeStoreFiles(const Services& services, std::string_view name);

/// The same for every store of the shared container that nobody touched for a day: those whose removal was cut off. How
/// many went.
std::size_t removeLeftoverStores(const Services& services);

} // namespace ledgerfinch
