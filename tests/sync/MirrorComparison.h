// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"
#include "platform/Http.h"

#include <string>

namespace ledgerfinch::test {

/// Where the server is asked what it holds.
struct ServerAddress {
    std::string url; ///< without a slash at the end
    std::string token;
};

/// Compares what a store holds with what the server delivers over the wire: every record's fields, relations and
/// permissions, notes, filter rules and custom field values, and that neither side has more than the other. Texts of
/// the differences, one a line, at most a dozen; empty when the two worlds are equal.
std::string mirrorDifferences(PersistentContainer& container, HttpSession& http, const ServerAddress& server);

} // namespace ledgerfinch::test
