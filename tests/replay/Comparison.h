// SPDX-License-Identifier: GPL-3.0-or-later
// Compares a recorded body with one of today, leaving aside what can't repeat itself: times of "now", random texts,
// sizes of files, the order of sets.
#pragma once

#include "support/PaperlessServerRecords.h"

#include <string>
#include <vector>

namespace ledgerfinch::replay {

using support::Json;

/// Random texts of the recording and what the server says in their place: task ids, slugs, tokens.
using Renamings = std::vector<std::pair<std::string, std::string>>;

struct Comparison {
    support::Micros now = 0; ///< times from here on mean "now"
    Renamings* renamings = nullptr;
    bool isSearch = false;  ///< hits come in the order of a score: the set counts, and the records' shape
    bool onlyShape = false; ///< keys and types count, values and lengths don't
    std::vector<std::string> differences;

    void compare(const Json& expected, const Json& actual, const std::string& path);

private:
    void compareObjects(const Json& expected, const Json& actual, const std::string& path);
    void compareArrays(Json expected, Json actual, const std::string& path);
    bool isSameText(const std::string& expected, const std::string& actual, const std::string& key);
    void differ(const std::string& path, const Json& expected, const Json& actual);
};

} // namespace ledgerfinch::replay
