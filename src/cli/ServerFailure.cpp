// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ServerFailure.h"

#include "cli/DisplayText.h"
#include "connection/Status.h"
#include "platform/Http.h"

namespace ledgerfinch::cli {
namespace {

std::string_view wayOut(std::string_view reason) {
    if (reason.starts_with("A secure connection"))
        return "Check the server's certificate and whether its address begins with https://.";
    if (reason.find("not found") != std::string_view::npos) return "Check the address and the network.";
    return "Is the address right, and is the server running?";
}

} // namespace

std::string hostText(std::string_view address) {
    std::string host = originOf(address);
    if (const auto scheme = host.find("://"); scheme != std::string::npos) host.erase(0, scheme + 3);
    return printable(host.empty() ? address : std::string_view(host));
}

ExitCode exitCodeOfStatus(int status) {
    switch (status) {
    case status::kNoAnswer:
    case 429:
        return ExitCode::Unreachable;
    case status::kUnreadable:
    case status::kBadNextPage:
    case status::kRedirected:
    case status::kNeedsHttps:
    case status::kWebPage:
        return ExitCode::BadData;
    case status::kNotStored:
        return ExitCode::CannotCreate;
    case status::kStopped:
    case status::kCancelled:
        return ExitCode::Interrupted;
    case 400:
    case 401:
    case 403:
        return ExitCode::Refused;
    case 404:
        return ExitCode::NotFound;
    default:
        // Success that brought nothing, and redirects that lead nowhere.
        if (status >= 200 && status < 400) return ExitCode::BadData;
        return status >= 500 ? ExitCode::Unreachable : ExitCode::Failed;
    }
}

std::string failureText(std::string_view address, int status, std::string_view reason) {
    const auto host = hostText(address);
    const auto shown = printable(reason);
    if (status != status::kNoAnswer) return host + ": " + shown;
    std::string_view said = shown;
    if (said.ends_with('.')) said.remove_suffix(1);
    // Nothing is known but that nobody answered.
    if (said.empty() || said == "The server didn't answer")
        return "No answer from " + host + ". " + std::string(wayOut({}));
    return "No answer from " + host + ": " + std::string(said) + ". " + std::string(wayOut(said));
}

namespace {

ExitCode exitCodeOf(const ApiError& failure, bool secretsLieInFile) {
    switch (failure.kind) {
    case ApiError::Case::unexpectedResponse:
        return exitCodeOfStatus(failure.status);
    case ApiError::Case::invalidURL:
        return ExitCode::BadData;
    case ApiError::Case::couldntConnect:
        return ExitCode::Unreachable;
    case ApiError::Case::invalidCredentials:
        return ExitCode::Refused;
    case ApiError::Case::secretsUnavailable:
    case ApiError::Case::secretsNotRemoved:
        return secretsLieInFile ? ExitCode::CannotCreate : ExitCode::Refused;
    case ApiError::Case::settingsUnwritable:
        return ExitCode::CannotCreate;
    case ApiError::Case::storeUnavailable:
        return failure.body.find("disk is full") != std::string::npos ? ExitCode::CannotCreate : ExitCode::Internal;
    case ApiError::Case::cancelled:
        return ExitCode::Interrupted;
    }
    return ExitCode::Internal;
}

} // namespace

ExitCode complainOf(const Console& console, const Services& services, std::string_view address,
                    const ApiError& failure) {
    const auto reason = failure.reason();
    if (failure.isLocal() || failure.kind == ApiError::Case::invalidURL || failure.kind == ApiError::Case::cancelled)
        console.complain(printable(reason));
    else if (failure.kind == ApiError::Case::couldntConnect)
        console.complain(failureText(address, status::kNoAnswer, reason));
    else if (failure.kind == ApiError::Case::invalidCredentials)
        console.complain(failureText(address, 401, reason + ". Check the user name and the password, or the token."));
    else
        console.complain(failureText(address, failure.status, reason));
    return exitCodeOf(failure, services.secrets->kind() == "file");
}

} // namespace ledgerfinch::cli
