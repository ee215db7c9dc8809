// SPDX-License-Identifier: GPL-3.0-or-later
#include "browse/StoreWatcher.h"

#include <QFileInfo>

#include <chrono>
#include <utility>

namespace ledgerfinch {

StoreWatcher::StoreWatcher(std::shared_ptr<PersistentContainer> container, std::function<void()> changed)
    : m_container(std::move(container)), m_logFile(QString::fromStdString(m_container->file().string() + "-wal")),
      m_subscription(m_container->onRemoteChange(std::move(changed))) {
    m_settled.setSingleShot(true);
    m_settled.setInterval(std::chrono::milliseconds(200));
    connect(&m_settled, &QTimer::timeout, this, [this] {
        watchLogFile();
        m_container->processRemoteChanges();
    });
    const auto look = [this] {
        if (!m_settled.isActive()) m_settled.start();
    };
    connect(&m_files, &QFileSystemWatcher::fileChanged, this, look);
    // The log file comes and goes with the connections of all processes.
    connect(&m_files, &QFileSystemWatcher::directoryChanged, this, look);
    m_files.addPath(QFileInfo(m_logFile).absolutePath());
    watchLogFile();
}

void StoreWatcher::watchLogFile() {
    if (!m_files.files().contains(m_logFile) && QFileInfo::exists(m_logFile)) m_files.addPath(m_logFile);
}

} // namespace ledgerfinch
