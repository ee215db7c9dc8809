// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/FileSystem.h"

#include "platform/PosixFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace ledgerfinch {

namespace {

namespace fs = std::filesystem;

/// A trailing slash makes the system follow a link; the name alone means the link itself.
fs::path withoutTrailingSlash(const fs::path& path) {
    return !path.has_filename() && path.has_relative_path() ? path.parent_path() : path;
}

bool liesWithin(const fs::path& path, const fs::path& folder) {
    const auto outer = fs::weakly_canonical(folder);
    const auto inner = fs::weakly_canonical(path);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first == outer.end();
}

/// Links stay links; only plain files, folders and links are copied.
void copyTree(const fs::path& from, const fs::path& to, std::error_code& error) {
    const auto status = fs::symlink_status(from, error);
    if (error) return;
    if (status.type() == fs::file_type::symlink) {
        fs::copy_symlink(from, to, error);
    } else if (status.type() == fs::file_type::regular) {
        fs::copy_file(from, to, error);
        if (!error) fs::permissions(to, fs::perms::owner_read | fs::perms::owner_write, error);
    } else if (status.type() == fs::file_type::directory) {
        if (::mkdir(to.c_str(), S_IRWXU) != 0) {
            error = std::error_code(errno, std::generic_category());
            return;
        }
        fs::directory_iterator entries(from, error);
        while (!error && entries != fs::directory_iterator()) {
            copyTree(entries->path(), to / entries->path().filename(), error);
            if (!error) entries.increment(error);
        }
    } else {
        error = std::make_error_code(std::errc::invalid_argument);
    }
}

/// Everything written to the file system that holds `folder` is on the disk afterwards.
int syncFileSystem(const fs::path& folder) {
    const posix::File opened(::open(folder.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    return opened.isOpen() && ::syncfs(opened.descriptor()) == 0 ? 0 : errno;
}

class DiskFileSystem final : public FileSystem {
public:
    Result<void> createDirectories(const fs::path& folder) override { return posix::createFolders(folder); }

    Result<void> write(const fs::path& file, std::string_view bytes) override {
        return posix::replaceFile(file, bytes);
    }

    Result<std::string> read(const fs::path& file, std::int64_t maximumBytes) override {
        auto opened = posix::openForReading(file);
        if (!opened) return opened.error();
        return posix::readAll(*opened, file, maximumBytes);
    }

    Result<std::vector<std::string>> list(const fs::path& folder) override {
        std::vector<std::string> names;
        std::error_code error;
        fs::directory_iterator entries(folder, error);
        if (error == std::errc::no_such_file_or_directory) return names;
        while (!error && entries != fs::directory_iterator()) {
            auto name = entries->path().filename().string();
            if (!posix::isTemporaryName(name)) names.push_back(std::move(name));
            entries.increment(error);
        }
        if (error) return posix::systemError("Couldn't list", folder, error.value());
        std::sort(names.begin(), names.end());
        return names;
    }

    Result<std::int64_t> size(const fs::path& file) override {
        struct stat status {};
        if (::stat(file.c_str(), &status) != 0) return posix::systemError("Couldn't read", file, errno);
        if (!S_ISREG(status.st_mode)) return posix::systemError("Couldn't read", file, EINVAL);
        return static_cast<std::int64_t>(status.st_size);
    }

    Result<void> removeAll(const fs::path& path) override {
        std::error_code error;
        fs::remove_all(withoutTrailingSlash(path), error);
        if (error) return posix::systemError("Couldn't remove", path, error.value());
        return {};
    }

    Result<void> copyAll(const fs::path& from, const fs::path& to) override {
        const auto target = withoutTrailingSlash(to);
        std::error_code error;
        if (fs::symlink_status(target, error).type() != fs::file_type::not_found) {
            return posix::systemError("Couldn't copy to", to, EEXIST);
        }
        if (liesWithin(target, from)) return posix::systemError("Couldn't copy to", to, EINVAL);

        const auto temporary = posix::temporaryBeside(target);
        error.clear();
        copyTree(withoutTrailingSlash(from), temporary, error);
        int number = error.value();
        if (number == 0) number = syncFileSystem(temporary);
        if (number == 0 && ::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, target.c_str(), RENAME_NOREPLACE) != 0) {
            number = errno;
            // Without that flag in the file system, the look above has to do.
            if (number == EINVAL) number = ::rename(temporary.c_str(), target.c_str()) == 0 ? 0 : errno;
        }
        if (number != 0) {
            fs::remove_all(temporary, error);
            return posix::systemError("Couldn't copy to", to, number);
        }
        return posix::syncFolder(target.has_parent_path() ? target.parent_path() : fs::path("."));
    }

    [[nodiscard]] bool exists(const fs::path& path) const override {
        std::error_code error;
        return fs::exists(path, error);
    }
};

} // namespace

std::unique_ptr<FileSystem> makeFileSystem() {
    return std::make_unique<DiskFileSystem>();
}

Result<FileLock> FileLock::tryLock(const std::filesystem::path& file) {
    auto locked = posix::openLocked(file, false);
    if (!locked) return locked.error();
    return FileLock(locked->release());
}

FileLock::FileLock(FileLock&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
    std::swap(m_descriptor, other.m_descriptor);
    return *this;
}

FileLock::~FileLock() {
    if (m_descriptor >= 0) ::close(m_descriptor);
}

} // namespace ledgerfinch
