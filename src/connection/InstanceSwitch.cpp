// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/InstanceSwitch.h"

#include "connection/SettingsChange.h"
#include "connection/Status.h"
#include "platform/DispatchQueue.h"
#include "store/CoreDataHandler.h"

#include <atomic>
#include <cstdint>
#include <variant>

namespace ledgerfinch {

namespace {

/// Counts the choices: a switch that isn't the latest any more changes nothing.
std::atomic<std::uint64_t>& latestChoice() {
    static std::atomic<std::uint64_t> number{0};
    return number;
}

void tell(const InstanceSwitchSteps& steps, const ApiError& failure) {
    if (steps.tell) steps.tell(failure.localizedDescription());
}

bool makeSwitch(Services& services, CoreDataHandler& core, const std::string& address, const Instance& instance,
                const std::shared_ptr<ApiHandler>& handler, const InstanceSwitchSteps& steps) {
    auto& defaults = *services.defaults;
    // Another store than the server's own would be emptied by its first sync.
    if (!ConnectedInstances::load(defaults).ownsStore(address, instance)) {
        tell(steps, ApiError::storeUnavailable("it isn't this server's own"));
        return false;
    }
    const auto oldStore = core.storeName();
    if (steps.clearList) steps.clearList();
    SettingsChange settings(defaults);
    settings.set("server", address);
    settings.set("server_version", versionSetting(instance));
    if (settings.failure()) {
        tell(steps, ApiError::settingsUnwritable(settings.failure()->message));
        return false;
    }
    if (const auto moved = core.moveToStore(instance.store); !moved) {
        tell(steps, ApiError::storeUnavailable(moved.error().message));
        return false;
    }
    settings.set("offlineMode", false);
    if (settings.failure()) {
        (void)core.moveToStore(oldStore);
        tell(steps, ApiError::settingsUnwritable(settings.failure()->message));
        return false;
    }
    settings.keep();
    if (steps.useHandler) steps.useHandler(handler);
    adoptInstanceSyncDate(defaults, instance);
    // The root screen falls back to the welcome, which restores the login for the new server.
    if (steps.setLoggedIn) steps.setLoggedIn(false);
    if (steps.refreshAndSync) steps.refreshAndSync();
    return true;
}

/// The handler, or why there is none.
using Login = std::variant<std::shared_ptr<ApiHandler>, std::string>;

Login loginOf(ApiHandler::Restored restored) {
    if (auto* handler = std::get_if<std::shared_ptr<ApiHandler>>(&restored)) return std::move(*handler);
    if (const auto* secrets = std::get_if<ApiHandler::SecretsUnavailable>(&restored))
        return "The secret store that keeps the token is locked or doesn't answer: " + secrets->reason;
    if (std::holds_alternative<ApiHandler::Refused>(restored)) return status::reasonFor(401);
    return std::string("No token found");
}

bool follow(Services& services, CoreDataHandler& core, const std::string& address, Login login,
            const InstanceSwitchSteps& steps) {
    const auto connected = ConnectedInstances::load(*services.defaults);
    const auto* entry = connected.find(address);
    if (entry == nullptr || services.defaults->string("server").value_or("") != address) return false;
    if (steps.clearList) steps.clearList();
    const auto& store = entry->second.store;
    if (!connected.ownsStore(entry->first, entry->second)) {
        login = ApiError::storeUnavailable("it isn't this server's own").localizedDescription();
    } else if (core.storeName() != store) {
        if (const auto moved = core.moveToStore(store); !moved)
            login = ApiError::storeUnavailable(moved.error().message).localizedDescription();
    }
    if (auto* handler = std::get_if<std::shared_ptr<ApiHandler>>(&login)) {
        if (steps.useHandler) steps.useHandler(std::move(*handler));
        if (steps.refreshAndSync) steps.refreshAndSync();
        return true;
    }
    // The old server's handler with the new server's settings would be worse than none.
    if (steps.useHandler) steps.useHandler(ApiHandler::inert(services, core));
    if (steps.refresh) steps.refresh();
    if (steps.tell) steps.tell(std::get<std::string>(login));
    if (steps.setLoggedIn) steps.setLoggedIn(false);
    return true;
}

} // namespace

std::optional<std::string> versionSetting(const Instance& instance) {
    return instance.serverVersion.empty() ? std::nullopt : std::optional(instance.serverVersion);
}

void adoptInstanceVersion(UserDefaults& defaults, const Instance& instance) {
    if (const auto version = versionSetting(instance))
        (void)defaults.set("server_version", *version);
    else
        (void)defaults.remove("server_version");
}

void adoptInstanceSyncDate(UserDefaults& defaults, const Instance& instance) {
    (void)defaults.set("lastSuccessfulSync", instance.lastSuccessfulSync);
}

std::optional<ApiError> enterConnectedStore(Services& services, CoreDataHandler& core, std::string_view address) {
    const auto registered = registerInstance(*services.defaults, address);
    if (!registered) return ApiError::settingsUnwritable(registered.error().message);
    const auto& instance = registered.value();
    const auto oldStore = core.storeName();
    if (const auto moved = core.moveToStore(instance.store); !moved)
        return ApiError::storeUnavailable(moved.error().message);
    SettingsChange settings(*services.defaults);
    settings.set("server_version", versionSetting(instance));
    settings.set("lastSuccessfulSync", instance.lastSuccessfulSync);
    // Only now, with its store open: whoever is stopped before is not logged in at all.
    settings.set("server", std::string(address));
    settings.set("useiCloud", false);
    settings.set("offlineMode", false);
    if (settings.failure()) {
        (void)core.moveToStore(oldStore);
        return ApiError::settingsUnwritable(settings.failure()->message);
    }
    settings.keep();
    return std::nullopt;
}

void switchInstance(Services& services, CoreDataHandler& core, DispatchQueue& queue, std::string address,
                    InstanceSwitchSteps steps) {
    const auto number = ++latestChoice();
    queue.async([&services, &core, number, address = std::move(address), steps = std::move(steps)] {
        std::shared_ptr<ApiHandler> handler;
        const auto connected = ConnectedInstances::load(*services.defaults);
        if (const auto* entry = connected.find(address); entry != nullptr && number == latestChoice()) {
            auto restored = ApiHandler::restore(services, core, entry->first, ApiHandler::Activation::Later);
            if (auto* made = std::get_if<std::shared_ptr<ApiHandler>>(&restored)) handler = std::move(*made);
        }
        mainQueue::async([&services, &core, number, address, handler, steps] {
            // The server may have been disconnected while it was asked.
            const auto now = ConnectedInstances::load(*services.defaults);
            const auto* entry = handler && number == latestChoice() ? now.find(address) : nullptr;
            const bool made =
                entry != nullptr && makeSwitch(services, core, entry->first, entry->second, handler, steps);
            if (steps.finished) steps.finished(made);
        });
    });
}

void followActiveServer(Services& services, CoreDataHandler& core, DispatchQueue& queue, InstanceSwitchSteps steps) {
    const auto number = ++latestChoice();
    const auto address = services.defaults->string("server").value_or("");
    queue.async([&services, &core, number, address, steps = std::move(steps)] {
        std::optional<Login> login;
        if (number == latestChoice() && ConnectedInstances::load(*services.defaults).find(address) != nullptr)
            login = loginOf(ApiHandler::restore(services, core, address, ApiHandler::Activation::Later));
        mainQueue::async([&services, &core, number, address, login, steps] {
            const bool made = login && number == latestChoice() && follow(services, core, address, *login, steps);
            if (steps.finished) steps.finished(made);
        });
    });
}

} // namespace ledgerfinch
