// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

namespace ledgerfinch {

/// True when an address may get this server's token: same host and port, and never from https down to http.
[[nodiscard]] bool leadsToServer(std::string_view url, std::string_view server);

} // namespace ledgerfinch
