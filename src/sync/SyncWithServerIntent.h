// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/DocumentDownloads.h"
#include "sync/SyncObserver.h"

#include <atomic>
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
    /// when no token is at hand. The files that the settings ask for follow in the background.
    Result<SyncOutcome> perform(const std::optional<std::string>& server = std::nullopt);

    /// Waits until the files are there.
    void waitForDownloads() { m_downloads.wait(); }
    /// From any thread, for good.
    void stop();

private:
    Services& m_services;
    CoreDataHandler& m_core;
    Logger m_log;
    std::atomic<bool> m_stopped{false};
    DocumentDownloads m_downloads;
};

} // namespace ledgerfinch
