// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Instances.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

class DispatchQueue;

/// What a switch does to the screens; each runs on the main thread and may be empty.
struct InstanceSwitchSteps {
    std::function<void()> clearList; ///< the list's copy of the documents
    std::function<void(std::shared_ptr<ApiHandler>)> useHandler;
    std::function<void(bool)> setLoggedIn;
    std::function<void()> refreshAndSync; ///< reads the list anew and starts the one sync
    /// At the end: true when the switch was made; after false the list has to show the old store again.
    std::function<void(bool)> finished;
    /// A sentence about why the switch was not made, or why the new server has no login.
    std::function<void(const std::string&)> tell = {};
    /// Reads the list anew, without a sync.
    std::function<void()> refresh = {};
};

/// Makes another server the active one: its token is read and tried on the queue, everything else happens on the main
/// thread, in one go. Without an entry or a token, or after 401, nothing changes. The store is moved once; when it
/// can't be opened or the settings can't be written the old one stays, and so do the settings; `finished` then has to
/// fill the list again. Of several switches under way only the latest counts. The services and the core outlive the
/// queue.
void switchInstance(Services& services, CoreDataHandler& core, DispatchQueue& queue, std::string address,
                    InstanceSwitchSteps steps);

/// Follows "server", which something else has changed, another process say: always to the end, since the settings are
/// the new server's already. Where its token is missing, refused or out of reach, or its store can't be opened, the
/// screens are logged out: `useHandler` gets an inert handler, `tell` the reason, `setLoggedIn` false, and nothing is
/// synced. `finished(false)` only when there is nothing to follow: "server" has no entry, or was changed once more.
/// Otherwise as switchInstance().
void followActiveServer(Services& services, CoreDataHandler& core, DispatchQueue& queue, InstanceSwitchSteps steps);

/// What "server_version" is while the server is the active one; absent when unknown.
std::optional<std::string> versionSetting(const Instance& instance);

/// Puts what an entry knows of its server into the settings of the active one: "server_version" (removed when unknown)
/// and "lastSuccessfulSync".
void adoptInstanceVersion(UserDefaults& defaults, const Instance& instance);
void adoptInstanceSyncDate(UserDefaults& defaults, const Instance& instance);

/// Ends the first login to a server: opens the store of its entry, then makes it the active server and leaves offline
/// mode. Main thread. On failure the old store stays open and the settings are as they were.
std::optional<ApiError> enterConnectedStore(Services& services, CoreDataHandler& core, std::string_view address);

} // namespace ledgerfinch
