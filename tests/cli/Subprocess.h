// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ledgerfinch::cli {

/// The built program as a process of its own, its streams on pipes or on a pseudo-terminal.
class Subprocess {
public:
    enum class Streams { Pipes, Terminal };
    /// `environment` entries ("NAME=value") come on top of a small environment without session bus and terminal
    /// settings. `prepare` runs in the new process before it becomes the program: to close streams, to lower rights.
    Subprocess(std::vector<std::string> words, const std::vector<std::string>& environment = {},
               Streams streams = Streams::Pipes, const std::function<void()>& prepare = {});
    ~Subprocess();
    Subprocess(const Subprocess&) = delete;
    Subprocess& operator=(const Subprocess&) = delete;

    void write(const std::string& text);
    void closeInput();
    /// Nobody reads its output any more.
    void closeOutput();
    /// Reads output until it holds this text; false at its end.
    bool readUntil(const std::string& text);
    void signal(int number);
    /// The command line that every user of the machine can read.
    [[nodiscard]] std::string commandLine() const;
    /// The whole environment of the process.
    [[nodiscard]] std::string environmentText() const;
    [[nodiscard]] bool isRunning() const;
    /// Reads what is left, waits. The exit code, or 1000 and the signal's number.
    int wait();

    [[nodiscard]] const std::string& out() const { return m_out; }
    [[nodiscard]] const std::string& err() const { return m_err; }
    [[nodiscard]] pid_t pid() const { return m_pid; }

private:
    bool readSome();

    pid_t m_pid = -1;
    int m_input = -1;
    int m_output = -1;
    int m_error = -1;
    std::string m_out;
    std::string m_err;
};

} // namespace ledgerfinch::cli
