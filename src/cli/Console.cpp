// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Console.h"

#include "cli/SecretPrompt.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <iostream>
#include <ostream>
#include <streambuf>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

/// Writes to a descriptor and remembers why it couldn't.
class DescriptorBuffer final : public std::streambuf {
public:
    explicit DescriptorBuffer(int descriptor) : m_descriptor(descriptor) {
        setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
    }
    [[nodiscard]] int error() const { return m_error; }

private:
    int_type overflow(int_type character) override {
        if (sync() != 0) return traits_type::eof();
        if (!traits_type::eq_int_type(character, traits_type::eof())) {
            *pptr() = traits_type::to_char_type(character);
            pbump(1);
        }
        return traits_type::not_eof(character);
    }
    int sync() override {
        const char* from = pbase();
        while (from < pptr() && m_error == 0) {
            const auto written = ::write(m_descriptor, from, static_cast<std::size_t>(pptr() - from));
            if (written >= 0)
                from += written;
            else if (errno != EINTR)
                m_error = errno;
        }
        setp(m_buffer.data(), m_buffer.data() + m_buffer.size());
        return m_error == 0 ? 0 : -1;
    }

    int m_descriptor;
    int m_error = 0;
    std::array<char, 16 * 1024> m_buffer{};
};

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

std::optional<std::size_t> terminalWidth(int descriptor) {
    if (const std::string columns = environment("COLUMNS"); !columns.empty()) {
        const long wanted = std::strtol(columns.c_str(), nullptr, 10);
        if (wanted > 0 && wanted < 100'000) return static_cast<std::size_t>(wanted);
    }
    winsize size{};
    if (::ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) return size.ws_col;
    return std::nullopt;
}

} // namespace

void Console::complain(std::string_view sentence) const {
    out.flush();
    err << sentence << '\n';
    err.flush();
}

void takeClosedStreams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(stream, F_GETFD) >= 0 || errno != EBADF) continue;
        // The lowest free number is this one. Opened the wrong way round, so that its use fails as that of a closed
        // one.
        const int opened = ::open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
        if (opened >= 0 && opened != stream) ::close(opened);
    }
}

struct StandardConsole::Private {
    DescriptorBuffer outBuffer{STDOUT_FILENO};
    DescriptorBuffer errBuffer{STDERR_FILENO};
    std::ostream out{&outBuffer};
    std::ostream err{&errBuffer};
    Console console{.in = std::cin, .out = out, .err = err, .width = {}, .readSecret = {}};
};

StandardConsole::StandardConsole() : m_d(std::make_unique<Private>()) {
    // A reader who leaves early is told by the failing write, not by a signal.
    std::signal(SIGPIPE, SIG_IGN);
    // And so is who may not write more into a file.
    std::signal(SIGXFSZ, SIG_IGN);
    auto& console = m_d->console;
    m_d->err << std::unitbuf;
    console.inIsTerminal = ::isatty(STDIN_FILENO) == 1;
    console.outIsTerminal = ::isatty(STDOUT_FILENO) == 1;
    const std::string terminal = environment("TERM");
    const bool obeysSequences = !terminal.empty() && terminal != "dumb";
    // A terminal that can't rewrite a line gets no progress.
    console.errIsTerminal = ::isatty(STDERR_FILENO) == 1 && obeysSequences;
    if (console.outIsTerminal) console.width = terminalWidth(STDOUT_FILENO).value_or(80);
    console.colour = console.outIsTerminal && environment("NO_COLOR").empty() && obeysSequences;
    console.readSecret = readSecretFromTerminal;
}

StandardConsole::~StandardConsole() = default;

Console& StandardConsole::console() {
    return m_d->console;
}

int StandardConsole::outputLost() {
    m_d->out.flush();
    const int error = m_d->outBuffer.error();
    return error == EPIPE ? 0 : error;
}

} // namespace ledgerfinch::cli
