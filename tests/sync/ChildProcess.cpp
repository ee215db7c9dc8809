// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/ChildProcess.h"

#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ledgerfinch::test {

ChildProcess::ChildProcess(const std::string& program, std::vector<std::string> arguments) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) std::abort();
    m_output = ends[0];
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    arguments.insert(arguments.begin(), program);
    std::vector<char*> pointers;
    for (auto& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    if (::posix_spawn(&m_process, program.c_str(), &actions, nullptr, pointers.data(), environ) != 0) m_process = -1;
    ::posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
}

ChildProcess::~ChildProcess() {
    kill();
    wait();
    ::close(m_output);
}

std::optional<std::string> ChildProcess::readLine() {
    for (;;) {
        if (const auto end = m_buffer.find('\n'); end != std::string::npos) {
            auto line = m_buffer.substr(0, end);
            m_buffer.erase(0, end + 1);
            return line;
        }
        char bytes[4096];
        const auto count = ::read(m_output, bytes, sizeof bytes);
        if (count <= 0) return std::nullopt;
        m_buffer.append(bytes, static_cast<std::size_t>(count));
    }
}

void ChildProcess::kill() {
    if (m_process > 0 && !m_status) ::kill(m_process, SIGKILL);
}

int ChildProcess::wait() {
    if (m_process <= 0) return -1;
    if (!m_status) {
        int status = 0;
        if (::waitpid(m_process, &status, 0) != m_process) return -1;
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return *m_status;
}

} // namespace ledgerfinch::test
