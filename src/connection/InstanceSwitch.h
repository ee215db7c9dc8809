// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Instances.h"

#include <functional>
#include <memory>
#include <string>

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
};

/// Makes another server the active one: its token is read and tried on the queue, everything else happens on the main
/// thread, in one go. Without an entry or a token, or after 401, nothing changes. The store is moved once; when it
/// can't be opened the old one stays, and so do the settings; `finished` then has to fill the list again. Of
/// several switches under way only the latest counts. The services and the core outlive the queue.
void switchInstance(Services& services, CoreDataHandler& core, DispatchQueue& queue, std::string address,
                    InstanceSwitchSteps steps);

/// Puts what an entry knows of its server into the settings of the active one: "server_version" (removed when unknown)
/// and "lastSuccessfulSync".
void adoptInstanceVersion(UserDefaults& defaults, const Instance& instance);
void adoptInstanceSyncDate(UserDefaults& defaults, const Instance& instance);

/// After the first login to a server: gives it an entry and opens its own store. Main thread. On failure the old store
/// stays open.
Result<void> enterConnectedStore(Services& services, CoreDataHandler& core, std::string_view address);

} // namespace ledgerfinch
