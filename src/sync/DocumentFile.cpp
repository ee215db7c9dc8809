// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/DocumentFile.h"

#include "connection/Status.h"
#include "connection/endpoints/Files.h"

#include <string>

namespace ledgerfinch {

Result<std::filesystem::path> getDocumentFile(ApiHandler& api, const DocumentFiles& files, const Uuid& uuid,
                                              std::int64_t id, std::string_view title,
                                              const std::function<void(std::int64_t, std::int64_t)>& progress,
                                              Cancellation* cancellation) {
    if (auto existing = files.existingDocumentFile(uuid)) return *existing;
    auto data = downloadDocumentData(api, id, progress, cancellation);
    if (!data) return data.error();
    // What came before the wish to end, and isn't wanted any more.
    if (cancellation && cancellation->isCancelled()) return Error{"The download was cancelled", status::kCancelled};
    const auto stored = files.storeFile(DocumentFiles::kDocuments, uuid,
                                        DocumentFiles::downloadName(uuid, data->mimeType), data->bytes);
    if (!stored) {
        api.log().error("The file of %s could not be written: %{public}s", title, stored.error().message);
        return Error{stored.error().message, 0};
    }
    return *stored;
}

Result<std::filesystem::path> getDocumentPreview(ApiHandler& api, const DocumentFiles& files, const Uuid& uuid,
                                                 std::int64_t id) {
    auto image = downloadThumbnail(api, id);
    if (!image) return image.error();
    return files.storePreview(uuid, *image);
}

} // namespace ledgerfinch
