// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/InstanceSwitch.h"

#include "platform/DispatchQueue.h"
#include "store/CoreDataHandler.h"

namespace ledgerfinch {

namespace {

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
    if (steps.clearList) steps.clearList();
    (void)defaults.set("server", address);
    adoptInstanceVersion(defaults, instance);
    const auto moved = core.moveToStore(instance.store);
    if (!moved) {
        put(defaults, "server", oldServer);
        put(defaults, "server_version", oldVersion);
        return false;
    }
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
    queue.async([&services, &core, address = std::move(address), steps = std::move(steps)] {
        const auto connected = ConnectedInstances::load(*services.defaults);
        const auto* entry = connected.find(address);
        std::shared_ptr<ApiHandler> handler;
        if (entry != nullptr) {
            auto restored = ApiHandler::restore(services, core, entry->first);
            if (auto* made = std::get_if<std::shared_ptr<ApiHandler>>(&restored)) handler = std::move(*made);
        }
        if (!handler) {
            mainQueue::async([steps] {
                if (steps.finished) steps.finished(false);
            });
            return;
        }
        mainQueue::async([&services, &core, key = entry->first, instance = entry->second, handler, steps] {
            const bool made = makeSwitch(services, core, key, instance, handler, steps);
            if (steps.finished) steps.finished(made);
        });
    });
}

} // namespace ledgerfinch
