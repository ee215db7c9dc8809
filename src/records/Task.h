// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Dates.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

struct PaperlessTaskStatus {
    enum class Case { unknown, pending, started, complete, failed };

    Case kind = Case::unknown;
    std::string value; ///< of `unknown` only: the text that came, or "unknown" when it was no text

    static PaperlessTaskStatus fromText(std::string_view text);

    bool operator==(const PaperlessTaskStatus&) const = default;
};

/// One entry of the server's list of background tasks.
struct PaperlessTask {
    std::int64_t id = 0;
    std::optional<std::string> name;
    std::optional<std::string> task_file_name;
    std::optional<Timestamp> date_created;
    std::optional<Timestamp> date_done;
    std::optional<std::string> type;
    std::optional<PaperlessTaskStatus> status;
    std::optional<std::string> result;
    std::optional<bool> ackknowledged; ///< read from the key spelled the same way
    std::optional<std::string> related_document;
};

/// The group "docID" of the first match of the pattern "Success. New document id (?<docID>\d+) created" anywhere in the
/// text: 253 of "Success. New document id 253 created". The "." of the pattern is any character but a line break.
/// Absent without a match, or when the number doesn't fit.
[[nodiscard]] std::optional<std::int64_t> docIDFromResult(std::string_view result);

} // namespace ledgerfinch
