// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CloudDataHandler.h"

#include "store/DocumentFiles.h"
#include "store/StoreFolder.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <thread>
#include <unistd.h>
#include <vector>

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kPlaceholderMark = ".icloud";
constexpr std::chrono::microseconds kPollInterval{500'000};
constexpr int kPollLimit = 120;
constexpr std::int64_t kLargestFile = std::int64_t{1} << 30;
constexpr std::array kFolders{DocumentFiles::kDocuments, DocumentFiles::kPreviews};

/// Which entries of a folder move.
using Selection = std::function<bool(const std::string& entry)>;

std::string withoutMark(std::string name) {
    for (auto at = name.find(kPlaceholderMark); at != std::string::npos; at = name.find(kPlaceholderMark))
        name.erase(at, kPlaceholderMark.size());
    return name;
}

/// Whether both hold the same files with the same bytes.
bool isSame(FileSystem& files, const fs::path& first, const fs::path& second) {
    auto names = files.list(first);
    auto others = files.list(second);
    if (!names || !others) {
        const auto bytes = files.read(first, kLargestFile);
        const auto otherBytes = files.read(second, kLargestFile);
        return bytes && otherBytes && *bytes == *otherBytes;
    }
    std::sort(names->begin(), names->end());
    std::sort(others->begin(), others->end());
    return *names == *others && std::all_of(names->begin(), names->end(), [&](const std::string& name) {
        return isSame(files, first / name, second / name);
    });
}

/// The entry is there afterwards, whole. One that is there already is a failure, unless it is an empty folder or an
/// earlier move that was cut off has left the same files.
Result<void> copyEntry(FileSystem& files, const fs::path& from, const fs::path& to) {
    if (files.exists(to)) {
        std::error_code error;
        const bool isEmpty = fs::is_directory(to, error) && fs::is_empty(to, error) && !error;
        if (!isEmpty)
            return isSame(files, from, to) ? Result<void>() : Error{to.filename().string() + " is there already"};
        if (auto removed = files.removeAll(to); !removed) return removed;
    }
    return files.copyAll(from, to);
}

/// One folder's selected entries, copied; their names.
Result<std::vector<std::string>> copyFolder(FileSystem& files, const fs::path& from, const fs::path& to,
                                            const Selection& selected) {
    auto entries = files.list(from);
    if (!entries) return entries.error();
    std::erase_if(*entries, [&](const std::string& entry) { return !selected(entry); });
    if (entries->empty()) return entries;
    if (auto created = files.createDirectories(to); !created) return created.error();
    for (const auto& entry : *entries)
        if (auto copied = copyEntry(files, from / entry, to / entry); !copied) return copied.error();
    return entries;
}

/// The copied entries go, and the folder when nothing is left in it.
Result<void> removeCopied(FileSystem& files, const fs::path& folder, const std::vector<std::string>& entries) {
    for (const auto& entry : entries)
        if (auto removed = files.removeAll(folder / entry); !removed) return removed;
    std::error_code error;
    if (fs::is_empty(folder, error) && !error) return files.removeAll(folder);
    return {};
}

/// Both folders are copied before anything is removed, so that a failure leaves the source whole.
void moveFolders(FileSystem& files, const fs::path& from, const fs::path& to, const Selection& selected,
                 const Logger& log) {
    std::array<std::vector<std::string>, kFolders.size()> copied;
    for (std::size_t index = 0; index < kFolders.size(); ++index) {
        auto entries = copyFolder(files, from / kFolders[index], to / kFolders[index], selected);
        if (!entries) {
            log.error("error copying files: %@", entries.error().message);
            return;
        }
        copied[index] = std::move(*entries);
    }
    for (std::size_t index = 0; index < kFolders.size(); ++index) {
        const auto removed = removeCopied(files, from / kFolders[index], copied[index]);
        if (!removed) log.error("error deleting old folders: %@", removed.error().message);
    }
}

} // namespace

CloudDataHandler::CloudDataHandler(const Services& services, Wait wait)
    : m_services(services), m_log(services.logger("CloudDataHandler")), m_wait(std::move(wait)) {
    if (!m_wait)
        m_wait = [](std::chrono::microseconds duration) {
            std::this_thread::sleep_for(duration);
        };
}

fs::path CloudDataHandler::localRoot() const {
    return m_services.paths.container;
}

std::optional<fs::path> CloudDataHandler::cloudRoot() const {
    const auto setting = m_services.defaults->string("cloudFolder");
    if (!setting || setting->empty()) return std::nullopt;
    const fs::path folder(*setting);
    std::error_code error;
    if (!folder.is_absolute() || !fs::is_directory(folder, error)) return std::nullopt;
    if (::access(folder.c_str(), W_OK | X_OK) != 0) return std::nullopt;
    return folder / "Documents";
}

fs::path CloudDataHandler::baseFolder() const {
    if (m_services.defaults->boolean("useiCloud").value_or(false))
        if (auto root = cloudRoot()) return *root;
    return localRoot();
}

void CloudDataHandler::downloadPlaceholder(const fs::path& folder) const {
    const auto entries = m_services.files->list(folder);
    if (!entries || entries->empty()) return;
    // The first entry stands for the whole folder, which holds one file.
    const auto& first = entries->front();
    if (first.find(kPlaceholderMark) == std::string::npos) return;
    m_log.debug("attempting icloud download...");
    // The user's sync service fetches the file by itself; here is nothing to ask for but patience.
    const auto target = folder / withoutMark(first.substr(1));
    for (int look = 0; look < kPollLimit && !m_services.files->exists(target); ++look)
        m_wait(kPollInterval);
    m_log.debug("download should be done!");
}

void CloudDataHandler::moveFilesToCloud() const {
    if (const auto cloud = cloudRoot())
        moveFolders(
            *m_services.files, localRoot(), *cloud, [](const std::string&) { return true; }, m_log);
}

void CloudDataHandler::moveFilesToLocal() const {
    const auto cloud = cloudRoot();
    if (!cloud) return;
    const auto known = readKnownDocuments(localRoot());
    if (!known) {
        m_log.error("error copying files: %@", known.error().message);
        return;
    }
    // Several devices may share the cloud folder, each with documents of its own.
    const auto isOurs = [&known](const std::string& entry) {
        const auto uuid = Uuid::parse(entry);
        return uuid && known->contains(*uuid);
    };
    moveFolders(*m_services.files, *cloud, localRoot(), isOurs, m_log);
}

} // namespace ledgerfinch
