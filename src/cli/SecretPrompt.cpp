// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/SecretPrompt.h"

#include <array>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<int, 5> kSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};
volatile std::sig_atomic_t caughtSignal = 0;

void remember(int number) {
    caughtSignal = number;
}

/// Holds the listed signals back, but for the moments in which waitForInput() waits.
class SignalsHeldBack {
public:
    SignalsHeldBack() {
        caughtSignal = 0;
        struct sigaction action {};
        action.sa_handler = remember;
        sigemptyset(&action.sa_mask);
        sigset_t held;
        sigemptyset(&held);
        for (std::size_t index = 0; index < kSignals.size(); ++index) {
            sigaddset(&held, kSignals[index]);
            sigaction(kSignals[index], &action, &m_before[index]);
        }
        pthread_sigmask(SIG_BLOCK, &held, &m_maskBefore);
    }
    ~SignalsHeldBack() {
        for (std::size_t index = 0; index < kSignals.size(); ++index)
            sigaction(kSignals[index], &m_before[index], nullptr);
        pthread_sigmask(SIG_SETMASK, &m_maskBefore, nullptr);
    }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

    /// False when a signal came. No signal can slip in between the look and the wait.
    bool waitForInput(int terminal) const {
        pollfd waiting{terminal, POLLIN, 0};
        while (::ppoll(&waiting, 1, nullptr, &m_maskBefore) < 0)
            if (errno != EINTR || caughtSignal != 0) return false;
        return true;
    }

private:
    std::array<struct sigaction, kSignals.size()> m_before{};
    sigset_t m_maskBefore{};
};

class EchoOff {
public:
    explicit EchoOff(int terminal) : m_terminal(terminal), m_known(tcgetattr(terminal, &m_before) == 0) {
        if (!m_known) return;
        termios quiet = m_before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL);
        tcsetattr(terminal, TCSAFLUSH, &quiet);
    }
    ~EchoOff() {
        if (m_known) tcsetattr(m_terminal, TCSAFLUSH, &m_before);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    int m_terminal;
    termios m_before{};
    bool m_known;
};

void write(int terminal, std::string_view text) {
    while (!text.empty()) {
        const auto written = ::write(terminal, text.data(), text.size());
        if (written < 0) return;
        text.remove_prefix(static_cast<std::size_t>(written));
    }
}

/// One line; absent when a signal came, at the end of input, or when it is too long.
std::optional<std::string> readLine(int terminal, const SignalsHeldBack& signals) {
    std::string line;
    while (line.size() <= 4096) {
        char character = 0;
        if (!signals.waitForInput(terminal)) return std::nullopt;
        if (::read(terminal, &character, 1) < 1) return std::nullopt;
        if (character == '\n') return line;
        line.push_back(character);
    }
    return std::nullopt;
}

} // namespace

std::optional<std::string> readSecretFromTerminal(std::string_view prompt) {
    const int terminal = ::open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY);
    if (terminal < 0) return std::nullopt;
    std::optional<std::string> line;
    int pending = 0;
    do {
        pending = 0;
        {
            const SignalsHeldBack signals;
            EchoOff quiet(terminal);
            write(terminal, prompt);
            line = readLine(terminal, signals);
            write(terminal, "\n");
            pending = caughtSignal;
        }
        // Everything is as it was: what came meanwhile takes its course, and after a stop the question is asked again.
        if (pending != 0) ::raise(pending);
    } while (pending == SIGTSTP);
    ::close(terminal);
    return line;
}

} // namespace ledgerfinch::cli
