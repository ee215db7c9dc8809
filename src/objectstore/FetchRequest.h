// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Predicate.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

enum class SortOrder { Ascending, Descending };
/// Plain compares texts by code unit; LocalizedStandard as a person expects in the device's locale.
enum class SortComparison { Plain, LocalizedStandard };

struct SortDescriptor {
    std::string keyPath; ///< an attribute, or to-one relations joined by "." and an attribute ("correspondent.name");
                         ///< absent values come first ascending
    SortOrder order = SortOrder::Ascending;
    SortComparison comparison = SortComparison::Plain;
};

/// What to fetch. Objects equal under all descriptors come in the order of their rows, so a reload never shuffles.
struct FetchRequest {
    std::string entity;
    std::optional<Predicate> predicate;
    std::vector<SortDescriptor> sort;
    std::optional<std::size_t> limit;
    std::size_t offset = 0;
};

} // namespace ledgerfinch
