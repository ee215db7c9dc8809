// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "platform/Result.h"
#include "platform/Uuid.h"
#include "store/DocumentFiles.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string_view>

namespace ledgerfinch {

/// The document's file on this device, downloaded if it isn't there yet; a file that is there is never refreshed. The
/// error's code is the server's status, 0 when the file could not be written. `progress` gets bytes so far and in all
/// (-1 unknown), on the network thread. Cancelling ends it at once, with status::kCancelled. Blocks; not on the main
/// thread.
Result<std::filesystem::path> getDocumentFile(ApiHandler& api, const DocumentFiles& files, const Uuid& uuid,
                                              std::int64_t id, std::string_view title,
                                              const std::function<void(std::int64_t, std::int64_t)>& progress = {},
                                              Cancellation* cancellation = nullptr);

/// Writes the server's thumbnail as the document's preview. Blocks; not on the main thread.
Result<std::filesystem::path> getDocumentPreview(ApiHandler& api, const DocumentFiles& files, const Uuid& uuid,
                                                 std::int64_t id);

} // namespace ledgerfinch
