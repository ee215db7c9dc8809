// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"
#include "platform/UserDefaults.h"

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace ledgerfinch {

/// One connected server.
struct Instance {
    std::string store;              ///< name of its local store, fixed for life
    std::string lastSuccessfulSync; ///< "yyyy-MM-dd", empty before the first
    std::string serverVersion;      ///< empty: unknown, as "1.0.0" is
    std::optional<std::string> serverURL;
    bool operator==(const Instance&) const = default;
};

namespace addresses {
/// The address without one slash at its end; a second slash stays.
[[nodiscard]] std::string withoutSlash(std::string_view address);
/// The same server written the other way: one slash less, or one more.
[[nodiscard]] std::string otherForm(std::string_view address);
/// One slash at the end aside, the same text.
[[nodiscard]] bool same(std::string_view first, std::string_view second);
/// An http or https address with a host, without white space and control characters, and without a user name or
/// password, which would stand in logs and settings: what a person may connect to.
[[nodiscard]] bool isValid(std::string_view address);
} // namespace addresses

/// The setting "connectedInstances": a JSON object from server address to instance.
struct ConnectedInstances {
    static constexpr std::string_view kKey = "connectedInstances";

    std::map<std::string, Instance> instances;
    /// Entries that can't be read, as JSON text: kept as they are by whoever changes the others.
    std::map<std::string, std::string> unreadable = {};

    /// Absent when the text is no JSON object.
    [[nodiscard]] static std::optional<ConnectedInstances> decode(std::string_view text);
    [[nodiscard]] std::string encode() const;
    /// Empty when the setting is absent or broken.
    [[nodiscard]] static ConnectedInstances load(const UserDefaults& defaults);

    /// The entry of a server, under the address as given or with one slash more or less; null when there is none.
    [[nodiscard]] const std::pair<const std::string, Instance>* find(std::string_view address) const;
    /// The stores that are taken.
    [[nodiscard]] std::set<std::string> storeNames() const;
    /// Whether the store is this entry's alone: a name that can be a store's, not that of offline mode, and no other
    /// entry's. Names that differ only in case may be one file.
    [[nodiscard]] bool ownsStore(const std::string& address, const Instance& instance) const;
};

/// Reads the setting, lets `change` alter it and stores it; one at a time in this process.
Result<void> changeInstances(UserDefaults& defaults, const std::function<void(ConnectedInstances&)>& change);

/// The server's entry, made with a store of its own if there is none yet. An existing entry keeps its store, its
/// version and its date; one whose store isn't its own gets another.
Result<Instance> registerInstance(UserDefaults& defaults, std::string_view address);

/// What a sync learnt, into the server's entry. Nothing happens without an entry; an absent value leaves what is there.
Result<void> updateInstance(UserDefaults& defaults, std::string_view address,
                            const std::optional<std::string>& lastSuccessfulSync,
                            const std::optional<std::string>& serverVersion);

} // namespace ledgerfinch
