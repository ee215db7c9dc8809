// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ProgressLine.h"

#include "cli/DisplayText.h"

#include <ostream>

namespace ledgerfinch::cli {

void ProgressLine::show(std::string_view text) {
    if (!m_console.errIsTerminal || text == m_shown) return;
    m_shown = text;
    // One column stays free: a full line would wrap and could not be rewritten.
    const std::size_t width = m_console.width.value_or(80);
    m_console.err << '\r' << truncated(printable(text), width > 1 ? width - 1 : width) << "\x1b[K" << std::flush;
}

void ProgressLine::clear() {
    if (m_shown.empty()) return;
    m_shown.clear();
    m_console.err << "\r\x1b[K" << std::flush;
}

} // namespace ledgerfinch::cli
