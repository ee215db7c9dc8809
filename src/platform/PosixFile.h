// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>

/// Small steps on files that the settings, the secrets, the log and the file system share. Errors carry the path and
/// the system's text, and errno as their code. Everything is closed on exec.
namespace ledgerfinch::posix {

/// An open descriptor.
class File {
public:
    File() = default;
    explicit File(int descriptor) : m_descriptor(descriptor) {}
    File(File&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    File& operator=(File&& other) noexcept {
        std::swap(m_descriptor, other.m_descriptor);
        return *this;
    }
    ~File();

    [[nodiscard]] bool isOpen() const { return m_descriptor >= 0; }
    [[nodiscard]] int descriptor() const { return m_descriptor; }
    int release() { return std::exchange(m_descriptor, -1); }

private:
    int m_descriptor = -1;
};

/// "<what> <path>: <the system's text>", with errno as the code.
Error systemError(std::string_view what, const std::filesystem::path& path, int number);

/// A plain file, for reading. Never waits at a pipe.
Result<File> openForReading(const std::filesystem::path& file, int extraFlags = 0);
Result<std::string> readAll(const File& file, const std::filesystem::path& name, std::int64_t maximumBytes);
Result<void> writeAll(const File& file, const std::filesystem::path& name, std::string_view bytes);

/// True for the names under which replaceFile() writes before it renames.
bool isTemporaryName(std::string_view name);
/// A fresh name in the folder of `path` that isTemporaryName() knows.
std::filesystem::path temporaryBeside(const std::filesystem::path& path);
/// Writes beside (mode 0600 from the first moment), syncs, renames over `file`, syncs the folder. When it fails before
/// the rename, the old file is untouched and nothing is left beside it.
Result<void> replaceFile(const std::filesystem::path& file, std::string_view bytes);
Result<void> syncFolder(const std::filesystem::path& folder);

/// All missing parents too, mode 0700.
Result<void> createFolders(const std::filesystem::path& folder);

/// The lock file, locked (flock); waits for another holder when `wait`. The lock goes with the descriptor.
Result<File> openLocked(const std::filesystem::path& lockFile, bool wait);

} // namespace ledgerfinch::posix
