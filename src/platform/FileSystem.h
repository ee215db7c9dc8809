// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

/// The files of the program. One implementation on disk; tests wrap it to make an operation fail. Thread-safe.
class FileSystem {
public:
    virtual ~FileSystem() = default;
    /// With all missing parents, mode 0700.
    virtual Result<void> createDirectories(const std::filesystem::path& folder) = 0;
    /// Under a temporary name (".<name>.part-…") in the same folder, synced, renamed, the folder synced; mode 0600. The
    /// old file stays whole until the rename.
    virtual Result<void> write(const std::filesystem::path& file, std::string_view bytes) = 0;
    virtual Result<std::string> read(const std::filesystem::path& file, std::int64_t maximumBytes) = 0;
    /// Names of the entries, sorted, without temporary files; empty for a folder that isn't there.
    virtual Result<std::vector<std::string>> list(const std::filesystem::path& folder) = 0;
    virtual Result<std::int64_t> size(const std::filesystem::path& file) = 0;
    /// A file or a whole folder; removing what isn't there succeeds. Symbolic links are removed, never followed.
    virtual Result<void> removeAll(const std::filesystem::path& path) = 0;
    /// A whole folder; the target must not exist.
    virtual Result<void> copyAll(const std::filesystem::path& from, const std::filesystem::path& to) = 0;
    [[nodiscard]] virtual bool exists(const std::filesystem::path& path) const = 0;
};

std::unique_ptr<FileSystem> makeFileSystem();

/// An advisory lock on a file (flock), released when it goes or the process ends.
class FileLock {
public:
    /// Fails at once when another holder (in this or another process) has it.
    static Result<FileLock> tryLock(const std::filesystem::path& file);
    FileLock(FileLock&& other) noexcept;
    FileLock& operator=(FileLock&& other) noexcept;
    ~FileLock();

private:
    explicit FileLock(int descriptor) : m_descriptor(descriptor) {}
    int m_descriptor = -1;
};

} // namespace ledgerfinch
