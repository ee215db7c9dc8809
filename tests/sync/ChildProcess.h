// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ledgerfinch::test {

/// A program of ours in a process of its own, read line by line; killed if it still runs when the object goes.
class ChildProcess {
public:
    ChildProcess(const std::string& program, std::vector<std::string> arguments);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The next whole line; nothing at the end of the output. Half a line at the end doesn't count.
    std::optional<std::string> readLine();
    /// kill -9.
    void kill();
    /// Waits for its end: the exit status, or minus the signal.
    int wait();

private:
    pid_t m_process = -1;
    int m_output = -1;
    std::string m_buffer;
    std::optional<int> m_status;
};

} // namespace ledgerfinch::test
