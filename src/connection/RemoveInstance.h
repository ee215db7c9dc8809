// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiError.h"
#include "connection/Instances.h"
#include "platform/Services.h"

#include <optional>
#include <string_view>

namespace ledgerfinch {

struct RemovedInstance {
    /// Why it could not be removed: the entry is still there then, and another try makes up for the rest.
    std::optional<ApiError> error;
    std::optional<Instance> entry; ///< as it was; absent when there was none
    /// Its store was its own and may go too; that is left to the caller.
    bool ownedStore = false;
};

/// Takes away all that the secret store and the settings hold about a server, under its address with and without a
/// slash at the end: the token, the custom headers, the id of its user and, last, its entry. It doesn't ask whether the
/// server is the active one. Blocking; not on the main thread.
RemovedInstance removeInstance(Services& services, std::string_view address);

/// Forgets the token of the active server, and that the program is to be unlocked by biometrics. Why that could not be
/// done; absent when it is. Blocking; not on the main thread.
std::optional<ApiError> logOut(Services& services);

} // namespace ledgerfinch
