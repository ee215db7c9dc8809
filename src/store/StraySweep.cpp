// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/DocumentFiles.h"

#include "platform/PosixFile.h"
#include "records/JsonReader.h"
#include "store/StoreFolder.h"
#include "store/StoreNames.h"
#include "store/StoreRemoval.h"

#include <chrono>
#include <filesystem>
#include <stop_token>
#include <sys/stat.h>

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::hours kUntouched{24};

Timestamp momentOf(const timespec& time) {
    return Timestamp(std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::seconds(time.tv_sec) +
                                                                           std::chrono::nanoseconds(time.tv_nsec)));
}

/// When this entry, not what a link leads to, was last written or put in place. The change time counts too: an unpacked
/// backup has old modification times.
std::optional<Timestamp> lastTouched(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
    return std::max(momentOf(status.st_mtim), momentOf(status.st_ctim));
}

class Sweep {
public:
    Sweep(FileSystem& files, const KnownDocuments& known, Timestamp now, std::stop_token stop)
        : m_files(files), m_known(known), m_before(now - kUntouched), m_stop(std::move(stop)) {}

    /// Unfinished copies beside the folders themselves.
    void sweepTemporaries(const fs::path& folder) {
        forEachEntry(folder, [this](const fs::path& entry) {
            if (posix::isTemporaryName(entry.filename().string())) removeIfOld(entry);
        });
    }

    void sweepFolders(const fs::path& root, const fs::path& documents) {
        sweepTemporaries(root);
        forEachEntry(root, [&](const fs::path& entry) {
            const auto uuid = Uuid::parse(entry.filename().string());
            // What isn't named by a uuid was not made here.
            if (!uuid || uuid->text() != entry.filename().string()) return;
            if (m_known.contains(*uuid))
                sweepTemporaries(entry);
            else if (isReplaceable(documents / uuid->text(), *uuid))
                removeIfOld(entry);
        });
    }

    [[nodiscard]] std::size_t removed() const { return m_removed; }

private:
    /// A downloaded file is named by its document's uuid and can be fetched again. Any other was added on this device
    /// and may exist nowhere else, whatever the stores say.
    static bool isReplaceable(const fs::path& folder, const Uuid& uuid) {
        bool replaceable = true;
        forEachEntry(folder, [&](const fs::path& file) {
            const auto name = file.filename().string();
            replaceable &= name.starts_with(uuid.text() + ".") || posix::isTemporaryName(name);
        });
        return replaceable;
    }

    template <class Visit>
    static void forEachEntry(const fs::path& folder, Visit visit) {
        std::error_code error;
        if (fs::symlink_status(folder, error).type() != fs::file_type::directory) return;
        std::vector<fs::path> entries;
        for (fs::directory_iterator at(folder, error); !error && at != fs::directory_iterator(); at.increment(error))
            entries.push_back(at->path());
        for (const auto& entry : entries)
            visit(entry);
    }

    /// The entry and everything in it.
    [[nodiscard]] bool isOld(const fs::path& entry) const {
        const auto touched = lastTouched(entry);
        if (!touched || *touched >= m_before) return false;
        bool old = true;
        forEachEntry(entry, [&](const fs::path& inner) { old = old && isOld(inner); });
        return old;
    }

    void removeIfOld(const fs::path& entry) {
        if (!m_stop.stop_requested() && isOld(entry) && m_files.removeAll(entry)) ++m_removed;
    }

    FileSystem& m_files;
    const KnownDocuments& m_known;
    Timestamp m_before;
    std::stop_token m_stop;
    std::size_t m_removed = 0;
};

} // namespace

std::size_t DocumentFiles::sweepStrays(std::stop_token stop) const {
    // Only the shared container: other devices put their own documents into the cloud folder.
    const auto root = m_cloud.localRoot();
    const auto known = readKnownDocuments(root, storeNames::expected(*m_services.defaults));
    if (!known) {
        m_log.info("Left strays alone: %{public}s", known.error().message);
        return 0;
    }
    if (m_storeIsNew || !known->emptyStores.empty()) {
        m_log.info("Left strays alone: %{public}s", "a store is new");
        return 0;
    }
    Sweep sweep(*m_services.files, *known, m_services.clock->now(), std::move(stop));
    sweep.sweepTemporaries(root);
    // Previews first: beside the document's folder it shows what kind of document that was.
    sweep.sweepFolders(root / kPreviews, root / kDocuments);
    sweep.sweepFolders(root / kDocuments, root / kDocuments);
    return sweep.removed() + removeLeftoverStores(m_services);
}

} // namespace ledgerfinch
