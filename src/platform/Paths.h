// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <filesystem>
#include <optional>

namespace ledgerfinch {

/// Where the program keeps its things (XDG Base Directory 0.8). With --data-dir everything lies under that folder.
struct Paths {
    std::filesystem::path container; ///< stores, documents, previews: the shared container
    std::filesystem::path config;    ///< the settings suite
    std::filesystem::path state;     ///< logs, locks

    /// From XDG_DATA_HOME, XDG_CONFIG_HOME, XDG_STATE_HOME (relative values are ignored) plus "ledgerfinch", or below
    /// `dataDirectory`
    /// ("container", "config", "state"). Creates the folders (0700); fails with the folder's name when one can't be
    /// made, entered or written to.
    static Result<Paths> standard(const std::optional<std::filesystem::path>& dataDirectory);
    /// The same folders for whoever only reads: none is made, none need be writable. Fails when that of the stores or
    /// that of the settings isn't there or can't be entered.
    static Result<Paths> standardToRead(const std::optional<std::filesystem::path>& dataDirectory);
};

} // namespace ledgerfinch
