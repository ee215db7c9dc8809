// SPDX-License-Identifier: GPL-3.0-or-later
// The documents that a list query selects, in its order.
#pragma once

#include "support/PaperlessServerWire.h"

namespace ledgerfinch::support {

struct SelectedDocuments {
    std::vector<Id> ids;
    std::optional<Response> error; ///< a filter that the server refuses
    bool isSearch = false;         ///< answers carry a hit per record and "corrected_query"
    std::vector<double> scores;    ///< of a search, beside `ids`
};

/// Applies filters, search, ordering and the user's sight.
SelectedDocuments selectDocuments(const State& state, const Request& request, const User& viewer);

/// The words of a text, lowered.
std::vector<std::string> wordsOf(std::string_view text);

} // namespace ledgerfinch::support
