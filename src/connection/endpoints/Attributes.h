// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Fetch.h"

namespace ledgerfinch {

// The lists of the server, page by page, into the store. Each gives the status of the last answer (status::kNoAnswer
// when nobody answered). Records that the server no longer has are removed only when every page up to the last came
// with 200, could be read and held a list.

int fetchGroups(ApiHandler& api, const FetchOptions& options);
int fetchUsers(ApiHandler& api, const FetchOptions& options);
/// On 401 the handler's token is forgotten as well.
int fetchTags(ApiHandler& api, const FetchOptions& options);
int fetchDocumentTypes(ApiHandler& api, const FetchOptions& options);
int fetchCorrespondents(ApiHandler& api, const FetchOptions& options);
int fetchStoragePaths(ApiHandler& api, const FetchOptions& options);
int fetchCustomFields(ApiHandler& api, const FetchOptions& options);
int fetchSavedViews(ApiHandler& api, const FetchOptions& options);

/// Asks who the token's user is and keeps the id in the settings under the server's address and "currentUserId".
int fetchUserSettings(ApiHandler& api, Cancellation* cancellation = nullptr);

} // namespace ledgerfinch
