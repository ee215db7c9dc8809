// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/RemoveInstance.h"

#include "connection/CustomHeaders.h"
#include "connection/KeychainHandler.h"
#include "shell/Settings.h"

#include <string>

namespace ledgerfinch {

namespace {

/// No write where there is nothing to write.
Result<void> forgetHeaders(UserDefaults& defaults, const std::string& address) {
    const auto all = AllCustomHeaders::load(defaults);
    for (const auto& form : {address, addresses::otherForm(address)})
        if (all.headers.contains(form) || all.unreadable.contains(form)) return removeCustomHeaders(defaults, address);
    return {};
}

Result<void> forgetSettings(UserDefaults& defaults, const std::string& address, RemovedInstance& removed) {
    if (auto done = forgetHeaders(defaults, address); !done) return done;
    for (const auto& form : {address, addresses::otherForm(address)})
        if (auto done = defaults.remove(settings::currentUserIdKey(form)); !done) return done;
    return changeInstances(defaults, [&](ConnectedInstances& all) {
        if (const auto* entry = all.find(address)) {
            removed.entry = entry->second;
            removed.ownedStore = all.ownsStore(entry->first, entry->second);
        }
        for (const auto& form : {address, addresses::otherForm(address)})
            all.instances.erase(form);
    });
}

} // namespace

RemovedInstance removeInstance(Services& services, std::string_view given) {
    const std::string address(given);
    RemovedInstance removed;
    // A token that nobody knows of any more would be the worst leftover, so it goes first.
    if (const auto done = KeychainHandler(services).deleteToken(address); !done)
        removed.error = ApiError::secretsNotRemoved(done.error().message);
    else if (const auto forgotten = forgetSettings(*services.defaults, address, removed); !forgotten)
        removed.error = ApiError::settingsUnwritable(forgotten.error().message);
    return removed;
}

std::optional<ApiError> logOut(Services& services) {
    auto& defaults = *services.defaults;
    if (const auto done = KeychainHandler(services).deleteToken(defaults.string("server").value_or("")); !done)
        return ApiError::secretsNotRemoved(done.error().message);
    if (!defaults.boolean("biometricUnlock").value_or(false)) return std::nullopt;
    if (const auto done = defaults.set("biometricUnlock", false); !done)
        return ApiError::settingsUnwritable(done.error().message);
    return std::nullopt;
}

} // namespace ledgerfinch
