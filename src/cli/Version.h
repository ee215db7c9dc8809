// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

namespace ledgerfinch::cli {
/// The project's version, as the build settings name it.
inline constexpr std::string_view kVersion = LEDGERFINCH_VERSION;
} // namespace ledgerfinch::cli
