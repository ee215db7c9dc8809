// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"

#include <QFileSystemWatcher>
#include <QObject>
#include <QTimer>

#include <functional>
#include <memory>

namespace ledgerfinch {

/// Notices that another process wrote to a store: looks when the store's log file changes, and once more shortly after,
/// since a burst of writes is one look. Main thread.
class StoreWatcher : public QObject {
    Q_OBJECT

public:
    /// `changed` is called on the thread that noticed.
    StoreWatcher(std::shared_ptr<PersistentContainer> container, std::function<void()> changed);

private:
    void watchLogFile();

    std::shared_ptr<PersistentContainer> m_container;
    QString m_logFile;
    QFileSystemWatcher m_files;
    QTimer m_settled;
    Subscription m_subscription;
};

} // namespace ledgerfinch
