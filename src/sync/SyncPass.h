// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "objectstore/PersistentContainer.h"
#include "platform/FileSystem.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/SyncObserver.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

/// Who asks for a pass.
enum class SyncCaller {
    Screen, ///< a list on screen
    Intent  ///< a shortcut: the first answer ends nothing, an unknown version opens no gate
};

/// What goes on around a pass, on its thread. Either may be empty.
struct SyncHooks {
    std::function<void()> began; ///< the store is held and the server about to be asked
    std::function<void()> ended; ///< every step was taken; not after a pass that ended early
};

/// One pass that brings the active store up to its server's state: attributes, then documents. It captures the server,
/// the token and the store when it begins and stops at the next step when one of them is no longer the active one.
/// Used once, on one thread that isn't the main thread.
class SyncPass {
public:
    /// The handler must be the one of the active server. `stopRequested` is asked from the pass's thread.
    SyncPass(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api, SyncCaller caller,
             SyncObserver observer, SyncHooks hooks, std::function<bool()> stopRequested);

    SyncOutcome run();

private:
    SyncOutcome runAwake();
    SyncOutcome runLocked();
    /// False when handler, setting and store don't belong together (any more).
    bool capture();
    [[nodiscard]] bool mustStop() const;
    [[nodiscard]] FetchOptions options() const;

    /// False when the pass has to stop.
    bool fetchAttributes();
    /// Fetches one list; `entity` names it where documents refer to its records and can't be linked later.
    int fetchList(int (*fetch)(ApiHandler&, const FetchOptions&), std::string_view entity);
    void noteDelivery(std::string_view entity, bool whole);
    void forgetUndelivered();
    [[nodiscard]] bool gateIsOpen(std::string_view gate) const;
    /// The status of the documents: 200 only when they came whole and are saved.
    int fetchDocuments();
    int fetchDocumentsFromServer();
    [[nodiscard]] std::string lastSync() const;
    bool savePending();
    void repair(int documentStatus);
    /// Date and version, into the settings and the server's entry.
    void keepResult(bool whole);

    void stage(loadingData stage) const;
    [[nodiscard]] std::string serverVersion() const;

    Services& m_services;
    CoreDataHandler& m_core;
    std::shared_ptr<ApiHandler> m_api;
    SyncCaller m_caller;
    SyncObserver m_observer;
    SyncHooks m_hooks;
    std::function<bool()> m_stopRequested;
    Logger m_log;

    std::string m_server; ///< the setting, as it stood
    std::shared_ptr<PersistentContainer> m_container;
    std::shared_ptr<ManagedObjectContext> m_context;
    std::string m_today; ///< the day the pass began
    bool m_refused = false;
    std::vector<std::string> m_redelivered; ///< lists that failed in an earlier pass and came in this one
    bool m_listsFailed = false;             ///< one of the attribute lists did not come whole
    bool m_notesFailed = false;             ///< what failed could not be noted
};

} // namespace ledgerfinch
