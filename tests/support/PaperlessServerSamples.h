// SPDX-License-Identifier: GPL-3.0-or-later
// Made-up documents in any number, the same for the same seed.
#pragma once

#include "support/PaperlessServerRecords.h"

#include <cstddef>
#include <cstdint>

namespace ledgerfinch::support {

struct SampleOptions {
    std::uint64_t seed = 1;
    std::size_t textBytes = 2500; ///< of a document's content, about
    std::size_t tags = 20;
    std::size_t correspondents = 300;
    std::size_t documentTypes = 40;
    std::size_t storagePaths = 20;
    std::size_t customFields = 10;
    std::size_t savedViews = 10;
    std::size_t valuesPerDocument = 2; ///< custom field values
};

/// Fills an empty state: five users, two groups, attributes and `count` documents with ids from 1.
void generateSamples(State& state, std::size_t count, const SampleOptions& options);

/// Adds more documents of the same kind.
void generateDocuments(State& state, std::size_t count, const SampleOptions& options);

} // namespace ledgerfinch::support
