// SPDX-License-Identifier: GPL-3.0-or-later
#include "browse/DocumentsView.h"

#include "browse/StoreWatcher.h"
#include "connection/InstanceSwitch.h"
#include "connection/Instances.h"

#include <utility>
#include <variant>

namespace ledgerfinch {
namespace {

/// What the list is sorted by until the person says otherwise. A key that is no attribute of a document falls back to
/// "created".
FetchRequest defaultRequest(const UserDefaults& defaults, const Model& model) {
    auto key = defaults.string("defaultOrderByKey").value_or("created");
    if (!model.entity(CD_Document::kEntityName).attribute(key)) key = "created";
    const bool ascending = defaults.boolean("defaultOrderAscending").value_or(false);
    FetchRequest request;
    request.entity = CD_Document::kEntityName;
    request.sort = {{key, ascending ? SortOrder::Ascending : SortOrder::Descending}};
    return request;
}

} // namespace

DocumentsView::DocumentsView(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api,
                             DocumentsOfSavedView documentsOfSavedView, QObject* parent)
    : QObject(parent), m_services(services), m_core(core), m_log(services.logger("DocumentsView")),
      m_link(std::make_shared<ScreenLink>(*this)), m_apiHandler(std::move(api)),
      m_activeServer(services.defaults->string("server").value_or("")),
      m_driver(services, core, std::move(documentsOfSavedView)) {
    watchStore();
    m_settings = m_services.defaults->onChange([this, link = m_link](std::string_view key) {
        if (key == "server") link->post([this] { serverChanged(); });
    });
}

DocumentsView::~DocumentsView() {
    m_link->close();
    m_driver.stop(); // the queues join as they go
}

void DocumentsView::appeared() {
    reloadList();
    if (m_services.defaults->boolean("offlineMode").value_or(false) || !m_justLaunched) return;
    if (!m_services.defaults->boolean("skipSyncOnStartup").value_or(false)) queueSync();
    setJustLaunched(false);
}

void DocumentsView::setRefreshNow(bool refresh) {
    if (m_refreshNow == refresh) return;
    m_refreshNow = refresh;
    emit refreshNowChanged();
    if (!refresh) return;
    m_queue.async([this] {
        m_log.debug("Starting refresh");
        runSync();
        onMain([this] { setRefreshNow(false); });
    });
}

// The sync.

void DocumentsView::queueSync() {
    m_queue.async([this] { runSync(); });
}

void DocumentsView::runSync() {
    // What brought this pass about may be younger than one that another process is making.
    const SyncOutcome outcome = m_driver.runSync(apiHandler(), observer(), {SyncExtent::WhatChanged, WhenBusy::Wait});
    onMain([this, outcome] { emit syncEnded(outcome); });
}

SyncObserver DocumentsView::observer() {
    SyncObserver observer;
    observer.stage = [this](loadingData stage) {
        onMain([this, stage] {
            m_loadingFromServer = stage;
            emit loadingFromServerChanged();
        });
    };
    observer.additionalInformation = [this](const additionalLoadingInfo& information) {
        onMain([this, information] {
            m_loadingFromServerAdditionalInformation = information;
            emit additionalInformationChanged();
        });
    };
    observer.error = [this](const std::string& text) {
        onMain([this, text] {
            m_error = QString::fromStdString(text);
            emit errorChanged();
        });
    };
    observer.loggedOut = [this] {
        onMain([this] { setLoggedIn(false); });
    };
    observer.reloadList = [this] {
        reloadList();
    };
    return observer;
}

// The list.

void DocumentsView::reloadList() {
    if (m_reloadQueued.exchange(true)) return;
    m_listQueue.async([this] { readList(); });
}

void DocumentsView::readList() {
    m_reloadQueued = false; // whoever asks from here on may have saved something that this reading misses
    const auto container = m_core.persistenceContainer();
    auto found = container->fetchIDs(defaultRequest(*m_services.defaults, container->model()));
    if (!found) {
        m_log.error("The list could not be read: %{public}s", found.error().message);
        return;
    }
    auto documents = std::make_shared<std::vector<ObjectID>>(std::move(found).value());
    onMain([this, container, documents] { showList(container, std::move(*documents)); });
}

void DocumentsView::showList(const std::shared_ptr<PersistentContainer>& container, std::vector<ObjectID> documents) {
    if (container != m_core.persistenceContainer()) return; // read before the store changed over
    m_documents = std::move(documents);
    emit listReloaded();
}

void DocumentsView::clearList() {
    m_documents.clear();
    emit listReloaded();
}

void DocumentsView::watchStore() {
    m_watcher = std::make_unique<StoreWatcher>(m_core.persistenceContainer(), [this, link = m_link] {
        link->post([this] { reloadList(); }); // whoever noticed goes on
    });
}

// The server.

void DocumentsView::switchToInstance(const QString& address) {
    // The switch may end after the screen is gone.
    InstanceSwitchSteps steps;
    steps.clearList = [this, link = m_link] {
        link->run([this] { clearList(); });
    };
    steps.useHandler = [this, link = m_link](const std::shared_ptr<ApiHandler>& api) {
        link->run([&] {
            m_activeServer = m_services.defaults->string("server").value_or("");
            m_driver.cancelPass(); // the new server's pass doesn't wait for an answer of the old one
            watchStore();
            setApiHandler(api);
        });
    };
    steps.setLoggedIn = [this, link = m_link](bool in) {
        link->run([&] { setLoggedIn(in); });
    };
    steps.refreshAndSync = [this, link = m_link] {
        link->run([this] {
            reloadList();
            queueSync();
        });
    };
    steps.finished = [this, link = m_link](bool made) {
        link->run([&] {
            if (!made) reloadList(); // of the store that stays
            emit instanceSwitched(made);
        });
    };
    switchInstance(m_services, m_core, m_switchQueue, address.toStdString(), std::move(steps));
}

/// The setting changed. A switch of this screen's own has been followed already.
void DocumentsView::serverChanged() {
    const std::string server = m_services.defaults->string("server").value_or("");
    if (addresses::same(server, std::exchange(m_activeServer, server))) return;
    // In offline mode somebody is trying to log in; the store changes over when that is done.
    if (m_services.defaults->boolean("offlineMode").value_or(false)) return;
    if (!ConnectedInstances::load(*m_services.defaults).find(server)) return;
    m_switchQueue.async([this, server] {
        auto restored = ApiHandler::restore(m_services, m_core, server);
        if (const auto* api = std::get_if<std::shared_ptr<ApiHandler>>(&restored))
            onMain([this, server, api = *api] { followServer(server, api); });
    });
}

void DocumentsView::followServer(const std::string& address, const std::shared_ptr<ApiHandler>& api) {
    const auto instances = ConnectedInstances::load(*m_services.defaults);
    const auto* entry = instances.find(address);
    if (!entry || m_services.defaults->string("server").value_or("") != address) return; // changed once more
    if (m_core.storeName() != entry->second.store) {
        if (const auto moved = m_core.moveToStore(entry->second.store); !moved) {
            m_log.error("The store could not be opened: %{public}s", moved.error().message);
            return;
        }
    }
    m_driver.cancelPass();
    watchStore();
    setApiHandler(api);
    clearList();
    reloadList();
    queueSync();
}

// State.

QString DocumentsView::loadingText() const {
    const auto text = stageText(m_loadingFromServer);
    return QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size()));
}

QString DocumentsView::additionalText() const {
    const auto& value = m_loadingFromServerAdditionalInformation.value;
    if (const auto* success = std::get_if<additionalLoadingInfo::Success>(&value))
        return QString::fromStdString(success->text);
    if (const auto* error = std::get_if<additionalLoadingInfo::Error>(&value))
        return QString::fromStdString(error->text);
    return {};
}

bool DocumentsView::additionalTextIsError() const {
    return std::holds_alternative<additionalLoadingInfo::Error>(m_loadingFromServerAdditionalInformation.value);
}

void DocumentsView::setJustLaunched(bool launched) {
    if (m_justLaunched == launched) return;
    m_justLaunched = launched;
    emit justLaunchedChanged();
}

void DocumentsView::setLoggedIn(bool in) {
    if (m_loggedIn == in) return;
    m_loggedIn = in;
    emit loggedInChanged();
}

std::shared_ptr<ApiHandler> DocumentsView::apiHandler() const {
    const std::lock_guard lock(m_apiMutex);
    return m_apiHandler;
}

void DocumentsView::setApiHandler(std::shared_ptr<ApiHandler> api) {
    {
        const std::lock_guard lock(m_apiMutex);
        m_apiHandler = std::move(api);
    }
    emit apiHandlerChanged();
}

} // namespace ledgerfinch
