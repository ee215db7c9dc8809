// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <filesystem>
#include <string>
#include <string_view>

namespace ledgerfinch::cli {

enum class Overwrite { No, Yes };
enum class OutputError { Exists = 1, CannotWrite };

/// A terminal, a pipe or a device: it takes bytes and stays what it is.
bool isStream(const std::filesystem::path& name);

/// Writes a file that the person asked for, whole or not at all, readable by its owner; into a stream, the bytes alone.
/// A link is replaced, never followed. Error::code is an OutputError.
Result<void> writeOutputFile(const std::filesystem::path& file, std::string_view bytes, Overwrite overwrite);

/// A file name out of foreign text: no path, nothing hidden, no control characters, at most 200 bytes with its
/// extension (without the dot; may be empty). `fallback` when nothing is left.
std::string safeFileName(std::string_view stem, std::string_view extension, std::string_view fallback);

} // namespace ledgerfinch::cli
