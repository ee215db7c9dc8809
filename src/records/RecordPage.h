// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

/// What every page of a list endpoint begins with.
struct RecordPageHead {
    std::optional<std::int64_t> count;   ///< number of records on the server
    std::optional<std::string> next;     ///< absolute address of the next page, its scheme already mended
    std::optional<std::string> previous; ///< absolute address, as it came
};

/// How the decode of a page went.
struct RecordPageOutcome {
    /// The body was a page. Nothing may be concluded from a page where this is false.
    bool decoded = false;
    /// The key "results" was there and held a list. Only then may records that are missing count as gone.
    bool hasResults = false;
    /// What failed and where, when `decoded` is false. May quote what the server sent: not for a log line.
    std::string failure;
};

/// One page of a list endpoint. A failed decode leaves every field empty and `decoded` false.
template <class Record>
struct RecordPage : RecordPageHead, RecordPageOutcome {
    std::optional<std::vector<Record>> results;
};

/// A page that names the ids of the whole query too.
template <class Record>
struct RecordPageWithIds : RecordPageHead, RecordPageOutcome {
    std::optional<std::vector<std::int64_t>> all; ///< ids of every page
    std::optional<std::vector<Record>> results;
};

} // namespace ledgerfinch
