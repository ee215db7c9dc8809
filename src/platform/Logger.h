// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <chrono>
#include <concepts>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ledgerfinch {

enum class LogLevel { Debug, Info, Error };

/// One line of the log, already rendered: private values read "<private>".
struct LogRecord {
    std::chrono::system_clock::time_point time; ///< UTC
    LogLevel level = LogLevel::Debug;
    std::string subsystem;
    std::string category; ///< the class that wrote it
    std::string message;
};

/// Where records end. Implementations are thread-safe and never throw.
class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(const LogRecord& record) = 0;
};

/// One argument of a format string. Numbers are public unless the format says otherwise, texts private.
class LogArgument {
public:
    LogArgument(std::integral auto number) : m_value(static_cast<std::int64_t>(number)) {}
    LogArgument(double number) : m_value(number) {}
    LogArgument(std::string_view text) : m_value(std::string(text)) {}
    LogArgument(const char* text) : m_value(std::string(text)) {}
    LogArgument(const std::string& text) : m_value(text) {}

    [[nodiscard]] const std::variant<std::int64_t, double, std::string>& value() const { return m_value; }

private:
    std::variant<std::int64_t, double, std::string> m_value;
};

/// Renders a format string of the unified-log kind: %s, %@, %d, %ld, %lld, %f, each with an optional privacy mark as in
/// "%{public}s", and "%%". A text without {public}, and anything marked {private}, renders as "<private>". Missing
/// arguments render as "<missing>", surplus ones are dropped. Line breaks in values are escaped, so that a value cannot
/// forge a line.
std::string renderLogMessage(std::string_view format, const std::vector<LogArgument>& arguments);

/// The writer of one class. A cheap value; may be copied and used from any thread.
class Logger {
public:
    /// The subsystem is the program's identifier, "net.tallowmere.Ledgerfinch".
    Logger(std::shared_ptr<LogSink> sink, std::string category);

    template <class... Arguments>
    void debug(std::string_view format, Arguments&&... arguments) const {
        write(LogLevel::Debug, format, {LogArgument(std::forward<Arguments>(arguments))...});
    }
    template <class... Arguments>
    void info(std::string_view format, Arguments&&... arguments) const {
        write(LogLevel::Info, format, {LogArgument(std::forward<Arguments>(arguments))...});
    }
    template <class... Arguments>
    void error(std::string_view format, Arguments&&... arguments) const {
        write(LogLevel::Error, format, {LogArgument(std::forward<Arguments>(arguments))...});
    }

private:
    void write(LogLevel level, std::string_view format, const std::vector<LogArgument>& arguments) const;

    std::shared_ptr<LogSink> m_sink;
    std::string m_category;
};

} // namespace ledgerfinch
