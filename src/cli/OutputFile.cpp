// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/OutputFile.h"

#include "platform/Text.h"
#include "store/FilenameSchemes.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

Error failure(int number) {
    return {std::strerror(number), static_cast<int>(number == EEXIST ? OutputError::Exists : OutputError::CannotWrite)};
}

int writeAll(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const auto written = ::write(descriptor, bytes.data(), bytes.size());
        if (written < 0 && errno != EINTR) return errno;
        if (written > 0) bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return 0;
}

/// Gives the finished file its name; without overwriting, in a way that never replaces what appeared meanwhile.
int giveName(const std::string& temporary, const std::string& name, Overwrite overwrite) {
    if (overwrite == Overwrite::Yes) return ::rename(temporary.c_str(), name.c_str()) == 0 ? 0 : errno;
    if (::renameat2(AT_FDCWD, temporary.c_str(), AT_FDCWD, name.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return errno;
    if (::link(temporary.c_str(), name.c_str()) != 0) return errno;
    ::unlink(temporary.c_str());
    return 0;
}

/// Written beside, then renamed: whole or not at all.
int replace(const std::filesystem::path& file, std::string_view bytes, Overwrite overwrite) {
    const auto folder = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    std::string temporary = (folder / ".ledgerfinch-part-XXXXXX").string();
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) return errno;
    int error = writeAll(descriptor, bytes);
    if (error == 0 && ::fsync(descriptor) != 0) error = errno;
    ::close(descriptor);
    if (error == 0) error = giveName(temporary, file.string(), overwrite);
    if (error != 0) ::unlink(temporary.c_str());
    return error;
}

/// A terminal, a pipe, "/dev/null": takes bytes, and must never be replaced by a file.
int writeThrough(const std::filesystem::path& target, std::string_view bytes) {
    const int descriptor = ::open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    if (descriptor < 0) return errno;
    const int error = writeAll(descriptor, bytes);
    ::close(descriptor);
    return error;
}

Result<void> outcome(int error) {
    if (error != 0) return failure(error);
    return {};
}

} // namespace

bool isStream(const std::filesystem::path& name) {
    struct stat status {};
    if (::stat(name.c_str(), &status) != 0) return false;
    if (S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode)) return true;
    // The system's names for what is open already, like "/dev/stdout", which may be a file.
    std::error_code error;
    const auto path = std::filesystem::absolute(name, error).lexically_normal().string();
    return S_ISREG(status.st_mode) && std::filesystem::is_symlink(name, error) &&
           (path.starts_with("/dev/") || path.starts_with("/proc/"));
}

Result<void> writeOutputFile(const std::filesystem::path& file, std::string_view bytes, Overwrite overwrite) {
    if (isStream(file)) return outcome(writeThrough(file, bytes));
    std::error_code ignored;
    const auto status = std::filesystem::symlink_status(file, ignored);
    if (std::filesystem::exists(status)) {
        if (overwrite == Overwrite::No) return failure(EEXIST);
        if (!std::filesystem::is_regular_file(status) && !std::filesystem::is_symlink(status))
            return failure(std::filesystem::is_directory(status) ? EISDIR : EINVAL);
    }
    return outcome(replace(file, bytes, overwrite));
}

std::string safeFileName(std::string_view stem, std::string_view extension, std::string_view fallback) {
    constexpr std::size_t kMaximum = 200;
    const auto cleaned = [](std::string_view text) {
        std::string clean = sanitizedForFileName(text);
        while (!clean.empty() && (clean.front() == '.' || clean.front() == ' ' || clean.front() == '-'))
            clean.erase(0, 1);
        while (!clean.empty() && (clean.back() == '.' || clean.back() == ' '))
            clean.pop_back();
        return clean;
    };
    std::string suffix = cleaned(extension);
    if (suffix.size() > 16) suffix.clear();
    std::string name = cleaned(stem);
    if (name.empty()) name = fallback;
    const std::size_t room = kMaximum - (suffix.empty() ? 0 : suffix.size() + 1);
    if (name.size() > room) {
        std::size_t end = room;
        while (end > 0 && (static_cast<unsigned char>(name[end]) & 0xC0u) == 0x80u)
            --end;
        name.resize(end);
    }
    return suffix.empty() ? name : name + "." + suffix;
}

} // namespace ledgerfinch::cli
