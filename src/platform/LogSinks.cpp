// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/LogSinks.h"

#include "platform/LogLine.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace ledgerfinch {

std::string_view logLevelName(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return "DEBUG";
    case LogLevel::Info:
        return "INFO";
    case LogLevel::Error:
        return "ERROR";
    }
    return "ERROR";
}

std::string onOneLine(std::string_view message) {
    std::string result;
    result.reserve(message.size());
    for (const char character : message) {
        if (character == '\n') {
            result += "\\n";
        } else if (character == '\r') {
            result += "\\r";
        } else {
            result += character;
        }
    }
    return result;
}

void MemoryLogSink::write(const LogRecord& record) {
    const std::lock_guard lock(m_mutex);
    m_records.push_back(record);
}

std::vector<LogRecord> MemoryLogSink::records() const {
    const std::lock_guard lock(m_mutex);
    return m_records;
}

bool MemoryLogSink::contains(std::string_view text) const {
    const std::lock_guard lock(m_mutex);
    return std::any_of(m_records.begin(), m_records.end(),
                       [&](const LogRecord& record) { return record.message.find(text) != std::string::npos; });
}

TeeLogSink::TeeLogSink(std::vector<std::shared_ptr<LogSink>> sinks) : m_sinks(std::move(sinks)) {}

void TeeLogSink::write(const LogRecord& record) {
    for (const auto& sink : m_sinks) {
        if (sink) sink->write(record);
    }
}

void StderrLogSink::write(const LogRecord& record) {
    const std::string line =
        std::string(logLevelName(record.level)) + " " + record.category + ": " + onOneLine(record.message) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

} // namespace ledgerfinch
