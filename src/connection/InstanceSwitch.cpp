// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/InstanceSwitch.h"

#include "platform/DispatchQueue.h"
#include "store/CoreDataHandler.h"

#include <atomic>
#include <cstdint>

namespace ledgerfinch {

namespace {

/// Counts the choices: a switch that isn't the latest any more changes nothing.
std::atomic<std::uint64_t>& latestChoice() {
    static std::atomic<std::uint64_t> number{0};
    return number;
}

void put(UserDefaults& defaults, std::string_view key, const std::optional<std::string>& value) {
    if (value)
        (void)defaults.set(key, *value);
    else
        (void)defaults.remove(key);
}

bool makeSwitch(Services& services, CoreDataHandler& core, const std::string& address, const Instance& instance,
                const std::shared_ptr<ApiHandler>& handler, const InstanceSwitchSteps& steps) {
    auto& defaults = *services.defaults;
    const auto oldServer = defaults.string("server");
    const auto oldVersion = defaults.string("server_version");
    // Another store than the server's own would be emptied by its first sync.
    if (!ConnectedInstances::load(defaults).ownsStore(address, instance)) return false;
    if (steps.clearList) steps.clearList();
    (void)defaults.set("server", address);
    adoptInstanceVersion(defaults, instance);
    const auto moved = core.moveToStore(instance.store);
    if (!moved) {
        put(defaults, "server", oldServer);
        put(defaults, "server_version", oldVersion);
        return false;
    }
    (void)defaults.set("offlineMode", false);
    if (steps.useHandler) steps.useHandler(handler);
    adoptInstanceSyncDate(defaults, instance);
    // The root screen falls back to the welcome, which restores the login for the new server.
    if (steps.setLoggedIn) steps.setLoggedIn(false);
    if (steps.refreshAndSync) steps.refreshAndSync();
    return true;
}

} // namespace

void adoptInstanceVersion(UserDefaults& defaults, const Instance& instance) {
    put(defaults, "server_version",
        instance.serverVersion.empty() ? std::nullopt : std::optional(instance.serverVersion));
}

void adoptInstanceSyncDate(UserDefaults& defaults, const Instance& instance) {
    (void)defaults.set("lastSuccessfulSync", instance.lastSuccessfulSync);
}

Result<void> enterConnectedStore(Services& services, CoreDataHandler& core, std::string_view address) {
    const auto instance = registerInstance(*services.defaults, address);
    if (!instance) return instance.error();
    auto moved = core.moveToStore(instance.value().store);
    if (!moved) return moved;
    adoptInstanceVersion(*services.defaults, instance.value());
    adoptInstanceSyncDate(*services.defaults, instance.value());
    return {};
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

} // namespace ledgerfinch
