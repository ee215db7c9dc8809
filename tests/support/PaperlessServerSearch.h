// SPDX-License-Identifier: GPL-3.0-or-later
// A small full-text search: words in title, content, notes and names. Scores are a count of hits, not the real ones.
#pragma once

#include "support/PaperlessServerFilters.h"

namespace ledgerfinch::support {

/// Narrows the selection when the request has "query" or "more_like_id", in release 3 also "text" or "title_search".
void applySearch(SelectedDocuments& selected, const State& state, const Request& request);

/// What a result of a search carries besides the document: score, highlights, rank.
Json searchHit(const State& state, const Document& document, const std::string& query, double score, std::size_t rank);

} // namespace ledgerfinch::support
