// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"

#include <map>
#include <string>

namespace ledgerfinch::test {

/// Everything a store holds, as text: from "CD_Tag 5" to its attributes and the identities it is related to. Leaves out
/// what every device makes for itself (uuids, bookkeeping, what was
/// delivered last). Objects without an id of their own are written inside those they belong
/// to. Equal dumps are equal mirrors.
using StoreDump = std::map<std::string, std::string>;

/// What is saved, read through a context of its own.
StoreDump dumpStore(PersistentContainer& container);

/// The first few differences, one a line; empty when there are none.
std::string differences(const StoreDump& expected, const StoreDump& actual);

} // namespace ledgerfinch::test
