// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ledgerfinch::test {

/// A program with pipes at both ends. Killed, if it still runs, and waited for at the end.
class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& command, const std::map<std::string, std::string>& environment);
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    ~ChildProcess();

    void write(const std::string& text) const;
    void closeInput();
    /// Without its line feed; empty at the end, or when nothing came for twenty seconds.
    std::string readLine();
    std::string ask(const std::string& line);
    void kill();

private:
    pid_t m_process = -1;
    int m_input = -1;
    int m_output = -1;
    std::string m_buffer;
};

} // namespace ledgerfinch::test
