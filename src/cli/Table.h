// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Console.h"
#include "cli/DisplayText.h"

#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::cli {

struct TableColumn {
    std::string header;
    Alignment alignment = Alignment::Left;
    /// A column that may be cut down to this many columns when the terminal is narrow; 0: never.
    std::size_t shrinksTo = 0;
};

/// Rows under headers, columns aligned. Cells are foreign text; they are made printable here. Widths are settled by the
/// first rows, then each row is written as it comes, so that a table of any length needs little memory.
class Table {
public:
    Table(Console& console, std::vector<TableColumn> columns);
    void add(std::vector<std::string> cells);
    /// Writes what is still held back.
    void finish();

private:
    void settleWidths();
    void fitInto(std::size_t width);
    void writeHeader();
    void writeRow(const std::vector<std::string>& cells);

    static constexpr std::size_t kRowsThatSettle = 500;
    Console& m_console;
    std::vector<TableColumn> m_columns;
    std::vector<std::vector<std::string>> m_held;
    std::vector<std::size_t> m_widths;
};

} // namespace ledgerfinch::cli
