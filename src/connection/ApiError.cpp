// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ApiError.h"

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
    }
    return {};
}

} // namespace ledgerfinch
