// SPDX-License-Identifier: GPL-3.0-or-later
// One recorded request with its answer, and the differences that we know of.
#pragma once

#include "support/PaperlessServerRecords.h"

#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace ledgerfinch::replay {

using support::Json;

struct Exchange {
    std::string phase;
    std::string name;
    std::string method;
    std::string path;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    int status = 0;
    std::map<std::string, std::string> answerHeaders;
    Json json;                       ///< discarded when the answer had none
    std::optional<std::string> text; ///< of an HTML answer
};

/// All exchanges with one server in the order of recording. Beside the file stands what the recordings share.
std::vector<Exchange> readExchanges(const std::filesystem::path& file);

/// What an exchange is excused from: "status", "headers", "body", "values" (the body's shape still counts), several of
/// them with commas, or "all".
struct Exception {
    std::string part;
    std::string reason;
};

/// Lines of NAME, part, reason, separated by tabs; '#' starts a comment.
std::map<std::string, Exception> readExceptions(const std::string& file);

} // namespace ledgerfinch::replay
