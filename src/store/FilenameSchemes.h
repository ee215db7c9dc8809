// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// The text without the characters that file names don't take: \ / : * ? " < > | and line breaks, control and format
/// characters, code points that are no characters.
std::string sanitizedForFileName(std::string_view text);

/// A store name for a server's address that no other store has: the sanitised address, cut to what a file name takes,
/// with "-2", "-3" where it collides, in any case, with one of the taken names or with the store of offline mode.
std::string storeNameFor(std::string_view address, const std::set<std::string>& taken);

/// Whether this names a store in the shared container and nothing else: one path component that doesn't start with a
/// dot. Settings hold store names, and settings can be edited.
bool isStoreName(std::string_view name);

} // namespace ledgerfinch
