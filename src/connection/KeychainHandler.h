// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Services.h"

#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// The tokens in the secret store, keyed by server address. Blocking; thread-safe; not on the main thread.
class KeychainHandler {
public:
    static constexpr std::string_view kAccount = "ledgerfinch.app";

    explicit KeychainHandler(Services& services) : m_services(services) {}

    /// Adds or replaces. A failure is logged and handed back.
    Result<void> save(std::string_view data, std::string_view service, std::string_view account = kAccount);
    /// What lies there; what stands in the way is logged.
    SecretReading read(std::string_view service, std::string_view account = kAccount);
    /// Removing what isn't there is no failure. One is logged and handed back.
    Result<void> remove(std::string_view service, std::string_view account = kAccount);

    /// The token of a server, found under its address as given or with one slash at the end more or less.
    SecretReading readToken(std::string_view server);
    /// Keeps the token under the address as given and drops one kept under the other form, which would be found first.
    Result<void> saveToken(std::string_view token, std::string_view server);
    /// Under both forms. With a token given, only where that very token lies: one that is saved at the same time stays,
    /// and so does what can't be read just now.
    Result<void> deleteToken(std::string_view server, const std::optional<std::string>& onlyThis = std::nullopt);
    /// The same where a failure is nobody's business.
    void removeToken(std::string_view server, const std::optional<std::string>& onlyThis = std::nullopt) {
        (void)deleteToken(server, onlyThis);
    }

private:
    Services& m_services;
};

} // namespace ledgerfinch
