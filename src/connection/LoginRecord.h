// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiError.h"
#include "connection/Instances.h"
#include "platform/Services.h"

#include <optional>
#include <string>
#include <utility>

namespace ledgerfinch {

/// What a login writes about a server, its entry and its token, so that a login that fails or is given up afterwards
/// can take it back. Blocking; not on the main thread; one thread at a time.
class LoginRecord {
public:
    /// The address as given; the secret store knows the server under `secretService`.
    LoginRecord(Services& services, std::string address, std::string secretService);

    /// The entry first: a server that is known by its token alone would work in the store of offline mode. Why it could
    /// not be kept, nothing being changed then; absent when it is.
    std::optional<ApiError> keep(const std::string& token, const std::optional<std::string>& serverVersion);
    /// Puts back what was there before, as far as nobody has changed it since. Nothing happens when nothing was kept.
    void undo();

private:
    struct Before {
        std::optional<std::pair<std::string, Instance>> entry;
        std::optional<std::string> token;
        std::string tokenService; ///< where that token lay
        bool knewUser = false;
    };

    [[nodiscard]] std::string userKey() const;

    Services& m_services;
    std::string m_address;
    std::string m_secretService;
    std::optional<Before> m_before; ///< set while something is kept
    std::string m_token;
};

} // namespace ledgerfinch
