// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/SqlFunctions.h"

#include "objectstore/Values.h"
#include "platform/Text.h"

#include <sqlite3.h>

namespace ledgerfinch::sqlite {
namespace {

int compareLocalized(void*, int firstSize, const void* first, int secondSize, const void* second) {
    return text::compareLocalizedStandard({static_cast<const char*>(first), static_cast<std::size_t>(firstSize)},
                                          {static_cast<const char*>(second), static_cast<std::size_t>(secondSize)});
}

/// A text compared with a number; null for one that is no number.
void number(sqlite3_context* context, int, sqlite3_value** arguments) {
    if (sqlite3_value_type(arguments[0]) != SQLITE_TEXT) {
        sqlite3_result_value(context, arguments[0]);
        return;
    }
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_value_text(arguments[0]));
    const auto size = static_cast<std::size_t>(sqlite3_value_bytes(arguments[0]));
    const auto value = values::numberFrom({bytes ? bytes : "", bytes ? size : 0});
    if (!value) return;
    if (const auto* integer = std::get_if<std::int64_t>(&*value))
        sqlite3_result_int64(context, *integer);
    else
        sqlite3_result_double(context, std::get<double>(*value));
}

} // namespace

int installFunctions(sqlite3* handle) {
    constexpr int kFlags = SQLITE_UTF8 | SQLITE_DETERMINISTIC | SQLITE_DIRECTONLY;
    if (const int code =
            sqlite3_create_function_v2(handle, "lf_number", 1, kFlags, nullptr, &number, nullptr, nullptr, nullptr);
        code != SQLITE_OK)
        return code;
    return sqlite3_create_collation_v2(handle, "lf_localized", SQLITE_UTF8, nullptr, &compareLocalized, nullptr);
}

} // namespace ledgerfinch::sqlite
