// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/SyncWithServerIntent.h"

#include "connection/ApiHandler.h"
#include "connection/Instances.h"
#include "sync/SyncPass.h"

#include <utility>
#include <variant>

namespace ledgerfinch {
namespace {

/// Why there is no handler.
Error reasonOf(const ApiHandler::Restored& restored) {
    if (const auto* secrets = std::get_if<ApiHandler::SecretsUnavailable>(&restored)) return {secrets->reason, 0};
    if (std::holds_alternative<ApiHandler::Refused>(restored))
        return {"The server didn't accept the stored token. Please log in again.", 401};
    return {"No token found", 0};
}

} // namespace

SyncWithServerIntent::SyncWithServerIntent(Services& services, CoreDataHandler& core,
                                           DocumentsOfSavedView documentsOfSavedView)
    : m_services(services), m_core(core), m_log(services.logger("SyncWithServerIntent")),
      m_downloads(services, core, std::move(documentsOfSavedView)) {}

SyncWithServerIntent::~SyncWithServerIntent() {
    stop();
}

Result<SyncResult> SyncWithServerIntent::perform(const std::optional<std::string>& server) {
    // Asked before a handler is made, since making one ends offline mode.
    if (m_services.defaults->boolean("offlineMode").value_or(false)) return SyncResult{SyncOutcome::Offline};
    const std::string active = m_services.defaults->string("server").value_or("");
    if (server && !addresses::same(*server, active)) return Error{*server + " is not the active server", 0};

    const auto stop = m_stops.next();
    auto restored = ApiHandler::restore(m_services, m_core, active, ApiHandler::Activation::Now, &stop->cancellation());
    if (std::holds_alternative<ApiHandler::Cancelled>(restored)) return SyncResult{SyncOutcome::Stopped};
    const auto* api = std::get_if<std::shared_ptr<ApiHandler>>(&restored);
    if (!api) {
        auto reason = reasonOf(restored);
        m_log.error("%{public}s", reason.message);
        return reason;
    }
    SyncHooks hooks;
    hooks.ended = [this, api] {
        const auto& defaults = *m_services.defaults;
        const bool wanted = defaults.boolean("download_all").value_or(false) ||
                            defaults.integer("download_saved_view").value_or(0) != 0;
        if (wanted) m_downloads.downloadSelectedDocuments(*api, {});
    };
    SyncPass pass(m_services, m_core, *api, SyncCaller::Intent, {}, std::move(hooks), stop);
    return pass.run({SyncExtent::WhatChanged, WhenBusy::Wait});
}

void SyncWithServerIntent::stop() {
    m_stops.stopForGood();
    m_downloads.stop();
}

} // namespace ledgerfinch
