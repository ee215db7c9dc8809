// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Dates.h"
#include "platform/Uuid.h"

#include <cstdint>
#include <string>
#include <variant>

namespace ledgerfinch {

/// Bytes of a Binary attribute.
struct Blob {
    std::string bytes;
    bool operator==(const Blob&) const = default;
};

/// The value of an attribute. Absent is monostate; Int64 and Boolean attributes are never absent.
using Value = std::variant<std::monostate, std::int64_t, bool, double, std::string, Blob, Timestamp, Uuid>;

} // namespace ledgerfinch
