// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ApiError.h"

#include "connection/Status.h"

namespace ledgerfinch {

std::string ApiError::localizedDescription() const {
    switch (kind) {
    case Case::unexpectedResponse:
        return "Unexpected response: " + std::to_string(status) + "\n" + body;
    case Case::invalidURL:
        return "Invalid URL";
    case Case::couldntConnect:
        return "Couldn't connect to server";
    case Case::invalidCredentials:
        return "Invalid credentials";
    case Case::secretsUnavailable:
        return "The token could not be kept: " + body;
    case Case::secretsNotRemoved:
        return "The token could not be removed: " + body;
    case Case::settingsUnwritable:
        return "The settings could not be written: " + body;
    case Case::storeUnavailable:
        return "The local store could not be opened: " + body;
    case Case::cancelled:
        return "The request was cancelled.";
    }
    return {};
}

std::string ApiError::reason() const {
    if (!detail.empty()) return detail;
    return kind == Case::unexpectedResponse ? status::reasonFor(status) : localizedDescription();
}

} // namespace ledgerfinch
