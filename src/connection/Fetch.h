// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/Status.h"

#include <functional>
#include <memory>
#include <string>
#include <variant>

namespace ledgerfinch {

class Cancellation;
class ManagedObjectContext;

/// The second line under a sync's stage.
struct additionalLoadingInfo {
    struct None {
        bool operator==(const None&) const = default;
    };
    struct Success {
        std::string text;
        bool operator==(const Success&) const = default;
    };
    struct Error {
        std::string text;
        bool operator==(const Error&) const = default;
    };
    std::variant<None, Success, Error> value;

    static additionalLoadingInfo none() { return {}; }
    static additionalLoadingInfo success(std::string text) { return {Success{std::move(text)}}; }
    static additionalLoadingInfo error(std::string text) { return {Error{std::move(text)}}; }
    bool operator==(const additionalLoadingInfo&) const = default;
};

/// What every fetch into the store takes.
struct FetchOptions {
    /// Where records are merged; null: the view context of the store that is open when the operation begins.
    std::shared_ptr<ManagedObjectContext> context = {};
    /// After each page, on the fetching thread. May be empty.
    std::function<void(const additionalLoadingInfo&)> progress = {};
    /// Asked before every page and before every merge; true ends the fetch with status::kStopped. May be empty.
    std::function<bool()> shouldStop = {};
    /// A list of attributes was answered with 200, but did not come whole or could not be saved whole. May be empty.
    std::function<void()> incomplete = {};
    /// Ends the request under way at once, and the fetch with status::kCancelled; nothing more is merged then. May be
    /// null; outlives the fetch.
    Cancellation* cancellation = nullptr;
};

} // namespace ledgerfinch
