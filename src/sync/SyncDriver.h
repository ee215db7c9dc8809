// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/DocumentDownloads.h"
#include "sync/SyncObserver.h"
#include "sync/SyncResult.h"
#include "sync/SyncStop.h"

#include <memory>

namespace ledgerfinch {

/// Brings the active store up to its server's state, and then fetches the files that the settings ask for. One per
/// screen or program; the services and the store's handler outlive it.
class SyncDriver {
public:
    SyncDriver(Services& services, CoreDataHandler& core, DocumentsOfSavedView documentsOfSavedView = {});
    /// Ends what is under way and waits for it.
    ~SyncDriver();

    /// One pass, until the documents are in; blocks, not on the main thread, one caller at a time. The handler's server
    /// must be the active one. The files then follow on a thread of their own, telling the same observer.
    SyncResult runSync(const std::shared_ptr<ApiHandler>& api, const SyncObserver& observer,
                       const SyncRequest& request = {});

    /// From any thread, for good: the request under way ends at once and the pass at its next step, no other begins,
    /// and no file is fetched any more.
    void stop();
    /// From any thread: the same for the pass under way alone.
    void cancelPass();

    [[nodiscard]] DocumentDownloads& downloads() { return m_downloads; }

private:
    Services& m_services;
    CoreDataHandler& m_core;
    SyncStops m_stops;
    DocumentDownloads m_downloads;
};

} // namespace ledgerfinch
