// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/UserDefaults.h"

#include <optional>
#include <set>
#include <string>
#include <string_view>

/// Which store belongs to which server, as the settings "server" and "connectedInstances" say.
namespace ledgerfinch::storeNames {

/// The store of offline mode.
constexpr std::string_view kOffline = "Ledgerfinch";

/// The store of the active instance; absent when no instance is active or the active server has no entry, or one that
/// names the store of offline mode. An address
/// with one trailing slash and the same without are one server.
std::optional<std::string> ofActiveInstance(const UserDefaults& defaults);
/// The store to work with: that of the active instance; for a server without a usable entry one named by its address,
/// never that of offline mode; without a server that of offline mode.
std::string active(const UserDefaults& defaults);
/// The stores of all connected instances.
std::set<std::string> ofAllInstances(const UserDefaults& defaults);
/// The stores that should lie in the shared container: those of all instances, and that of offline mode.
std::set<std::string> expected(const UserDefaults& defaults);
/// Whether an entry of a server names the store of offline mode.
bool isOfflineClaimed(const UserDefaults& defaults);
/// Whether the name means the store of offline mode, on a file system with or without case.
bool isOffline(std::string_view name);

/// Whether the store may be somebody's: that of offline mode, of the active server or of an entry. True as well when
/// the entries can't all be read, for then nobody knows. Names that differ only in case may be one file.
bool mayBeInUse(const UserDefaults& defaults, std::string_view name);

} // namespace ledgerfinch::storeNames
