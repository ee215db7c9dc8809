// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Subprocess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

struct Pipe {
    Pipe() {
        if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    }
    std::array<int, 2> ends{};
};

void closeOnce(int& descriptor) {
    if (descriptor >= 0) ::close(descriptor);
    descriptor = -1;
}

[[noreturn]] void become(const std::vector<std::string>& words, const std::vector<std::string>& environment) {
    std::vector<char*> arguments{const_cast<char*>(LEDGERFINCH_CLI)};
    for (const auto& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);
    std::vector<char*> variables{const_cast<char*>("PATH=/usr/bin:/bin"), const_cast<char*>("TZ=Europe/Berlin"),
                                 const_cast<char*>("LC_ALL=C.UTF-8"),
                                 const_cast<char*>("DBUS_SESSION_BUS_ADDRESS=disabled:")};
    if (const char* sanitizer = std::getenv("LSAN_OPTIONS")) {
        static const std::string option = std::string("LSAN_OPTIONS=") + sanitizer;
        variables.push_back(const_cast<char*>(option.c_str()));
    }
    const bool ownTerminal = std::any_of(environment.begin(), environment.end(),
                                         [](const std::string& variable) { return variable.starts_with("TERM="); });
    if (!ownTerminal) variables.push_back(const_cast<char*>("TERM=xterm"));
    for (const auto& variable : environment)
        variables.push_back(const_cast<char*>(variable.c_str()));
    variables.push_back(nullptr);
    ::execve(LEDGERFINCH_CLI, arguments.data(), variables.data());
    ::_exit(127);
}

std::string readAll(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace

Subprocess::Subprocess(std::vector<std::string> words, const std::vector<std::string>& environment, Streams streams,
                       const std::function<void()>& prepare) {
    if (streams == Streams::Terminal) {
        winsize size{24, 80, 0, 0};
        m_pid = ::forkpty(&m_output, nullptr, nullptr, &size);
        if (m_pid == 0) {
            if (prepare) prepare();
            become(words, environment);
        }
        m_input = ::dup(m_output);
        return;
    }
    Pipe input;
    Pipe output;
    Pipe error;
    m_pid = ::fork();
    if (m_pid == 0) {
        ::dup2(input.ends[0], STDIN_FILENO);
        ::dup2(output.ends[1], STDOUT_FILENO);
        ::dup2(error.ends[1], STDERR_FILENO);
        ::setsid(); // no terminal to ask on
        if (prepare) prepare();
        become(words, environment);
    }
    ::close(input.ends[0]);
    ::close(output.ends[1]);
    ::close(error.ends[1]);
    m_input = input.ends[1];
    m_output = output.ends[0];
    m_error = error.ends[0];
}

Subprocess::~Subprocess() {
    closeOnce(m_input);
    closeOnce(m_output);
    closeOnce(m_error);
    if (m_pid <= 0) return;
    ::kill(m_pid, SIGKILL);
    ::waitpid(m_pid, nullptr, 0);
}

void Subprocess::write(const std::string& text) {
    [[maybe_unused]] const auto written = ::write(m_input, text.data(), text.size());
}

void Subprocess::closeInput() {
    closeOnce(m_input);
}
void Subprocess::closeOutput() {
    closeOnce(m_output);
}

bool Subprocess::readSome() {
    std::array<pollfd, 2> waiting{{{m_output, POLLIN, 0}, {m_error, POLLIN, 0}}};
    if (m_output < 0 && m_error < 0) return false;
    if (::poll(waiting.data(), waiting.size(), -1) < 0) return errno == EINTR;
    std::array<char, 4096> buffer{};
    const auto take = [&](const pollfd& ready, int& descriptor, std::string& text) {
        if (descriptor < 0 || ready.revents == 0) return;
        const auto count = ::read(descriptor, buffer.data(), buffer.size());
        if (count > 0)
            text.append(buffer.data(), static_cast<std::size_t>(count));
        else if (count == 0 || errno != EINTR)
            closeOnce(descriptor);
    };
    take(waiting[0], m_output, m_out);
    take(waiting[1], m_error, m_err);
    return true;
}

bool Subprocess::readUntil(const std::string& text) {
    while (m_out.find(text) == std::string::npos && m_err.find(text) == std::string::npos)
        if (!readSome()) return false;
    return true;
}

void Subprocess::signal(int number) {
    ::kill(m_pid, number);
}

std::string Subprocess::commandLine() const {
    return readAll("/proc/" + std::to_string(m_pid) + "/cmdline");
}
std::string Subprocess::environmentText() const {
    return readAll("/proc/" + std::to_string(m_pid) + "/environ");
}

bool Subprocess::isRunning() const {
    siginfo_t information{};
    return m_pid > 0 && ::waitid(P_PID, static_cast<id_t>(m_pid), &information, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           information.si_pid == 0;
}

int Subprocess::wait() {
    while (readSome()) {
    }
    int status = 0;
    ::waitpid(m_pid, &status, 0);
    m_pid = -1;
    return WIFSIGNALED(status) ? 1000 + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace ledgerfinch::cli
