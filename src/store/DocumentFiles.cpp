// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/DocumentFiles.h"

#include "platform/MimeTypes.h"
#include "store/StoreFolder.h"

#include <algorithm>
#include <array>
#include <filesystem>

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kThumbnail = "thumb.png";
constexpr std::string_view kUnknownType = "application/octet-stream";
// A file system takes 255 bytes; the name under which a file is first written is longer than its own.
constexpr std::size_t kLongestName = 200;

constexpr std::array<std::string_view, 7> kOriginalTypes{"application/pdf", "image/png",  "image/jpeg", "image/tiff",
                                                         "image/gif",       "text/plain", "image/webp"};
constexpr std::array<std::string_view, 9> kOriginalExtensions{"odt",  "doc", "docx", "ods", "xls",
                                                              "xlsx", "odp", "ppt",  "pptx"};

bool isPlaceholder(std::string_view name) {
    return name.starts_with('.') && name.ends_with(".icloud");
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? char(character + 32) : character;
    });
    return text;
}

} // namespace

DocumentFiles::DocumentFiles(const Services& services, const CloudDataHandler& cloud)
    : m_services(services), m_cloud(cloud), m_log(services.logger("CoreDataHandler")) {}

fs::path DocumentFiles::documentFolder(const Uuid& uuid) const {
    return m_cloud.baseFolder() / kDocuments / uuid.text();
}

fs::path DocumentFiles::previewFolder(const Uuid& uuid) const {
    return m_cloud.baseFolder() / kPreviews / uuid.text();
}

std::optional<fs::path> DocumentFiles::existingDocumentFile(const Uuid& uuid) const {
    const auto folder = documentFolder(uuid);
    const auto entries = m_services.files->list(folder);
    if (!entries) return std::nullopt;
    for (const auto& name : *entries)
        if (!isPlaceholder(name) && m_services.files->exists(folder / name)) return folder / name;
    return std::nullopt;
}

std::optional<fs::path> DocumentFiles::existingPreview(const Uuid& uuid) const {
    auto file = previewFolder(uuid) / kThumbnail;
    if (!m_services.files->exists(file)) return std::nullopt;
    return file;
}

Result<fs::path> DocumentFiles::storeFile(std::string_view folder, const Uuid& uuid, std::string_view name,
                                          std::string_view bytes) const {
    if (folder != kDocuments && folder != kPreviews) return Error{"Not a folder of documents"};
    if (!isPlainFileName(name)) return Error{"Not a file name"};
    const auto target = m_cloud.baseFolder() / folder / uuid.text();
    if (auto created = m_services.files->createDirectories(target); !created) return created.error();
    auto file = target / name;
    if (auto written = m_services.files->write(file, bytes); !written) return written.error();
    return file;
}

Result<fs::path> DocumentFiles::storePreview(const Uuid& uuid, std::string_view bytes) const {
    if (auto created = m_services.files->createDirectories(previewFolder(uuid)); !created) {
        m_log.error("Error creating directory: %{public}s", created.error().message);
        return created.error();
    }
    if (!mimeTypes::looksLikeImage(bytes)) {
        constexpr std::string_view message = "Received invalid data for preview image...";
        m_log.error(message);
        return Error{std::string(message)};
    }
    return storeFile(kPreviews, uuid, kThumbnail, bytes);
}

void DocumentFiles::removeFiles(const Uuid& uuid) const {
    if (const auto removed = m_services.files->removeAll(documentFolder(uuid)); !removed)
        m_log.error("couldn't delete document folder: %@", removed.error().message);
    if (const auto removed = m_services.files->removeAll(previewFolder(uuid)); !removed)
        m_log.error("couldn't delete preview folder: %@", removed.error().message);
}

DocumentFiles::Statistics DocumentFiles::downloadedFileStatistics() const {
    Statistics statistics;
    const auto root = m_cloud.baseFolder() / kDocuments;
    const auto folders = m_services.files->list(root);
    if (!folders) return statistics;
    for (const auto& folder : *folders) {
        const auto names = m_services.files->list(root / folder);
        if (!names || names->empty()) continue;
        const auto size = m_services.files->size(root / folder / names->front());
        if (!size) continue;
        ++statistics.files;
        statistics.bytes += *size;
    }
    return statistics;
}

void DocumentFiles::removeAllDownloads() const {
    const auto root = m_cloud.baseFolder() / kDocuments;
    const auto known = readKnownDocuments(m_services.paths.container);
    if (!known) {
        m_log.error("couldn't delete document folder: %@", known.error().message);
        return;
    }
    const auto folders = m_services.files->list(root);
    if (!folders) {
        m_log.error("couldn't delete document folder: %@", folders.error().message);
        return;
    }
    bool complete = true;
    for (const auto& folder : *folders) {
        const auto uuid = Uuid::parse(folder);
        if (!uuid || !known->delivered.contains(*uuid) || known->local.contains(*uuid)) continue;
        const auto removed = m_services.files->removeAll(root / folder);
        if (removed) continue;
        complete = false;
        m_log.error("couldn't delete document folder: %@", removed.error().message);
    }
    if (complete) m_log.debug("deleted document folder");
}

std::string DocumentFiles::mimeType(const fs::path& file) {
    const auto extension = lowerCase(file.extension().string());
    if (extension.size() < 2) return std::string(kUnknownType);
    return mimeTypes::forExtension(std::string_view(extension).substr(1)).value_or(std::string(kUnknownType));
}

bool DocumentFiles::supportsOriginal(std::string_view mimeType) {
    const auto isThis = [mimeType](std::string_view type) {
        return mimeTypes::sameType(type, mimeType);
    };
    if (std::any_of(kOriginalTypes.begin(), kOriginalTypes.end(), isThis)) return true;
    return std::any_of(kOriginalExtensions.begin(), kOriginalExtensions.end(), [&](std::string_view extension) {
        const auto type = mimeTypes::forExtension(extension);
        return type && isThis(*type);
    });
}

std::string DocumentFiles::downloadName(const Uuid& uuid, std::string_view mimeType) {
    // Without a known extension the name has two dots; files stored earlier are named so.
    return uuid.text() + "." + mimeTypes::preferredExtension(mimeType).value_or(".pdf");
}

bool DocumentFiles::isPlainFileName(std::string_view name) {
    if (name.empty() || name.size() > kLongestName || name == "." || name == "..") return false;
    return name.find('/') == std::string_view::npos && name.find('\0') == std::string_view::npos;
}

} // namespace ledgerfinch
