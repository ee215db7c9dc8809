// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Fetch.h"
#include "platform/Dates.h"
#include "records/ShareLink.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

struct ShareLinkList {
    int status = 0;
    std::vector<PaperlessShareLink> links;
};
/// The links of one document that have not expired.
ShareLinkList fetchShareLinks(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation = nullptr);

enum class FileVersion { original, archive };

struct CreatedShareLink {
    int status = 0;
    std::optional<PaperlessShareLink> link;
    std::string url; ///< where anyone finds the file; empty without a link
};
/// Without an expiration the link never ends.
CreatedShareLink createShareLink(ApiHandler& api, std::int64_t documentId, std::optional<Timestamp> expiration,
                                 FileVersion version);
int deleteShareLink(ApiHandler& api, std::int64_t id);

} // namespace ledgerfinch
