// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "platform/Result.h"
#include "platform/Uuid.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// The original's MIME type, "undefined" when it can't be told.
std::string fetchOriginalMimeType(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation = nullptr);

struct DownloadedDocument {
    std::string bytes;
    std::string mimeType; ///< as the answer told, without parameters
};
/// The document's file: the original where "downloadOriginalFiles" is set and the program can show its type, else the
/// archived form. The error's code is the status. `progress` gets bytes so far and in all (-1 unknown), on the network
/// thread. Cancelling ends it at once, with status::kCancelled.
Result<DownloadedDocument> downloadDocumentData(ApiHandler& api, std::int64_t documentId,
                                                const std::function<void(std::int64_t, std::int64_t)>& progress = {},
                                                Cancellation* cancellation = nullptr);

/// The server's thumbnail: bytes that make an image. The error's code is the status.
Result<std::string> downloadThumbnail(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation = nullptr);

/// The document's file on this device, fetched if there is none. A file that is there is never fetched again.
Result<std::filesystem::path> getDocumentFile(ApiHandler& api, const Uuid& uuid, std::int64_t documentId,
                                              const std::function<void(std::int64_t, std::int64_t)>& progress = {},
                                              Cancellation* cancellation = nullptr);

/// Fetches the server's thumbnail into the document's preview folder.
Result<std::filesystem::path> getDocumentPreview(ApiHandler& api, const Uuid& uuid, std::int64_t documentId,
                                                 Cancellation* cancellation = nullptr);

} // namespace ledgerfinch
