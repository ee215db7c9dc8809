// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "browse/ScreenLink.h"
#include "connection/ApiHandler.h"
#include "platform/DispatchQueue.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "sync/DocumentDownloads.h"

#include <QObject>
#include <QString>
#include <QVariantList>

#include <cstdint>
#include <functional>
#include <memory>

namespace ledgerfinch {

/// Which documents' files are kept on this device. A choice is acted on at once. Lives on the main thread.
class DownloadSettingsView : public QObject {
    Q_OBJECT
    /// Rows in order: maps with "title", "header" (of the group the row begins, or empty), "savedView" (id, 0 for the
    /// row of all documents) and "active" (bears the check mark).
    Q_PROPERTY(QVariantList rows READ rows NOTIFY rowsChanged)
    Q_PROPERTY(bool downloadOriginalFiles READ downloadOriginalFiles WRITE setDownloadOriginalFiles NOTIFY
                   downloadOriginalFilesChanged)
    Q_PROPERTY(QString originalFilesTitle READ originalFilesTitle CONSTANT)
    /// Two lines, empty until the files were counted.
    Q_PROPERTY(QString documentsDownloaded READ documentsDownloaded NOTIFY statisticsChanged)
    Q_PROPERTY(QString totalSize READ totalSize NOTIFY statisticsChanged)
    Q_PROPERTY(QString removeAllTitle READ removeAllTitle CONSTANT)
    Q_PROPERTY(QString removeAllQuestion READ removeAllQuestion CONSTANT)
    Q_PROPERTY(QString progressText READ progressText NOTIFY progressChanged)

public:
    /// Gives the active server's handler of the moment; on the main thread.
    using HandlerOfTheMoment = std::function<std::shared_ptr<ApiHandler>()>;

    /// `downloads` is the one that syncs use, so that a new choice takes the place of a run under way. The server may
    /// change while the screen is open: the handler is asked for whenever one is needed.
    DownloadSettingsView(Services& services, CoreDataHandler& core, HandlerOfTheMoment api,
                         DocumentDownloads& downloads, QObject* parent = nullptr);
    /// For a server that doesn't change; nothing is downloaded when it does.
    DownloadSettingsView(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api,
                         DocumentDownloads& downloads, QObject* parent = nullptr);
    ~DownloadSettingsView() override;

    /// Reads the saved views and counts the files anew.
    Q_INVOKABLE void appeared();
    Q_INVOKABLE void chooseAllDocuments();
    Q_INVOKABLE void chooseSavedView(qint64 id);
    /// After the person answered the question with yes.
    Q_INVOKABLE void removeAllDownloads();

    [[nodiscard]] QVariantList rows() const { return m_rows; }
    [[nodiscard]] bool downloadOriginalFiles() const;
    void setDownloadOriginalFiles(bool originals);
    [[nodiscard]] QString originalFilesTitle() const;
    [[nodiscard]] QString documentsDownloaded() const { return m_documentsDownloaded; }
    [[nodiscard]] QString totalSize() const { return m_totalSize; }
    [[nodiscard]] QString removeAllTitle() const;
    [[nodiscard]] QString removeAllQuestion() const;
    [[nodiscard]] QString progressText() const { return m_progressText; }

signals:
    void rowsChanged();
    void downloadOriginalFilesChanged();
    void statisticsChanged();
    void progressChanged();
    /// The run that a choice began has ended.
    void downloadsFinished();

private:
    void choose(bool all, std::int64_t savedView);
    void readRows();
    void countFiles();
    void startDownloads();

    Services& m_services;
    CoreDataHandler& m_core;
    HandlerOfTheMoment m_api;
    DocumentDownloads& m_downloads;
    Logger m_log;
    std::shared_ptr<ScreenLink> m_link;

    QVariantList m_rows;
    QString m_documentsDownloaded;
    QString m_totalSize;
    QString m_progressText;
    DispatchQueue m_files{"downloadedFiles"}; ///< counts
};

} // namespace ledgerfinch
