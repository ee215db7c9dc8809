// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"

#include <cstdint>

namespace ledgerfinch {

// DELETE on the server; each gives the status. The local record is the caller's. Until the server has accepted
// the record is on the repair list; with an attribute, the documents that bear it as well (call before removing the
// local record).

int deleteTag(ApiHandler& api, std::int64_t id);
int deleteCorrespondent(ApiHandler& api, std::int64_t id);
int deleteStoragePath(ApiHandler& api, std::int64_t id);
int deleteCustomField(ApiHandler& api, std::int64_t id);
int deleteSavedView(ApiHandler& api, std::int64_t id);
int deleteDocumentType(ApiHandler& api, std::int64_t id);
int deleteDocument(ApiHandler& api, std::int64_t id);
int deleteUser(ApiHandler& api, std::int64_t id);
int deleteGroup(ApiHandler& api, std::int64_t id);

} // namespace ledgerfinch
