// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"
#include "platform/Uuid.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

/// Looks into store files without a context, reading only; what isn't committed isn't seen. A store's tables and
/// columns bear the names of entities and attributes.
namespace ledgerfinch {

/// The documents that the stores of a folder know, by uuid.
struct KnownDocuments {
    std::set<Uuid> delivered; ///< came from a server, at least in one store
    std::set<Uuid> local;     ///< added on this device, at least in one store
    /// Stores without tables: new, or cut off, and then nobody knows what they held.
    std::set<std::string> emptyStores;

    [[nodiscard]] bool contains(const Uuid& uuid) const { return delivered.contains(uuid) || local.contains(uuid); }
};

/// Reads every "*.sqlite" of the folder. Fails when one of them can't be read, or when one of the `expected` stores (by
/// name) isn't there: then nobody knows what it holds.
Result<KnownDocuments> readKnownDocuments(const std::filesystem::path& folder,
                                          const std::set<std::string>& expected = {});

/// Visits the ids of all documents of a store, those that were never delivered too, ascending. Read from the index
/// alone, so that a sync of a large store doesn't read every row.
Result<void> visitDocumentIds(const PersistentContainer& container, const std::function<void(std::int64_t)>& visit);

/// How many documents a store file holds, local ones too; absent for a file without tables.
Result<std::optional<std::int64_t>> countDocuments(const std::filesystem::path& file);

/// Whether a server delivered any of the store's documents.
Result<bool> hasDeliveredDocuments(const PersistentContainer& container);

} // namespace ledgerfinch
