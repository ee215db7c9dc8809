// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace ledgerfinch {

/// Why a login did not come about.
struct ApiError {
    enum class Case { unexpectedResponse, invalidURL, couldntConnect, invalidCredentials, secretsUnavailable };

    Case kind = Case::couldntConnect;
    int status = 0;   ///< of `unexpectedResponse`
    std::string body; ///< of `unexpectedResponse`; of `secretsUnavailable`: what the secret store said

    static ApiError unexpectedResponse(int status, std::string body) {
        return {Case::unexpectedResponse, status, std::move(body)};
    }
    static ApiError invalidURL() { return {Case::invalidURL, 0, {}}; }
    static ApiError couldntConnect() { return {Case::couldntConnect, 0, {}}; }
    static ApiError invalidCredentials() { return {Case::invalidCredentials, 0, {}}; }
    /// The token could not be kept: the secret store is locked or gone.
    static ApiError secretsUnavailable(std::string reason) { return {Case::secretsUnavailable, 0, std::move(reason)}; }

    /// The text for the person.
    [[nodiscard]] std::string localizedDescription() const;
    bool operator==(const ApiError&) const = default;
};

} // namespace ledgerfinch
