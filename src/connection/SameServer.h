// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

namespace ledgerfinch {

/// True when an address may get this server's token: same host and port, and never from https down to http.
[[nodiscard]] bool leadsToServer(std::string_view url, std::string_view server);

/// Whether the path of an address lies under that of the server's, which may be one of several behind one host. Steps
/// upwards lie nowhere.
[[nodiscard]] bool isUnderPathOf(std::string_view url, std::string_view server);

} // namespace ledgerfinch
