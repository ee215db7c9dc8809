// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Fetch.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace ledgerfinch {

enum class Authority;

/// Every document, merged page by page, then removes those that the server no longer has. Gives the status of the last
/// answer, or one of status::kUnreadable, kWebPage, kBadNextPage, kStopped, kCancelled, kNotStored; only 200 means that
/// the pass is whole.
int fetchAllDocuments(ApiHandler& api, const FetchOptions& options);

/// The documents modified since a day ("2024-03-01") or moment, merged page by page. Removes nothing.
int fetchChangedDocuments(ApiHandler& api, std::string_view modifiedSince, const FetchOptions& options);

struct DocumentCount {
    int status = 0;
    std::optional<std::int64_t> count;
    /// The ids of all documents; absent when the answer wasn't 200, couldn't be read, or named none.
    std::optional<std::vector<std::int64_t>> all;
};
DocumentCount fetchDocumentCount(ApiHandler& api, Cancellation* cancellation = nullptr);

/// Removes the documents that the server no longer names, and fetches those that it names and the store lacks. Nothing
/// is removed unless the status is 200 and the answer names the ids; the status of the last answer.
int removeOutdatedDocuments(ApiHandler& api, const FetchOptions& options);

/// One document, merged: by the rules of a sync, or with the server's word counting in everything
/// (Authority::ServerWins).
int fetchDocument(ApiHandler& api, std::int64_t id, Authority authority, std::shared_ptr<ManagedObjectContext> context,
                  Cancellation* cancellation = nullptr);
int fetchDocument(ApiHandler& api, std::int64_t id, std::shared_ptr<ManagedObjectContext> context,
                  Cancellation* cancellation = nullptr);

/// Fetches again what a refused or unheard write left in doubt; what the server delivers wins. Entries that
/// were mended, or whose record is gone (404), leave the repair list. Ends early when nobody answers, the token is
/// refused or the caller cancels, with that status; else 200.
int runRepairs(ApiHandler& api, const FetchOptions& options);

} // namespace ledgerfinch
