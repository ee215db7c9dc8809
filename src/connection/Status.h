// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

namespace ledgerfinch::status {

// What an operation gives besides the server's own statuses. None of these counts as success.

/// Nobody answered.
inline constexpr int kNoAnswer = 408;
/// A page of documents came with 200, but was cut off or isn't what it should be.
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

/// The caller ended it; that says nothing about the server.
[[nodiscard]] inline constexpr bool isEndedByCaller(int status) {
    return status == kStopped || status == kCancelled;
}

[[nodiscard]] inline constexpr bool isSuccess(int status) {
    return status >= 200 && status < 300;
}

} // namespace ledgerfinch::status
