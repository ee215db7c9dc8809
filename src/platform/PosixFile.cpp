// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/PosixFile.h"

#include "platform/Uuid.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ledgerfinch::posix {

namespace {

constexpr std::string_view kTemporaryMark = ".part-";
constexpr std::size_t kLongestName = 255;

template <class Call>
auto retryInterrupted(Call&& call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

std::filesystem::path folderOf(const std::filesystem::path& file) {
    return file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
}

/// Removes a temporary file unless it was renamed away.
class TemporaryFile {
public:
    explicit TemporaryFile(std::filesystem::path path) : m_path(std::move(path)) {}
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile() {
        if (!m_path.empty()) ::unlink(m_path.c_str());
    }
    void renamed() { m_path.clear(); }

private:
    std::filesystem::path m_path;
};

} // namespace

File::~File() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

Error systemError(std::string_view what, const std::filesystem::path& path, int number) {
    return {std::string(what) + " " + path.string() + ": " + std::generic_category().message(number), number};
}

Result<File> openForReading(const std::filesystem::path& path, int extraFlags) {
    File file(retryInterrupted(
        [&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | extraFlags); }));
    if (!file.isOpen()) return systemError("Couldn't open", path, errno);
    struct stat status {};
    if (::fstat(file.descriptor(), &status) != 0) return systemError("Couldn't open", path, errno);
    if (S_ISDIR(status.st_mode)) return systemError("Couldn't read", path, EISDIR);
    if (!S_ISREG(status.st_mode)) return systemError("Couldn't read", path, EINVAL);
    return file;
}

Result<std::string> readAll(const File& file, const std::filesystem::path& name, std::int64_t maximumBytes) {
    struct stat status {};
    if (::fstat(file.descriptor(), &status) != 0) return systemError("Couldn't read", name, errno);
    if (status.st_size > maximumBytes) return systemError("Couldn't read", name, EFBIG);

    // One byte more than the size, so that the end shows without another call; the file may have grown meanwhile.
    std::string bytes(static_cast<std::size_t>(status.st_size) + 1, '\0');
    std::size_t filled = 0;
    while (true) {
        const auto count = retryInterrupted([&] {
            return ::pread(file.descriptor(), bytes.data() + filled, bytes.size() - filled, static_cast<off_t>(filled));
        });
        if (count < 0) return systemError("Couldn't read", name, errno);
        if (count == 0) break;
        filled += static_cast<std::size_t>(count);
        if (static_cast<std::int64_t>(filled) > maximumBytes) return systemError("Couldn't read", name, EFBIG);
        if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
    }
    bytes.resize(filled);
    return bytes;
}

Result<void> writeAll(const File& file, const std::filesystem::path& name, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto count = retryInterrupted([&] { return ::write(file.descriptor(), bytes.data(), bytes.size()); });
        if (count < 0) return systemError("Couldn't write", name, errno);
        if (count == 0) return systemError("Couldn't write", name, EIO);
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return {};
}

bool isTemporaryName(std::string_view name) {
    return name.starts_with('.') && name.find(kTemporaryMark) != std::string_view::npos;
}

std::filesystem::path temporaryBeside(const std::filesystem::path& path) {
    const std::string mark = std::string(kTemporaryMark) + Uuid::random().text().substr(0, 13);
    std::string name = "." + path.filename().string();
    if (name.size() + mark.size() > kLongestName) name.resize(kLongestName - mark.size());
    return folderOf(path) / (name + mark);
}

Result<void> syncFolder(const std::filesystem::path& folder) {
    const File opened(retryInterrupted([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (!opened.isOpen() || ::fsync(opened.descriptor()) != 0) {
        // Some file systems have no sync of a folder; then there is nothing to wait for.
        if (errno != EINVAL && errno != ENOTSUP) return systemError("Couldn't sync", folder, errno);
    }
    return {};
}

Result<void> replaceFile(const std::filesystem::path& path, std::string_view bytes) {
    if (!path.has_filename()) return systemError("Couldn't write", path, EISDIR);
    const auto temporary = temporaryBeside(path);
    File file(retryInterrupted([&] {
        return ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR);
    }));
    if (!file.isOpen()) return systemError("Couldn't write", path, errno);
    TemporaryFile guard(temporary);

    if (auto written = writeAll(file, path, bytes); !written) return written;
    if (::fsync(file.descriptor()) != 0) return systemError("Couldn't sync", path, errno);
    // Network file systems tell of a full disk only here.
    if (::close(file.release()) != 0 && errno != EINTR) return systemError("Couldn't write", path, errno);
    if (::rename(temporary.c_str(), path.c_str()) != 0) return systemError("Couldn't write", path, errno);
    guard.renamed();
    return syncFolder(folderOf(path));
}

Result<void> createFolders(const std::filesystem::path& folder) {
    std::error_code error;
    if (std::filesystem::is_directory(folder, error)) return {};
    const auto parent = folder.has_filename() ? folder.parent_path() : folder.parent_path().parent_path();
    if (!parent.empty() && parent != folder) {
        if (auto made = createFolders(parent); !made) return made;
    }
    if (::mkdir(folder.c_str(), S_IRWXU) != 0) {
        const int number = errno;
        // Another process may have been quicker.
        if (number == EEXIST && std::filesystem::is_directory(folder, error)) return {};
        return systemError("Couldn't create", folder, number);
    }
    return {};
}

Result<File> openLocked(const std::filesystem::path& lockFile, bool wait) {
    File file(retryInterrupted(
        [&] { return ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR); }));
    if (!file.isOpen()) return systemError("Couldn't open", lockFile, errno);
    if (retryInterrupted([&] { return ::flock(file.descriptor(), LOCK_EX | (wait ? 0 : LOCK_NB)); }) != 0) {
        return systemError("Couldn't lock", lockFile, errno);
    }
    return file;
}

} // namespace ledgerfinch::posix
