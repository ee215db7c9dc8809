// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/SyncDriver.h"

#include "sync/SyncPass.h"

#include <utility>

namespace ledgerfinch {

SyncDriver::SyncDriver(Services& services, CoreDataHandler& core, DocumentsOfSavedView documentsOfSavedView)
    : m_services(services), m_core(core), m_downloads(services, core, std::move(documentsOfSavedView)) {}

SyncDriver::~SyncDriver() {
    stop();
}

SyncResult SyncDriver::runSync(const std::shared_ptr<ApiHandler>& api, const SyncObserver& observer,
                               const SyncRequest& request) {
    SyncHooks hooks;
    // The files of the last pass give way; the end of this one starts them again.
    hooks.began = [this] {
        m_downloads.cancel();
    };
    hooks.ended = [this, &api, &observer] {
        m_downloads.downloadSelectedDocuments(api, observer);
    };
    SyncPass pass(m_services, m_core, api, SyncCaller::Screen, observer, std::move(hooks), m_stops.next());
    return pass.run(request);
}

void SyncDriver::stop() {
    m_stops.stopForGood();
    m_downloads.stop();
}

void SyncDriver::cancelPass() {
    m_stops.stopCurrent();
}

} // namespace ledgerfinch
