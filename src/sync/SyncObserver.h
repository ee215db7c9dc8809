// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/Fetch.h"
#include "sync/LoadingData.h"

#include <functional>
#include <string>

namespace ledgerfinch {

/// What a screen hears of a pass. Everything is called on the thread of the pass, nothing may block for long; any of
/// them may be empty.
struct SyncObserver {
    /// The stage moved on.
    std::function<void(loadingData)> stage;
    /// The second line under the stage.
    std::function<void(const additionalLoadingInfo&)> additionalInformation;
    /// A text for the person, shown where the login is.
    std::function<void(const std::string&)> error;
    /// The server refused the token: `loggedIn` is to be false. Called once the pass has ended.
    std::function<void()> loggedOut;
    /// The store has something new to show. Called after every page and at the end.
    std::function<void()> reloadList;
};

/// How a pass ended.
enum class SyncOutcome {
    Finished,      ///< the documents came whole; the next pass may ask for what changed since
    Incomplete,    ///< it ran to its end, but a list or the documents did not come whole
    Offline,       ///< offline mode: nobody was asked
    NoAnswer,      ///< the server did not answer the first request
    TokenRefused,  ///< it ran to its end with a token that the server doesn't take
    Stopped,       ///< another server or store became the active one meanwhile, or stop() was called
    AlreadyRunning ///< another pass, of this or another process, is working on this store
};

} // namespace ledgerfinch
