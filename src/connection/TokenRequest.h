// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiError.h"
#include "platform/Http.h"

#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// POST of user name and password to the token endpoint of a server (address without a slash at the end), with
/// "Content-Type" and nothing else.
[[nodiscard]] HttpRequest tokenRequest(const std::string& server, std::string_view user, std::string_view password);

struct TokenAnswer {
    std::optional<std::string> token;
    bool isObject = false;            ///< the body is a JSON object
    bool namesToken = false;          ///< there is a "token", of whatever kind
    bool namesNonFieldErrors = false; ///< an object of lists of texts with a non-empty "non_field_errors"
};
[[nodiscard]] TokenAnswer readTokenAnswer(std::string_view body);
/// Why there is no token in an answer.
[[nodiscard]] ApiError tokenFailure(const HttpResponse& response, const TokenAnswer& answer);

/// Visible ASCII only: anything else can't travel in a header.
[[nodiscard]] bool isPlausibleToken(std::string_view token);

} // namespace ledgerfinch
