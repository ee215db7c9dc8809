// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/Attributes.h"
#include "records/SavedView.h"
#include "records/ShareLink.h"

#include <string>

namespace ledgerfinch {

// Compact JSON objects with the standard keys in declared order. An empty member isn't written; an empty slot among the
// select options is written as null.
[[nodiscard]] std::string encode(const Saved_view& view);
[[nodiscard]] std::string encode(const Filter_rule& rule);
[[nodiscard]] std::string encode(const Custom_Field_Extra_Data& data);
[[nodiscard]] std::string encode(const PaperlessShareLink& link);

} // namespace ledgerfinch
