// SPDX-License-Identifier: GPL-3.0-or-later
// The custom_field_query of a document list: ["Amount", "gt", 5] and AND, OR, NOT around such atoms.
#pragma once

#include "support/PaperlessServerRecords.h"

#include <functional>

namespace ledgerfinch::support {

struct CustomQuery {
    std::function<bool(const Document&)> predicate;
    Json error; ///< null, or errors keyed by position
};

CustomQuery parseCustomQuery(const State& state, const std::string& text);

} // namespace ledgerfinch::support
