// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch::cli {

/// What a command reads from and writes to. The streams outlive it.
struct Console {
    std::istream& in;
    std::ostream& out;
    std::ostream& err;
    bool inIsTerminal = false;
    bool outIsTerminal = false;
    bool errIsTerminal = false;
    /// Columns of the terminal; absent: lines may have any length.
    std::optional<std::size_t> width;
    /// Colours are welcome on `out`.
    bool colour = false;
    /// Shows the prompt and reads one line without echo; absent when there is no terminal to ask on.
    std::function<std::optional<std::string>(std::string_view prompt)> readSecret;

    /// Writes a sentence and a line feed to `err`.
    void complain(std::string_view sentence) const;
};

/// Puts something that can be neither read nor written in place of standard streams that are closed, so that no file
/// that the program opens is taken for one of them. First of all.
void takeClosedStreams();

/// The process's own streams. Writing to a pipe that nobody reads any more ends quietly: see outputLost().
class StandardConsole {
public:
    StandardConsole();
    ~StandardConsole();
    StandardConsole(const StandardConsole&) = delete;
    StandardConsole& operator=(const StandardConsole&) = delete;

    Console& console();
    /// Flushes; the error number of the first write that failed other than by a reader who left, 0 when there was none.
    int outputLost();

private:
    struct Private;
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch::cli
