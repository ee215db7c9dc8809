// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/DownloadSettingsView.h"

#include "platform/Text.h"

#include <QVariantMap>

#include <utility>
#include <variant>

namespace ledgerfinch {
namespace {

QVariantMap row(const QString& header, const QString& title, qint64 savedView, bool active) {
    return {{QStringLiteral("header"), header},
            {QStringLiteral("title"), title},
            {QStringLiteral("savedView"), savedView},
            {QStringLiteral("active"), active}};
}

} // namespace

DownloadSettingsView::DownloadSettingsView(Services& services, CoreDataHandler& core, std::shared_ptr<ApiHandler> api,
                                           DocumentDownloads& downloads, QObject* parent)
    : DownloadSettingsView(services, core, HandlerOfTheMoment([api = std::move(api)] { return api; }), downloads,
                           parent) {}

DownloadSettingsView::DownloadSettingsView(Services& services, CoreDataHandler& core, HandlerOfTheMoment api,
                                           DocumentDownloads& downloads, QObject* parent)
    : QObject(parent), m_services(services), m_core(core), m_api(std::move(api)), m_downloads(downloads),
      m_log(services.logger("DownloadSettingsView")), m_link(std::make_shared<ScreenLink>(*this)) {}

DownloadSettingsView::~DownloadSettingsView() {
    m_link->close();
}

void DownloadSettingsView::appeared() {
    readRows();
    countFiles();
}

void DownloadSettingsView::chooseAllDocuments() {
    choose(true, 0);
}

void DownloadSettingsView::chooseSavedView(qint64 id) {
    choose(false, id);
}

void DownloadSettingsView::choose(bool all, std::int64_t savedView) {
    auto& defaults = *m_services.defaults;
    for (const auto& stored : {defaults.set("download_saved_view", savedView), defaults.set("download_all", all)})
        if (!stored) m_log.error("The choice could not be kept: %{public}s", stored.error().message);
    readRows();
    startDownloads();
}

void DownloadSettingsView::readRows() {
    const bool all = m_services.defaults->boolean("download_all").value_or(false);
    const std::int64_t chosen = m_services.defaults->integer("download_saved_view").value_or(0);
    m_rows = {row({}, QStringLiteral("Download all documents"), 0, all)};
    QString header = QStringLiteral("Download all documents in saved view: ");
    for (const auto& view : m_core.getSavedViews()) {
        const QString title = QString::fromStdString(view->name().value_or("Unnamed saved view"));
        m_rows.append(row(std::exchange(header, {}), title, view->id(), !all && view->id() == chosen));
    }
    emit rowsChanged();
}

void DownloadSettingsView::startDownloads() {
    const auto api = m_api();
    if (m_services.defaults->boolean("offlineMode").value_or(false) || !api || api->isInert()) return;
    SyncObserver observer;
    observer.additionalInformation = [link = m_link, this](const additionalLoadingInfo& information) {
        const auto* success = std::get_if<additionalLoadingInfo::Success>(&information.value);
        link->post([this, text = success ? QString::fromStdString(success->text) : QString()] {
            m_progressText = text;
            emit progressChanged();
        });
    };
    observer.stage = [link = m_link, this](loadingData stage) {
        if (stage != loadingData::finished) return;
        link->post([this] {
            m_progressText.clear();
            emit progressChanged();
            countFiles();
            emit downloadsFinished();
        });
    };
    m_downloads.downloadSelectedDocuments(api, std::move(observer));
}

void DownloadSettingsView::countFiles() {
    m_files.async([this] {
        const auto statistics = m_core.documentFiles().downloadedFileStatistics();
        m_link->post([this, statistics] {
            m_documentsDownloaded = QStringLiteral("Documents downloaded: ") + QString::number(statistics.files);
            m_totalSize =
                QStringLiteral("Total size: ") + QString::fromStdString(text::formatByteCount(statistics.bytes));
            emit statisticsChanged();
        });
    });
}

void DownloadSettingsView::removeAllDownloads() {
    m_downloads.removeAllDownloads([link = m_link, this] { link->post([this] { countFiles(); }); });
}

bool DownloadSettingsView::downloadOriginalFiles() const {
    return m_services.defaults->boolean("downloadOriginalFiles").value_or(false);
}

void DownloadSettingsView::setDownloadOriginalFiles(bool originals) {
    if (downloadOriginalFiles() == originals) return;
    if (const auto stored = m_services.defaults->set("downloadOriginalFiles", originals); !stored)
        m_log.error("The choice could not be kept: %{public}s", stored.error().message);
    emit downloadOriginalFilesChanged();
}

QString DownloadSettingsView::originalFilesTitle() const {
    return QStringLiteral("Download Original Files Instead of Archive Version");
}

QString DownloadSettingsView::removeAllTitle() const {
    return QStringLiteral("Remove all downloaded documents");
}

QString DownloadSettingsView::removeAllQuestion() const {
    return QStringLiteral("Do you really want to delete all downloaded documents?");
}

} // namespace ledgerfinch
