// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/FileSystem.h"
#include "platform/Paths.h"
#include "store/StoreRemoval.h"

#include <cerrno>

#include <filesystem>

namespace ledgerfinch {

/// The right to sync one store, held by at most one pass of all processes; ends with the object or the process.
struct SyncLock {
    /// Fails at once when somebody else has it, or when the lock can't be made at all.
    static Result<FileLock> tryLock(const Paths& paths, const std::filesystem::path& storeFile) {
        return FileLock::tryLock(syncLockFile(paths, storeFile));
    }
    /// Whether a failure means that somebody else has it.
    [[nodiscard]] static bool isHeldElsewhere(const Error& error) { return error.code == EWOULDBLOCK; }
};

} // namespace ledgerfinch
