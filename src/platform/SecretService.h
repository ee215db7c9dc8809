// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <string_view>

/// Questions to the Secret Service (freedesktop Secret Service API 0.2) that never open a prompt. Blocking, a few
/// seconds at most.
namespace ledgerfinch::secretService {

/// True when org.freedesktop.secrets has an owner on the session bus, or the bus can start one.
bool isReachable();

/// The bus name of the process that serves now; empty when none does. A service that was started anew has another one.
std::string currentOwner();

enum class LockState { Unlocked, Locked, NoAnswer };

/// Whether secrets can lie hidden: a matching item in a locked collection, or a locked default collection.
LockState lockState(std::string_view service, std::string_view account);

} // namespace ledgerfinch::secretService
