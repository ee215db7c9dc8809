// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/DocumentDownloads.h"
#include "sync/SyncResult.h"
#include "sync/SyncStop.h"

#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// A sync without a screen, for shortcuts and the command line: no stages, and the first answer ends nothing.
class SyncWithServerIntent {
public:
    static constexpr std::string_view kTitle = "Sync with server";

    SyncWithServerIntent(Services& services, CoreDataHandler& core, DocumentsOfSavedView documentsOfSavedView = {});
    /// Ends what is under way and waits for it.
    ~SyncWithServerIntent();

    /// Syncs the active server; blocks, not on the main thread. `server` is the address of the instance that is meant:
    /// one that isn't the active one is refused, since its documents have no place in the open store. Fails as well
    /// when no token is at hand. While another process syncs the same store, it waits for that. The files that the
    /// settings ask for follow in the background.
    Result<SyncResult> perform(const std::optional<std::string>& server = std::nullopt);

    /// Waits until the files are there.
    void waitForDownloads() { m_downloads.wait(); }
    /// From any thread, for good: ends the request under way too.
    void stop();

private:
    Services& m_services;
    CoreDataHandler& m_core;
    Logger m_log;
    SyncStops m_stops;
    DocumentDownloads m_downloads;
};

} // namespace ledgerfinch
