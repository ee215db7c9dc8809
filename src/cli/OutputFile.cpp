// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/OutputFile.h"

#include "platform/Text.h"
#include "store/FilenameSchemes.h"

#include <array>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <stdio.h>
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
    return ::fsync(descriptor) == 0 ? 0 : errno;
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

} // namespace

Result<void> writeOutputFile(const std::filesystem::path& file, std::string_view bytes, Overwrite overwrite) {
    std::error_code ignored;
    if (overwrite == Overwrite::No && std::filesystem::exists(std::filesystem::symlink_status(file, ignored)))
        return failure(EEXIST);
    const auto folder = file.has_parent_path() ? file.parent_path() : std::filesystem::path(".");
    std::string temporary = (folder / ".ledgerfinch-part-XXXXXX").string();
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) return failure(errno);
    int error = writeAll(descriptor, bytes);
    ::close(descriptor);
    if (error == 0) error = giveName(temporary, file.string(), overwrite);
    if (error == 0) return {};
    ::unlink(temporary.c_str());
    return failure(error);
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
