// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <filesystem>

namespace ledgerfinch::bench {

struct BareWrite {
    double seconds = 0;
    std::int64_t rows = 0;
};

/// Writes the records of a synced store into a new file with the same tables and indexes, by prepared statements, one
/// transaction for each record with all that belongs to it: what the same sync would cost without a program around it.
/// Reading the rows isn't timed. Throws std::runtime_error when SQLite refuses something.
BareWrite writeBare(const std::filesystem::path& store, const std::filesystem::path& target);

} // namespace ledgerfinch::bench
