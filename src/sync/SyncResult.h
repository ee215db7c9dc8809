// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "sync/SyncObserver.h"

#include <optional>
#include <string>

namespace ledgerfinch {

/// How much a pass asks for.
enum class SyncExtent {
    WhatChanged, ///< since the last sync, where server and store allow it
    Everything   ///< every document again
};

/// What a pass does while another one, mostly of another process, works on the same store.
enum class WhenBusy {
    GiveUp, ///< ends with SyncOutcome::AlreadyRunning
    Wait    ///< begins when that one has ended: it may have asked before what brought this one about happened
};

struct SyncRequest {
    SyncExtent extent = SyncExtent::WhatChanged;
    WhenBusy whenBusy = WhenBusy::GiveUp;
};

/// How a pass ended, and what the outcome alone doesn't tell.
struct SyncResult {
    SyncOutcome outcome = SyncOutcome::Stopped;
    /// Why the store could not be written, as with a full disk: the pass ended early then, and the next one asks from
    /// the same date again. A sentence without anything private.
    std::optional<std::string> storeFailure = std::nullopt;
    /// Of the documents when they did not come whole, else of the first list that didn't; 200 when everything came.
    /// What a list doesn't give because this account may not see it isn't counted.
    int status = 200;
    /// A list came whole, or a page of documents.
    bool anythingCame = false;

    operator SyncOutcome() const { return outcome; }
};

} // namespace ledgerfinch
