// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Database.h"
#include "objectstore/Model.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace ledgerfinch::schema {

/// What a store file says about itself.
struct StoreFile {
    std::unique_ptr<sqlite::Database> connection; ///< open for writing
    std::uint64_t identity = 0;
    std::vector<std::int64_t> entityNumbers; ///< for each entity of the model, its number in this file, for life
    std::int64_t lastChange = 0;             ///< the newest entry of the change log
    sqlite::Database::Fingerprint commit;    ///< when that was read
    bool hasCommit = false;
};

/// Opens or creates the file and brings it to the model. Looks first, without writing: a file that is damaged, not
/// ours, of a newer model or unreadable stays as it is.
Result<StoreFile> open(const Model& model, const StoreDescription& description, const Logger& log);

} // namespace ledgerfinch::schema
