// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "browse/ScreenLink.h"
#include "connection/ApiHandler.h"
#include "objectstore/ObjectID.h"
#include "platform/DispatchQueue.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/SyncDriver.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace ledgerfinch {

class StoreWatcher;

/// The list of documents: its sync, what triggers it, and the change of the server. Lives on the main thread; whatever
/// blocks runs on queues of its own, and its results arrive by queued signals.
class DocumentsView : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool loading READ loading NOTIFY loadingFromServerChanged)
    Q_PROPERTY(QString loadingText READ loadingText NOTIFY loadingFromServerChanged)
    Q_PROPERTY(QString additionalText READ additionalText NOTIFY additionalInformationChanged)
    Q_PROPERTY(bool additionalTextIsError READ additionalTextIsError NOTIFY additionalInformationChanged)
    Q_PROPERTY(bool refreshNow READ refreshNow WRITE setRefreshNow NOTIFY refreshNowChanged)
    Q_PROPERTY(bool justLaunched READ justLaunched WRITE setJustLaunched NOTIFY justLaunchedChanged)
    Q_PROPERTY(bool loggedIn READ loggedIn WRITE setLoggedIn NOTIFY loggedInChanged)
    Q_PROPERTY(QString error READ error NOTIFY errorChanged)
    Q_PROPERTY(int count READ count NOTIFY listReloaded)

public:
    /// The handler is the active server's; an inert one in offline mode.
    DocumentsView(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api,
                  DocumentsOfSavedView documentsOfSavedView = {}, QObject* parent = nullptr);
    /// Ends what is under way and waits for it.
    ~DocumentsView() override;

    /// The screen is shown: reads the list and, once after a start, syncs.
    Q_INVOKABLE void appeared();
    /// Reads the list again from what is saved, without waiting. Any thread; calls that come faster than the list can
    /// be read become one.
    void reloadList();
    /// Makes a connected server the active one: its token is tried, then store, settings and list change over and a
    /// sync begins. Nothing happens for an unknown server, without a token, or when the server refuses it.
    Q_INVOKABLE void switchToInstance(const QString& address);

    [[nodiscard]] loadingData loadingFromServer() const { return m_loadingFromServer; }
    [[nodiscard]] const additionalLoadingInfo& loadingFromServerAdditionalInformation() const {
        return m_loadingFromServerAdditionalInformation;
    }
    /// Something to show an indicator for.
    [[nodiscard]] bool loading() const { return m_loadingFromServer != loadingData::finished; }
    [[nodiscard]] QString loadingText() const;
    [[nodiscard]] QString additionalText() const;
    [[nodiscard]] bool additionalTextIsError() const;
    [[nodiscard]] bool refreshNow() const { return m_refreshNow; }
    /// True queues a sync; false again when it has ended.
    void setRefreshNow(bool refresh);
    [[nodiscard]] bool justLaunched() const { return m_justLaunched; }
    void setJustLaunched(bool launched);
    [[nodiscard]] bool loggedIn() const { return m_loggedIn; }
    void setLoggedIn(bool in);
    [[nodiscard]] const QString& error() const { return m_error; }

    /// The documents on screen, in order.
    [[nodiscard]] const std::vector<ObjectID>& documents() const { return m_documents; }
    [[nodiscard]] int count() const { return static_cast<int>(m_documents.size()); }

    /// Any thread.
    [[nodiscard]] std::shared_ptr<ApiHandler> apiHandler() const;
    void setApiHandler(std::shared_ptr<ApiHandler> api);
    [[nodiscard]] DocumentDownloads& downloads() { return m_driver.downloads(); }

signals:
    void loadingFromServerChanged();
    void additionalInformationChanged();
    void refreshNowChanged();
    void justLaunchedChanged();
    void loggedInChanged();
    void errorChanged();
    void listReloaded();
    void apiHandlerChanged();
    /// A call of switchToInstance has ended; false: everything is as before.
    void instanceSwitched(bool made);
    /// A pass has ended, in whatever way.
    void syncEnded(ledgerfinch::SyncOutcome outcome);

private:
    void queueSync();
    void runSync();
    [[nodiscard]] SyncObserver observer();
    void readList();
    void showList(const std::shared_ptr<PersistentContainer>& container, std::vector<ObjectID> documents);
    void clearList();
    void watchStore();
    void serverChanged();
    void followServer(const std::string& address, const std::shared_ptr<ApiHandler>& api);
    /// Queued on the main thread, unless the screen is gone by then.
    void onMain(std::function<void()> block) { m_link->post(std::move(block)); }

    Services& m_services;
    CoreDataHandler& m_core;
    Logger m_log;
    std::shared_ptr<ScreenLink> m_link;

    loadingData m_loadingFromServer = loadingData::finished;
    additionalLoadingInfo m_loadingFromServerAdditionalInformation;
    bool m_refreshNow = false;
    bool m_justLaunched = true;
    bool m_loggedIn = true;
    QString m_error;
    std::vector<ObjectID> m_documents;

    mutable std::mutex m_apiMutex;
    std::shared_ptr<ApiHandler> m_apiHandler;
    std::string m_activeServer; ///< the setting as this screen has followed it
    std::atomic<bool> m_reloadQueued{false};
    std::unique_ptr<StoreWatcher> m_watcher;
    SyncDriver m_driver;
    // Joined before anything they use goes.
    DispatchQueue m_listQueue{"reloadList"};
    DispatchQueue m_switchQueue{"switchInstance"};
    DispatchQueue m_queue{"updateData"};
    Subscription m_settings;
};

} // namespace ledgerfinch
