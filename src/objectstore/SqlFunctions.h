// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

struct sqlite3;

namespace ledgerfinch::sqlite {

/// The functions and collations that compiled queries use: lf_number(text), collation lf_localized. An SQLite code.
int installFunctions(sqlite3* handle);

} // namespace ledgerfinch::sqlite
