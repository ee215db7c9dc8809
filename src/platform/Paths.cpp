// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Paths.h"

#include "platform/PosixFile.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <string>
#include <unistd.h>
#include <vector>

namespace ledgerfinch {

namespace {

std::filesystem::path homeFolder() {
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') return home;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16 * 1024);
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
        return found->pw_dir;
    }
    return "/";
}

/// XDG Base Directory 0.8: an unset, empty or relative value means the default below the home folder.
std::filesystem::path xdgFolder(const char* variable, const char* fallback) {
    const char* value = std::getenv(variable);
    const bool usable = value != nullptr && *value == '/';
    return (usable ? std::filesystem::path(value) : homeFolder() / fallback) / "ledgerfinch";
}

Result<void> checkReadable(const std::filesystem::path& folder) {
    if (::access(folder.c_str(), R_OK | X_OK) != 0) return posix::systemError("Couldn't enter", folder, errno);
    return {};
}

Result<void> prepare(const std::filesystem::path& folder) {
    if (auto made = posix::createFolders(folder); !made) return made;
    if (auto readable = checkReadable(folder); !readable) return readable;
    if (::access(folder.c_str(), W_OK) != 0) return posix::systemError("Couldn't write to", folder, errno);
    return {};
}

/// Where the folders lie, whether they are there or not.
Result<Paths> locate(const std::optional<std::filesystem::path>& dataDirectory) {
    if (!dataDirectory)
        return Paths{.container = xdgFolder("XDG_DATA_HOME", ".local/share"),
                     .config = xdgFolder("XDG_CONFIG_HOME", ".config"),
                     .state = xdgFolder("XDG_STATE_HOME", ".local/state")};
    std::error_code error;
    const auto base = std::filesystem::absolute(*dataDirectory, error);
    if (error || dataDirectory->empty())
        return posix::systemError("Couldn't enter", *dataDirectory, error ? error.value() : ENOENT);
    return Paths{.container = base / "container", .config = base / "config", .state = base / "state"};
}

} // namespace

Result<Paths> Paths::standard(const std::optional<std::filesystem::path>& dataDirectory) {
    auto paths = locate(dataDirectory);
    if (!paths) return paths;
    for (const auto& folder : {paths->container, paths->config, paths->state}) {
        if (auto prepared = prepare(folder); !prepared) return prepared.error();
    }
    return paths;
}

Result<Paths> Paths::standardToRead(const std::optional<std::filesystem::path>& dataDirectory) {
    auto paths = locate(dataDirectory);
    if (!paths) return paths;
    for (const auto& folder : {paths->container, paths->config}) {
        if (auto readable = checkReadable(folder); !readable) return readable.error();
    }
    return paths;
}

} // namespace ledgerfinch
