// SPDX-License-Identifier: GPL-3.0-or-later
// Pages of a list: count, next, previous, all (where the version has it), results.
#pragma once

#include "support/PaperlessServerWire.h"

#include <functional>

namespace ledgerfinch::support {

/// The `all` text of the last lists, so that paging through 50,000 documents doesn't write 50,000 ids per page anew.
struct ListCache {
    struct Entry {
        std::string key;
        std::uint64_t revision = 0;
        std::vector<Id> ids;
        std::string all;
    };
    std::vector<Entry> entries; ///< newest last
};

struct Page {
    std::size_t first = 0; ///< index of the first result
    std::size_t last = 0;  ///< index behind the last result
    std::string next;      ///< an absolute URL or empty
    std::string previous;
};

/// Cuts the page that the query asks for out of a list of this length; empty: "Invalid page.".
std::optional<Page> pageOf(const Request& request, std::size_t count);

/// Appends the record with this id.
using RecordWriter = std::function<void(std::string& body, Id id)>;

/// Answers with a page of these ids. `all` may hold the ready text of the id list; `extra` goes behind the results.
Response pagedResponse(const Context& context, const std::vector<Id>& ids, const RecordWriter& write,
                       const std::string* all = nullptr, std::string_view extra = {});

} // namespace ledgerfinch::support
