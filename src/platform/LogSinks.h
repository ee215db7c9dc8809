// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Logger.h"
#include "platform/Result.h"

#include <filesystem>
#include <mutex>
#include <vector>

namespace ledgerfinch {

/// Keeps every record; for tests.
class MemoryLogSink final : public LogSink {
public:
    void write(const LogRecord& record) override;
    [[nodiscard]] std::vector<LogRecord> records() const;
    /// True when a record's message holds this text.
    [[nodiscard]] bool contains(std::string_view text) const;

private:
    mutable std::mutex m_mutex;
    std::vector<LogRecord> m_records;
};

/// Hands each record to several sinks.
class TeeLogSink final : public LogSink {
public:
    explicit TeeLogSink(std::vector<std::shared_ptr<LogSink>> sinks);
    void write(const LogRecord& record) override;

private:
    std::vector<std::shared_ptr<LogSink>> m_sinks;
};

/// Writes "LEVEL category: message" lines to stderr; for --verbose.
class StderrLogSink final : public LogSink {
public:
    void write(const LogRecord& record) override;
};

/// One file a day under a folder ("ledgerfinch-2026-11-22.log", mode 0600, folder 0700); files older than seven days
/// are removed when it opens. Several processes may write at once: each line is one append. A file that grew over 16 MB
/// is closed for the day with a last line that says so. A write that fails is dropped.
class FileLogSink final : public LogSink {
public:
    /// Fails when the folder can't be made or isn't writable; the program then goes on without a stored log.
    static Result<std::shared_ptr<FileLogSink>> open(std::filesystem::path folder);
    ~FileLogSink() override;
    void write(const LogRecord& record) override;

private:
    struct Private;
    explicit FileLogSink(std::unique_ptr<Private> d);
    std::unique_ptr<Private> m_d;
};

/// The stored lines of a log folder since a moment (UTC), oldest first, at most `limit` of the newest.
std::vector<std::string> readStoredLog(const std::filesystem::path& folder, std::chrono::system_clock::time_point since,
                                       std::size_t limit);

} // namespace ledgerfinch
