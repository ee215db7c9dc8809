// SPDX-License-Identifier: GPL-3.0-or-later
// A disk that is full, for one process: preloaded into it, every write to a file below the folder LF_FULL_FOLDER fails
// as on a full file system once LF_FULL_AFTER bytes (0 when unset) were written there.
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

template <class Function>
Function next(const char* name) {
    return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool liesOnFullDisk(int descriptor) {
    static const char* const folder = std::getenv("LF_FULL_FOLDER");
    if (!folder) return false;
    std::array<char, 4096> path{};
    const std::string link = "/proc/self/fd/" + std::to_string(descriptor);
    const auto length = ::readlink(link.c_str(), path.data(), path.size());
    return length > 0 && std::string_view(path.data(), static_cast<std::size_t>(length)).starts_with(folder);
}

/// False, with errno set, when there is no room for so many bytes more.
bool takeRoom(int descriptor, std::size_t bytes) {
    const int before = errno;
    if (!liesOnFullDisk(descriptor)) {
        errno = before;
        return true;
    }
    static std::atomic<long> room = [] {
        const char* text = std::getenv("LF_FULL_AFTER");
        return text ? std::atol(text) : 0;
    }();
    errno = ENOSPC;
    if (room.fetch_sub(static_cast<long>(bytes)) < static_cast<long>(bytes)) {
        room = 0;
        return false;
    }
    errno = before;
    return true;
}

} // namespace

extern "C" {

ssize_t write(int descriptor, const void* bytes, size_t count) {
    static const auto real = next<ssize_t (*)(int, const void*, size_t)>("write");
    return takeRoom(descriptor, count) ? real(descriptor, bytes, count) : -1;
}

ssize_t pwrite(int descriptor, const void* bytes, size_t count, off_t offset) {
    static const auto real = next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite");
    return takeRoom(descriptor, count) ? real(descriptor, bytes, count, offset) : -1;
}

ssize_t pwrite64(int descriptor, const void* bytes, size_t count, off64_t offset) {
    static const auto real = next<ssize_t (*)(int, const void*, size_t, off64_t)>("pwrite64");
    return takeRoom(descriptor, count) ? real(descriptor, bytes, count, offset) : -1;
}

int fallocate(int descriptor, int mode, off_t offset, off_t length) {
    static const auto real = next<int (*)(int, int, off_t, off_t)>("fallocate");
    return takeRoom(descriptor, static_cast<std::size_t>(length)) ? real(descriptor, mode, offset, length) : -1;
}
}
