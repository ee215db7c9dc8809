// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreNames.h"

#include "records/JsonReader.h"
#include "store/FilenameSchemes.h"

#include <algorithm>

namespace ledgerfinch::storeNames {
namespace {

std::optional<JsonObject> connectedInstances(const UserDefaults& defaults) {
    const auto text = defaults.string("connectedInstances");
    return text ? JsonObject::parse(*text) : std::nullopt;
}

std::optional<std::string> namedStoreOf(const JsonObject& instances, const std::string& address) {
    const auto instance = instances.object(address);
    return instance ? instance->text("store") : std::nullopt;
}

/// As a file system without case sees them; letters beyond ASCII may differ, so that no two stores count as one.
bool sameName(std::string_view first, std::string_view second) {
    const auto lower = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter | 0x20) : letter;
    };
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [&](char a, char b) { return lower(a) == lower(b); });
}

std::optional<std::string> storeOf(const JsonObject& instances, const std::string& address) {
    auto store = namedStoreOf(instances, address);
    // Offline papers exist nowhere else: an entry that names their store names none.
    if (store && isOffline(*store)) return std::nullopt;
    return store;
}

} // namespace

std::optional<std::string> ofActiveInstance(const UserDefaults& defaults) {
    const auto server = defaults.string("server");
    const auto instances = connectedInstances(defaults);
    if (!server || server->empty() || !instances) return std::nullopt;
    if (auto store = storeOf(*instances, *server)) return store;
    const std::string other = server->ends_with('/') ? server->substr(0, server->size() - 1) : *server + "/";
    return storeOf(*instances, other);
}

std::string active(const UserDefaults& defaults) {
    const auto server = defaults.string("server");
    if (!server || server->empty()) return std::string(kOffline);
    if (auto store = ofActiveInstance(defaults)) return *store;
    return storeNameFor(*server, ofAllInstances(defaults));
}

std::set<std::string> ofAllInstances(const UserDefaults& defaults) {
    std::set<std::string> names;
    const auto instances = connectedInstances(defaults);
    if (!instances) return names;
    for (const auto& [address, fragment] : instances->members())
        if (auto store = storeOf(*instances, address)) names.insert(std::move(*store));
    return names;
}

std::set<std::string> expected(const UserDefaults& defaults) {
    auto names = ofAllInstances(defaults);
    names.insert(std::string(kOffline));
    return names;
}

bool isOfflineClaimed(const UserDefaults& defaults) {
    const auto instances = connectedInstances(defaults);
    return instances && std::any_of(instances->members().begin(), instances->members().end(), [&](const auto& member) {
               return isOffline(namedStoreOf(*instances, member.first).value_or(""));
           });
}

bool isOffline(std::string_view name) {
    return sameName(name, kOffline);
}

bool mayBeInUse(const UserDefaults& defaults, std::string_view name) {
    if (isOffline(name) || sameName(name, active(defaults))) return true;
    if (defaults.string("connectedInstances").value_or("").empty()) return false;
    const auto instances = connectedInstances(defaults);
    return !instances || std::any_of(instances->members().begin(), instances->members().end(), [&](const auto& member) {
        const auto store = namedStoreOf(*instances, member.first);
        return !store || sameName(name, *store);
    });
}

} // namespace ledgerfinch::storeNames
