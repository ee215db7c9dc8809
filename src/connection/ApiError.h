// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>
#include <utility>

namespace ledgerfinch {

/// Why a login, a logout or the removal of a server did not come about.
struct ApiError {
    enum class Case {
        unexpectedResponse,
        invalidURL,
        couldntConnect,
        invalidCredentials,
        secretsUnavailable, ///< the secret store is locked, gone or can't be written
        secretsNotRemoved,  ///< the same, when a token was to be removed
        settingsUnwritable, ///< the settings can't be written
        storeUnavailable,   ///< the server's local store can't be opened
        cancelled
    };

    Case kind = Case::couldntConnect;
    int status = 0;       ///< of `unexpectedResponse`, as the server gave it
    std::string body{};   ///< of `unexpectedResponse`; of trouble on this device: what the system said
    std::string detail{}; ///< what `reason()` says, where more is known than the case

    static ApiError unexpectedResponse(int status, std::string body, std::string detail = {}) {
        return {Case::unexpectedResponse, status, std::move(body), std::move(detail)};
    }
    static ApiError invalidURL() { return {Case::invalidURL}; }
    static ApiError couldntConnect(std::string detail = {}) { return {Case::couldntConnect, 0, {}, std::move(detail)}; }
    static ApiError invalidCredentials() { return {Case::invalidCredentials}; }
    /// The token could not be kept.
    static ApiError secretsUnavailable(std::string reason) { return {Case::secretsUnavailable, 0, std::move(reason)}; }
    static ApiError secretsNotRemoved(std::string reason) { return {Case::secretsNotRemoved, 0, std::move(reason)}; }
    static ApiError settingsUnwritable(std::string reason) { return {Case::settingsUnwritable, 0, std::move(reason)}; }
    static ApiError storeUnavailable(std::string reason) { return {Case::storeUnavailable, 0, std::move(reason)}; }
    static ApiError cancelled() { return {Case::cancelled}; }

    /// The text for the person.
    [[nodiscard]] std::string localizedDescription() const;
    /// One sentence or two that say what happened and, where there is one, the way out; never the body of an answer.
    [[nodiscard]] std::string reason() const;
    /// The trouble lies on this device, not with the server.
    [[nodiscard]] bool isLocal() const {
        return kind == Case::secretsUnavailable || kind == Case::secretsNotRemoved ||
               kind == Case::settingsUnwritable || kind == Case::storeUnavailable;
    }
    bool operator==(const ApiError&) const = default;
};

} // namespace ledgerfinch
