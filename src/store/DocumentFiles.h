// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Services.h"
#include "platform/Uuid.h"
#include "store/CloudDataHandler.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// The files of documents, beside the store: `documents/<uuid>/` holds one file, `previews/<uuid>/thumb.png` the
/// preview. Paths are made only of uuids and of names that passed a check. Any thread.
class DocumentFiles {
public:
    static constexpr std::string_view kDocuments = "documents";
    static constexpr std::string_view kPreviews = "previews";

    struct Statistics {
        std::int64_t files = 0;
        std::int64_t bytes = 0;
    };

    DocumentFiles(const Services& services, const CloudDataHandler& cloud);

    [[nodiscard]] std::filesystem::path documentFolder(const Uuid& uuid) const;
    [[nodiscard]] std::filesystem::path previewFolder(const Uuid& uuid) const;

    /// The first file of the document's folder; absent when it has none.
    [[nodiscard]] std::optional<std::filesystem::path> existingDocumentFile(const Uuid& uuid) const;
    /// The preview's path when the file is there.
    [[nodiscard]] std::optional<std::filesystem::path> existingPreview(const Uuid& uuid) const;
    /// Writes `<folder>/<uuid>/<name>` whole or not at all; `folder` is kDocuments or kPreviews. A name that isn't a
    /// plain file name is refused.
    Result<std::filesystem::path> storeFile(std::string_view folder, const Uuid& uuid, std::string_view name,
                                            std::string_view bytes) const;
    /// Refuses bytes that are no image.
    Result<std::filesystem::path> storePreview(const Uuid& uuid, std::string_view bytes) const;
    /// The document's file and preview; failures are logged.
    void removeFiles(const Uuid& uuid) const;

    [[nodiscard]] Statistics downloadedFileStatistics() const;
    /// Removes every downloaded file. Those of documents that no server has stay, and so do files that no store of this
    /// device knows. Removes nothing when a store can't be read.
    void removeAllDownloads() const;
    /// Removes leftovers in the shared container: temporary files, and folders whose document is in no store, when
    /// nothing touched them for a day. Removes nothing when a store can't be read, is missing, or had to be made anew,
    /// and never a file that doesn't bear its document's uuid: that one may exist nowhere else. Then the emptied stores
    /// of servers that were let go. How many went. Reads every store of the device: off the main thread. Ends early,
    /// between two entries, when it is told to.
    std::size_t sweepStrays(std::stop_token stop = {}) const;
    /// A store was made by this process: until the next start nobody can tell a new device from a lost store.
    void noteNewStore() const { m_storeIsNew = true; }

    /// The MIME type of the file's extension, else "application/octet-stream".
    [[nodiscard]] static std::string mimeType(const std::filesystem::path& file);
    /// Whether the server's original of this type is asked for, rather than the archived PDF.
    [[nodiscard]] static bool supportsOriginal(std::string_view mimeType);
    /// The name a downloaded file is stored under.
    [[nodiscard]] static std::string downloadName(const Uuid& uuid, std::string_view mimeType);
    /// One component of a path: not empty, no "/" or NUL, not "." or "..", no longer than a file system takes.
    [[nodiscard]] static bool isPlainFileName(std::string_view name);

private:
    const Services& m_services;
    const CloudDataHandler& m_cloud;
    Logger m_log;
    mutable std::atomic<bool> m_storeIsNew{false};
};

} // namespace ledgerfinch
