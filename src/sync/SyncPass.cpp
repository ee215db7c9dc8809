// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/SyncPass.h"

#include "connection/Instances.h"
#include "connection/Status.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Documents.h"
#include "platform/Text.h"
#include "store/RepairList.h"
#include "store/StoreFolder.h"
#include "sync/SyncLock.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <string_view>
#include <utility>

namespace ledgerfinch {
namespace {

constexpr std::string_view kUnknownVersion = "1.0.0";
constexpr std::string_view kPartialSyncFrom = "1.14.5";
/// Before the number of a record in a decoder's path.
constexpr std::string_view kRecordInPath = "results[";
/// How long a pass waits for another one of the same store, and how often it looks whether that has ended.
constexpr std::chrono::minutes kLongestWait{10};
constexpr std::chrono::milliseconds kLookEvery{250};

/// Keeps the machine awake for as long as it lives.
class IdleTimerDisabled {
public:
    explicit IdleTimerDisabled(IdleInhibitor& idle) : m_idle(idle) { m_idle.setIdleTimerDisabled(true); }
    ~IdleTimerDisabled() { m_idle.setIdleTimerDisabled(false); }
    IdleTimerDisabled(const IdleTimerDisabled&) = delete;
    IdleTimerDisabled& operator=(const IdleTimerDisabled&) = delete;

private:
    IdleInhibitor& m_idle;
};

/// One list of attributes: asked for when the server is new enough.
struct AttributeStep {
    loadingData stage;
    std::string_view gate; ///< empty: every server has it
    int (*fetch)(ApiHandler&, const FetchOptions&);
    std::string_view done;
    std::string_view entity; ///< where documents can't be linked to its records later on
};

// Users refer to groups, and everything else to users.
constexpr std::array kAttributeSteps{
    AttributeStep{loadingData::users, "", fetchUsers, "Finished updating users", CD_User::kEntityName},
    AttributeStep{loadingData::tags, "", fetchTags, "Finished updating tags", ""},
    AttributeStep{loadingData::document_types, "", fetchDocumentTypes, "Finished updating document types", ""},
    AttributeStep{loadingData::correspondents, "", fetchCorrespondents, "Finished updating correspondents", ""},
    AttributeStep{loadingData::storage_paths, "1.8.0", fetchStoragePaths, "Finished updating storage paths", ""},
    AttributeStep{loadingData::custom_fields, "2.0.0", fetchCustomFields, "Finished updating custom fields",
                  CD_Custom_Field::kEntityName},
    AttributeStep{loadingData::custom_views, "", fetchSavedViews, "Finished updating custom views", ""},
};

} // namespace

SyncPass::SyncPass(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api, SyncCaller caller,
                   SyncObserver observer, SyncHooks hooks, std::shared_ptr<SyncStop> stop)
    : m_services(services), m_core(core), m_api(std::move(api)), m_caller(caller), m_observer(std::move(observer)),
      m_hooks(std::move(hooks)), m_stop(std::move(stop)),
      m_log(services.logger(caller == SyncCaller::Screen ? "DocumentsView" : "SyncWithServerIntent")) {}

SyncResult SyncPass::run(const SyncRequest& request) {
    const SyncResult result = runAwake(request);
    if (result.storeFailure && m_caller == SyncCaller::Screen)
        tell(additionalLoadingInfo::error("What the server has can't be kept on this device: " + *result.storeFailure));
    // Only now: whoever restores the login must not find the refused token again. A pass that stopped speaks of a
    // server that is no longer the active one.
    if (m_refused && result.outcome != SyncOutcome::Stopped) {
        if (m_observer.error) m_observer.error("The server didn't accept the stored token. Please log in again.");
        if (m_observer.loggedOut) m_observer.loggedOut();
    }
    if (m_observer.reloadList) m_observer.reloadList();
    return result;
}

SyncResult SyncPass::runAwake(const SyncRequest& request) {
    const IdleTimerDisabled awake(*m_services.idle);
    if (m_services.defaults->boolean("offlineMode").value_or(false)) return {SyncOutcome::Offline};
    if (!capture()) {
        m_log.info("Server and store have changed, not syncing");
        return {SyncOutcome::Stopped};
    }
    m_core.writeFailure().forget();
    const auto store = takeStore(request.whenBusy);
    if (const auto* without = std::get_if<SyncResult>(&store)) return *without;
    if (m_hooks.began) m_hooks.began();
    SyncResult result{runLocked(request.extent), m_core.writeFailure().reason()};
    result.status = m_status;
    result.anythingCame = m_anythingCame;
    if (result.storeFailure && m_caller == SyncCaller::Screen)
        tell(
            additionalLoadingInfo::error("What the server sent can't be kept on this device: " + *result.storeFailure));
    stage(loadingData::finished);
    const bool endedEarly =
        result.storeFailure || result.outcome == SyncOutcome::NoAnswer || result.outcome == SyncOutcome::Stopped;
    if (!endedEarly && m_hooks.ended) m_hooks.ended();
    return result;
}

std::variant<FileLock, SyncResult> SyncPass::takeStore(WhenBusy whenBusy) {
    const auto waitUntil = std::chrono::steady_clock::now() + kLongestWait;
    for (bool first = true;; first = false) {
        auto lock = SyncLock::tryLock(m_services.paths, m_container->file());
        if (lock) return std::move(lock).value();
        if (!SyncLock::isHeldElsewhere(lock.error())) {
            m_log.error("The store can't be locked for a sync: %{public}s", lock.error().message);
            return SyncResult{SyncOutcome::Incomplete, lock.error().message};
        }
        if (first) m_log.info("Another sync of this store is running");
        if (whenBusy == WhenBusy::GiveUp || std::chrono::steady_clock::now() >= waitUntil)
            return SyncResult{SyncOutcome::AlreadyRunning};
        if (m_stop->sleep(kLookEvery) || mustStop()) return SyncResult{SyncOutcome::Stopped};
    }
}

SyncOutcome SyncPass::runLocked(SyncExtent extent) {
    m_today = dates::formatDateOnly(m_services.clock->now());
    stage(loadingData::users); // groups come first under the text of the users
    const int groups = fetchList(fetchGroups, CD_Group::kEntityName);
    m_status = m_listStatus;
    if (m_caller == SyncCaller::Screen && groups == status::kNoAnswer) {
        m_log.error("Connection to server timed out. Skipping other tasks...");
        return SyncOutcome::NoAnswer;
    }
    m_refused = groups == 401;
    m_log.debug("Finished updating groups");
    if (!fetchAttributes()) return cutShort();

    stage(loadingData::documents);
    const int documents = fetchDocuments(extent);
    if (mustStop()) return cutShort();
    m_status = documents == 200 ? m_listStatus : documents;
    keepResult(documents == 200);
    m_log.debug("Finished updating documents");
    repair(documents);
    if (mustStop()) return cutShort();
    if (m_refused) return SyncOutcome::TokenRefused;
    return m_status == 200 ? SyncOutcome::Finished : SyncOutcome::Incomplete;
}

SyncOutcome SyncPass::cutShort() const {
    return m_core.writeFailure().reason() ? SyncOutcome::Incomplete : SyncOutcome::Stopped;
}

bool SyncPass::capture() {
    m_server = m_services.defaults->string("server").value_or("");
    m_container = m_core.persistenceContainer();
    m_context = m_core.backgroundContext();
    if (m_api->isInert() || !addresses::same(m_api->Server(), m_server)) return false;
    if (m_core.isOfflineStore() || &m_context->container() != m_container.get()) return false;
    // After a failed move the old store is still open: it must not take another server's documents.
    const auto instances = ConnectedInstances::load(*m_services.defaults);
    const auto* entry = instances.find(m_server);
    return !entry || m_core.storeName() == entry->second.store;
}

bool SyncPass::mustStop() const {
    return m_stop->isRequested() || m_core.writeFailure().reason() || m_core.persistenceContainer() != m_container ||
           !addresses::same(m_services.defaults->string("server").value_or(""), m_server);
}

FetchOptions SyncPass::options() {
    FetchOptions options;
    options.context = m_context;
    options.cancellation = &m_stop->cancellation();
    options.shouldStop = [this] {
        return mustStop();
    };
    if (m_caller == SyncCaller::Screen) {
        options.progress = [this](const additionalLoadingInfo& info) {
            // What an error means is known when the walk has ended, which is now.
            if (const auto* error = std::get_if<additionalLoadingInfo::Error>(&info.value))
                m_pageError = error->text;
            else
                tell(info);
        };
    }
    return options;
}

void SyncPass::tell(const additionalLoadingInfo& info) {
    if (std::holds_alternative<additionalLoadingInfo::Success>(info.value)) {
        ++m_pages;
        m_anythingCame = true;
    }
    if (m_observer.additionalInformation) m_observer.additionalInformation(info);
    if (m_observer.reloadList) m_observer.reloadList();
}

void SyncPass::tellPageError(int status) {
    const auto error = std::exchange(m_pageError, std::nullopt);
    if (!error || status::isEndedByCaller(status)) return;
    if (status != status::kUnreadable) return tell(additionalLoadingInfo::error(*error));
    // A decoder's path names the record: "results[3].title: ...".
    std::string place = "page " + std::to_string(m_pages + 1) + " of the list of documents";
    const auto record = error->find(kRecordInPath);
    if (record != std::string::npos) {
        const auto index = std::strtoull(error->c_str() + record + kRecordInPath.size(), nullptr, 10);
        place = "document " + std::to_string(index + 1) + " on " + place;
    }
    tell(additionalLoadingInfo::error("The server sent something that can't be read: " + place +
                                      ". What came before it is kept. Correct it on the server and sync again; the log "
                                      "tells what is wrong with it."));
}

bool SyncPass::fetchAttributes() {
    for (const AttributeStep& step : kAttributeSteps) {
        if (mustStop()) return false;
        if (!gateIsOpen(step.gate)) {
            noteDelivery(step.entity, false);
            continue;
        }
        stage(step.stage);
        fetchList(step.fetch, step.entity);
        m_log.debug(step.done);
    }
    return !mustStop();
}

int SyncPass::fetchList(int (*fetch)(ApiHandler&, const FetchOptions&), std::string_view entity) {
    auto quietly = options();
    quietly.progress = {};
    bool whole = true;
    quietly.incomplete = [&whole] {
        whole = false;
    };
    const int status = fetch(*m_api, quietly);
    // Some accounts may not list users and groups; that is no failure of the pass.
    if (status == 200) m_anythingCame = true;
    if (m_listStatus == 200 && status != 403 && !status::isEndedByCaller(status))
        m_listStatus = whole ? status : status::kUnreadable;
    // With a refused token no document comes either.
    if (!status::isEndedByCaller(status) && status != 401) noteDelivery(entity, status == 200 && whole);
    return status;
}

/// Documents lose what they refer to in a list that isn't there (an owner, permissions, field values), and a server
/// delivers them again only when they change. So the failure is remembered until the list has come, and from then on
/// that every document is to be asked for once more.
void SyncPass::noteDelivery(std::string_view entity, bool whole) {
    if (entity.empty()) return;
    RepairList list(m_core);
    const auto keep = [&](const Result<void>& changed) {
        if (changed) return;
        m_log.error("Couldn't note a repair: %{public}s", changed.error().message);
        m_notesFailed = true;
    };
    if (!whole) return keep(list.add(entity, RepairList::kListMissing, RepairList::kUnresolved, m_context));
    for (const auto& item : list.entries(RepairList::kUnresolved, m_context)) {
        if (item.kind != entity || item.id > RepairList::kListMissing) continue;
        m_redelivered.emplace_back(entity);
        if (item.id != RepairList::kListMissing) continue;
        keep(list.add(entity, RepairList::kListCame, RepairList::kUnresolved, m_context));
        keep(list.remove(entity, RepairList::kListMissing, RepairList::kUnresolved, m_context));
    }
}

/// After every document has come, with the lists in place.
void SyncPass::forgetUndelivered() {
    for (const auto& entity : std::exchange(m_redelivered, {}))
        if (const auto removed =
                RepairList(m_core).remove(entity, RepairList::kListCame, RepairList::kUnresolved, m_context);
            !removed)
            m_log.error("Couldn't note a repair: %{public}s", removed.error().message);
}

bool SyncPass::gateIsOpen(std::string_view gate) const {
    if (gate.empty()) return true;
    const std::string version = serverVersion();
    const bool takesUnknown = m_caller == SyncCaller::Screen && version == kUnknownVersion;
    return takesUnknown || text::compareNumeric(version, gate) >= 0;
}

int SyncPass::fetchDocuments(SyncExtent extent) {
    const int documents = fetchDocumentsFromServer(extent);
    tellPageError(documents);
    const bool saved = savePending();
    if (documents != 200) return documents;
    if (!saved || m_notesFailed) return status::kUnreadable;
    forgetUndelivered();
    return documents;
}

/// The older of the setting's and the server's own date; empty when either is. They differ when a switch of the server
/// was cut off between the two, and the former server's date would skip what changed here.
std::string SyncPass::lastSync() {
    const std::string setting = m_services.defaults->string("lastSuccessfulSync").value_or("");
    const auto instances = ConnectedInstances::load(*m_services.defaults);
    const auto* entry = instances.find(m_server);
    const std::string since = entry ? std::min(setting, entry->second.lastSuccessfulSync) : setting;
    if (since.empty()) return since;
    // A date without documents belongs to a store that was lost, and made anew as it was opened.
    const auto filled = hasDeliveredDocuments(*m_container);
    if (!filled || *filled) return since;
    m_log.info("The store holds no document though it was synced on %{public}s, fetching everything", since);
    forgetLastSync();
    return {};
}

/// For good, so that a pass that is cut off doesn't leave a half filled store behind that counts as synced.
void SyncPass::forgetLastSync() {
    auto& defaults = *m_services.defaults;
    if (const auto kept = updateInstance(defaults, m_server, std::string(), std::nullopt); !kept)
        m_log.error("The state of the instance could not be kept: %{public}s", kept.error().message);
    if (const auto kept = defaults.set("lastSuccessfulSync", ""); !kept)
        m_log.error("The date of the sync could not be kept: %{public}s", kept.error().message);
}

int SyncPass::fetchDocumentsFromServer(SyncExtent extent) {
    const std::string since = lastSync();
    const bool partial = text::compareNumeric(serverVersion(), kPartialSyncFrom) >= 0 && dates::parseDateOnly(since);
    if (!partial || !m_redelivered.empty() || extent == SyncExtent::Everything) {
        m_log.debug("Doing full sync...");
        return fetchAllDocuments(*m_api, options());
    }
    m_log.debug("Doing partial sync...");
    const int changed = fetchChangedDocuments(*m_api, since, options());
    tellPageError(changed);
    m_pages = 0;
    // Nothing is removed on the word of a server whose last answer made no sense.
    if (changed != 200 || mustStop()) return changed;
    return removeOutdatedDocuments(*m_api, options());
}

/// What an earlier save could not write is still pending. Dropped if it still can't be written: the unchanged date
/// makes the next pass fetch it again.
bool SyncPass::savePending() {
    bool saved = true;
    m_context->performAndWait([&] {
        if (!m_context->hasChanges() || m_context->save().ok()) return;
        m_context->rollback();
        saved = false;
    });
    if (!saved) m_log.error("Some of what the server delivered could not be saved");
    return saved;
}

void SyncPass::repair(int documentStatus) {
    m_core.resolveUnresolved(m_context);
    if (documentStatus == status::kNoAnswer || m_refused || mustStop()) return;
    auto quietly = options();
    quietly.progress = {};
    runRepairs(*m_api, quietly);
    savePending();
}

void SyncPass::keepResult(bool whole) {
    auto& defaults = *m_services.defaults;
    const std::string version = defaults.string("server_version").value_or("");
    const auto date = whole ? std::optional(m_today) : std::nullopt;
    if (const auto kept =
            updateInstance(defaults, m_server, date, version.empty() ? std::nullopt : std::optional(version));
        !kept)
        m_log.error("The state of the instance could not be kept: %{public}s", kept.error().message);
    if (!whole) return;
    if (const auto kept = defaults.set("lastSuccessfulSync", m_today); !kept)
        m_log.error("The date of the sync could not be kept: %{public}s", kept.error().message);
    // The setting belongs to the active server. When that changed between the question and the write, its date goes
    // back.
    const std::string active = defaults.string("server").value_or("");
    if (addresses::same(active, m_server)) return;
    const auto instances = ConnectedInstances::load(defaults);
    const auto* entry = instances.find(active);
    (void)defaults.set("lastSuccessfulSync", entry ? entry->second.lastSuccessfulSync : std::string());
}

void SyncPass::stage(loadingData stage) const {
    if (m_caller == SyncCaller::Screen && m_observer.stage) m_observer.stage(stage);
}

std::string SyncPass::serverVersion() const {
    auto version = m_services.defaults->string("server_version").value_or("");
    return version.empty() ? std::string(kUnknownVersion) : version;
}

} // namespace ledgerfinch
