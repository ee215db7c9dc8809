// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Table.h"

#include <algorithm>
#include <numeric>
#include <ostream>

namespace ledgerfinch::cli {
namespace {
constexpr std::size_t kGap = 2;
}

Table::Table(Console& console, std::vector<TableColumn> columns) : m_console(console), m_columns(std::move(columns)) {}

void Table::add(std::vector<std::string> cells) {
    cells.resize(m_columns.size());
    for (auto& cell : cells)
        cell = printable(cell);
    if (!m_widths.empty()) {
        writeRow(cells);
        return;
    }
    m_held.push_back(std::move(cells));
    if (m_held.size() == kRowsThatSettle) settleWidths();
}

void Table::finish() {
    if (m_widths.empty()) settleWidths();
    m_console.out.flush();
}

void Table::settleWidths() {
    for (const auto& column : m_columns)
        m_widths.push_back(displayWidth(column.header));
    for (const auto& row : m_held)
        for (std::size_t index = 0; index < row.size(); ++index)
            m_widths[index] = std::max(m_widths[index], displayWidth(row[index]));
    if (m_console.width) fitInto(*m_console.width);
    writeHeader();
    for (const auto& row : m_held)
        writeRow(row);
    m_held.clear();
}

/// Takes column by column from whichever flexible one is widest.
void Table::fitInto(std::size_t width) {
    const std::size_t gaps = m_columns.empty() ? 0 : kGap * (m_columns.size() - 1);
    std::size_t total = std::accumulate(m_widths.begin(), m_widths.end(), gaps);
    while (total > width) {
        std::size_t widest = m_columns.size();
        for (std::size_t index = 0; index < m_columns.size(); ++index) {
            const auto least = m_columns[index].shrinksTo;
            if (least == 0 || m_widths[index] <= least) continue;
            if (widest == m_columns.size() || m_widths[index] > m_widths[widest]) widest = index;
        }
        if (widest == m_columns.size()) return;
        --m_widths[widest];
        --total;
    }
}

void Table::writeHeader() {
    std::vector<std::string> headers;
    for (const auto& column : m_columns)
        headers.push_back(column.header);
    if (m_console.colour) m_console.out << "\x1b[1m";
    writeRow(headers);
    if (m_console.colour) m_console.out << "\x1b[0m" << std::flush;
}

void Table::writeRow(const std::vector<std::string>& cells) {
    std::string line;
    for (std::size_t index = 0; index < cells.size(); ++index) {
        const bool mayCut = m_console.width && m_columns[index].shrinksTo > 0;
        line += padded(mayCut ? truncated(cells[index], m_widths[index]) : cells[index], m_widths[index],
                       m_columns[index].alignment);
        if (index + 1 < cells.size()) line.append(kGap, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    m_console.out << line << '\n';
}

} // namespace ledgerfinch::cli
