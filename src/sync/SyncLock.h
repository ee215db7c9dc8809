// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/FileSystem.h"
#include "platform/Paths.h"

#include <filesystem>

namespace ledgerfinch {

/// The right to sync one store, held by at most one pass of all processes; ends with the object or the process.
struct SyncLock {
    /// Fails at once when somebody else has it.
    static Result<FileLock> tryLock(const Paths& paths, const std::filesystem::path& storeFile) {
        return FileLock::tryLock(paths.state / (storeFile.stem().string() + ".sync.lock"));
    }
};

} // namespace ledgerfinch
