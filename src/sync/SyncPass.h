// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "objectstore/PersistentContainer.h"
#include "platform/FileSystem.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/SyncObserver.h"
#include "sync/SyncResult.h"
#include "sync/SyncStop.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
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
    /// The handler must be the one of the active server.
    SyncPass(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api, SyncCaller caller,
             SyncObserver observer, SyncHooks hooks, std::shared_ptr<SyncStop> stop);

    SyncResult run(const SyncRequest& request = {});

private:
    SyncResult runAwake(const SyncRequest& request);
    /// The store's lock; or how the pass ends without it.
    std::variant<FileLock, SyncResult> takeStore(WhenBusy whenBusy);
    SyncOutcome runLocked(SyncExtent extent);
    /// The outcome of a pass that doesn't reach its end.
    [[nodiscard]] SyncOutcome cutShort() const;
    /// False when handler, setting and store don't belong together (any more).
    bool capture();
    [[nodiscard]] bool mustStop() const;
    [[nodiscard]] FetchOptions options();

    /// False when the pass has to stop.
    bool fetchAttributes();
    /// Fetches one list; `entity` names it where documents refer to its records and can't be linked later.
    int fetchList(int (*fetch)(ApiHandler&, const FetchOptions&), std::string_view entity);
    void noteDelivery(std::string_view entity, bool whole);
    void forgetUndelivered();
    [[nodiscard]] bool gateIsOpen(std::string_view gate) const;
    /// The status of the documents: 200 only when they came whole and are saved.
    int fetchDocuments(SyncExtent extent);
    int fetchDocumentsFromServer(SyncExtent extent);
    void tell(const additionalLoadingInfo& info);
    /// What kept a page from being read, as a sentence for the person.
    void tellPageError(int status);
    /// The day from which changes are asked for; empty for everything.
    [[nodiscard]] std::string lastSync();
    void forgetLastSync();
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
    std::shared_ptr<SyncStop> m_stop;
    Logger m_log;

    std::string m_server; ///< the setting, as it stood
    std::shared_ptr<PersistentContainer> m_container;
    std::shared_ptr<ManagedObjectContext> m_context;
    std::string m_today; ///< the day the pass began
    bool m_refused = false;
    std::vector<std::string> m_redelivered; ///< lists that failed in an earlier pass and came in this one
    int m_listStatus = 200;                 ///< of the first attribute list that did not come whole
    int m_status = 200;                     ///< for the result
    bool m_anythingCame = false;
    bool m_notesFailed = false;             ///< what failed could not be noted
    std::size_t m_pages = 0;                ///< of documents, merged
    std::optional<std::string> m_pageError; ///< of the page that ended the walk
};

} // namespace ledgerfinch
