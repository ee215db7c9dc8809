// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string>

namespace ledgerfinch::status {

// What an operation gives besides the server's own statuses. None of these counts as success.

/// Nobody answered.
inline constexpr int kNoAnswer = 408;
/// An answer came with 200, but was cut off or isn't what it should be.
inline constexpr int kUnreadable = -1;
/// The address of the next page leads to another server, to a page already read, or without an end.
inline constexpr int kBadNextPage = -2;
/// The caller's stop condition held.
inline constexpr int kStopped = -3;
/// A write that would harm what nobody touched was not sent.
inline constexpr int kNotSent = -4;
/// The server delivered, but the store could not keep all of it.
inline constexpr int kNotStored = -5;
/// The caller cancelled the request while it waited.
inline constexpr int kCancelled = -6;
/// The answer was a redirect that isn't followed: to another server, from https down to http, of a writing request, or
/// without end.
inline constexpr int kRedirected = -7;
/// The answer was a redirect of an http address to https on the same host, at a place where it isn't followed.
inline constexpr int kNeedsHttps = -8;
/// A web page came, or the way to one for logging in, where data was due.
inline constexpr int kWebPage = -9;

[[nodiscard]] inline constexpr bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

/// The caller ended it; that says nothing about the server.
[[nodiscard]] inline constexpr bool isEndedByCaller(int status) {
    return status == kStopped || status == kCancelled;
}

/// A sentence for the person about a failed operation: what happened and, where there is one, the way out. Empty for
/// success. ApiHandler::reasonFor() knows more about its own requests.
[[nodiscard]] std::string reasonFor(int status);

} // namespace ledgerfinch::status
