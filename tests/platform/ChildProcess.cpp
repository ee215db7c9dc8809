// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/ChildProcess.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace ledgerfinch::test {

ChildProcess::ChildProcess(const std::vector<std::string>& command,
                           const std::map<std::string, std::string>& environment) {
    int in[2];
    int out[2];
    if (::pipe2(in, O_CLOEXEC) != 0 || ::pipe2(out, O_CLOEXEC) != 0) std::abort();
    m_process = ::fork();
    if (m_process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(in[0], STDIN_FILENO);
        ::dup2(out[1], STDOUT_FILENO);
        for (const auto& [name, value] : environment) {
            if (value.empty()) {
                ::unsetenv(name.c_str());
            } else {
                ::setenv(name.c_str(), value.c_str(), 1);
            }
        }
        std::vector<char*> arguments;
        for (const auto& word : command)
            arguments.push_back(const_cast<char*>(word.c_str()));
        arguments.push_back(nullptr);
        ::execvp(arguments[0], arguments.data());
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    m_input = in[1];
    m_output = out[0];
    ::signal(SIGPIPE, SIG_IGN);
}

ChildProcess::~ChildProcess() {
    kill();
    closeInput();
    ::close(m_output);
}

void ChildProcess::write(const std::string& text) const {
    [[maybe_unused]] const auto count = ::write(m_input, text.data(), text.size());
}

void ChildProcess::closeInput() {
    if (m_input >= 0) ::close(m_input);
    m_input = -1;
}

std::string ChildProcess::readLine() {
    while (m_buffer.find('\n') == std::string::npos) {
        pollfd waiting{m_output, POLLIN, 0};
        char bytes[4096];
        if (::poll(&waiting, 1, 20'000) <= 0) return {};
        const auto count = ::read(m_output, bytes, sizeof bytes);
        if (count <= 0) return {};
        m_buffer.append(bytes, static_cast<std::size_t>(count));
    }
    const auto end = m_buffer.find('\n');
    auto line = m_buffer.substr(0, end);
    m_buffer.erase(0, end + 1);
    return line;
}

std::string ChildProcess::ask(const std::string& line) {
    write(line + "\n");
    return readLine();
}

void ChildProcess::kill() {
    if (m_process <= 0) return;
    ::kill(m_process, SIGKILL);
    ::waitpid(m_process, nullptr, 0);
    m_process = -1;
}

} // namespace ledgerfinch::test
