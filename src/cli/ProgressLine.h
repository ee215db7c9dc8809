// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Console.h"

#include <string>
#include <string_view>

namespace ledgerfinch::cli {

/// One line on the terminal's standard error that is rewritten in place; nothing elsewhere. Gone when it goes.
class ProgressLine {
public:
    explicit ProgressLine(Console& console) : m_console(console) {}
    ~ProgressLine() { clear(); }
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(std::string_view text);
    void clear();

private:
    Console& m_console;
    std::string m_shown;
};

} // namespace ledgerfinch::cli
