// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/AnswerFailure.h"
#include "connection/ApiHandler.h"
#include "connection/Fetch.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// What the reader of a page found in it.
struct PageStep {
    /// What the page counts as; the walk goes on only after 200.
    int status = 0;
    /// Address of the next page; absent after the last.
    std::optional<std::string> next;
    /// Runs while the next page is on its way. May be empty.
    std::function<void()> merge;
};

/// Where a list begins and how its pages are asked for.
struct PageWalk {
    std::string path;
    ApiHandler::Accept firstPage = ApiHandler::Accept::Yes;
    ApiHandler::Accept nextPages = ApiHandler::Accept::Yes;
};

/// Reads a list page by page and gives the status of the last one. The address of a next page is followed only to the
/// same server under its own path, only once, and not without end: otherwise the walk fails with status::kBadNextPage.
/// The reader gets the answer and the address it came from; it isn't asked about a request that was cancelled.
int walkPages(ApiHandler& api, const PageWalk& walk, const FetchOptions& options,
              const std::function<PageStep(const HttpResponse&, const std::string& url)>& read);

/// What the caller's wish to end makes of a fetch: status::kCancelled, status::kStopped, or absent to go on.
[[nodiscard]] std::optional<int> endedByCaller(const FetchOptions& options);

/// The options with a context: an operation stays with the store that was open when it began, whatever is opened
/// meanwhile.
[[nodiscard]] FetchOptions withContext(const ApiHandler& api, FetchOptions options);

/// The address for the log: of its query only what tells nothing about papers.
[[nodiscard]] std::string loggableUrl(std::string_view url);

} // namespace ledgerfinch
