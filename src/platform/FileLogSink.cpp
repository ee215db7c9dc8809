// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/LogSinks.h"

#include "platform/Dates.h"
#include "platform/LogLine.h"
#include "platform/PosixFile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>

namespace ledgerfinch {

namespace {

namespace fs = std::filesystem;
using std::chrono::system_clock;

constexpr std::string_view kPrefix = "ledgerfinch-";
constexpr std::string_view kSuffix = ".log";
constexpr std::int64_t kLargestFile = 16 * 1024 * 1024;
constexpr auto kKeptDays = std::chrono::days(7);
constexpr std::string_view kClosedNote = "The log of this day is full and ends here.";
/// More than a file can grow to by lines that several processes append at once.
constexpr std::int64_t kLargestRead = 2 * kLargestFile;

std::string fileName(std::chrono::sys_days day) {
    const std::chrono::year_month_day date(day);
    std::array<char, 48> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "ledgerfinch-%04d-%02u-%02u.log", static_cast<int>(date.year()),
                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
    return buffer.data();
}

/// The UTC day of a file of the log; absent for any other file.
std::optional<std::chrono::sys_days> dayOfFile(std::string_view name) {
    if (!name.starts_with(kPrefix) || !name.ends_with(kSuffix)) return std::nullopt;
    if (name.size() <= kPrefix.size() + kSuffix.size()) return std::nullopt;
    const auto date = name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size());
    const auto midnight = dates::parseWholeSecond(std::string(date) + "T00:00:00Z");
    if (!midnight) return std::nullopt;
    return std::chrono::floor<std::chrono::days>(*midnight);
}

/// "2026-11-22T12:30:00.123Z": texts of one length, so that they compare as the moments do.
std::string stamp(system_clock::time_point time) {
    const auto moment = std::chrono::floor<std::chrono::microseconds>(time);
    auto text = dates::formatIso8601Utc(moment);
    const auto millisecond = (moment.time_since_epoch() / std::chrono::milliseconds(1)) % 1000;
    std::array<char, 32> fraction{};
    std::snprintf(fraction.data(), fraction.size(), ".%03dZ", static_cast<int>(millisecond));
    text.pop_back();
    return text + fraction.data();
}

std::string logLine(const LogRecord& record) {
    std::string line = stamp(record.time);
    line += ' ';
    line += logLevelName(record.level);
    line += ' ';
    line += record.category;
    line += ": ";
    line += onOneLine(record.message);
    line += '\n';
    return line;
}

std::vector<std::pair<std::chrono::sys_days, fs::path>> logFiles(const fs::path& folder) {
    std::vector<std::pair<std::chrono::sys_days, fs::path>> files;
    std::error_code error;
    fs::directory_iterator entries(folder, error);
    while (!error && entries != fs::directory_iterator()) {
        if (const auto day = dayOfFile(entries->path().filename().string())) files.emplace_back(*day, entries->path());
        entries.increment(error);
    }
    std::sort(files.begin(), files.end());
    return files;
}

void removeOldFiles(const fs::path& folder, std::chrono::sys_days today) {
    for (const auto& [day, file] : logFiles(folder)) {
        if (day + kKeptDays < today) ::unlink(file.c_str());
    }
}

} // namespace

struct FileLogSink::Private {
    std::mutex mutex;
    fs::path folder;
    std::chrono::sys_days day;
    posix::File file;
    bool full = false;

    Result<void> openDay(std::chrono::sys_days wanted) {
        const auto path = folder / fileName(wanted);
        posix::File opened(::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                                  S_IRUSR | S_IWUSR));
        struct stat status {};
        if (!opened.isOpen() || ::fstat(opened.descriptor(), &status) != 0) {
            return posix::systemError("Couldn't write", path, errno);
        }
        if (!S_ISREG(status.st_mode)) return posix::systemError("Couldn't write", path, EINVAL);
        file = std::move(opened);
        day = wanted;
        full = status.st_size > kLargestFile;
        return {};
    }

    void append(const LogRecord& record) {
        const auto wanted = std::chrono::floor<std::chrono::days>(record.time);
        if (wanted != day || !file.isOpen()) {
            if (!openDay(wanted)) return;
        }
        if (full) return;
        auto line = logLine(record);
        struct stat status {};
        if (::fstat(file.descriptor(), &status) == 0 && status.st_size > kLargestFile) {
            full = true;
            line = logLine({record.time, LogLevel::Info, record.subsystem, "FileLogSink", std::string(kClosedNote)});
        }
        // One call for the whole line: O_APPEND keeps the lines of several processes apart.
        [[maybe_unused]] const auto written = ::write(file.descriptor(), line.data(), line.size());
    }
};

FileLogSink::FileLogSink(std::unique_ptr<Private> d) : m_d(std::move(d)) {}

FileLogSink::~FileLogSink() = default;

Result<std::shared_ptr<FileLogSink>> FileLogSink::open(fs::path folder) {
    if (auto made = posix::createFolders(folder); !made) return made.error();
    auto d = std::make_unique<Private>();
    d->folder = std::move(folder);
    const auto today = std::chrono::floor<std::chrono::days>(system_clock::now());
    removeOldFiles(d->folder, today);
    if (auto opened = d->openDay(today); !opened) return opened.error();
    return std::shared_ptr<FileLogSink>(new FileLogSink(std::move(d)));
}

void FileLogSink::write(const LogRecord& record) {
    const std::lock_guard lock(m_d->mutex);
    m_d->append(record);
}

std::vector<std::string> readStoredLog(const fs::path& folder, system_clock::time_point since, std::size_t limit) {
    std::vector<std::string> lines;
    const auto firstDay = std::chrono::floor<std::chrono::days>(since);
    const auto firstStamp = stamp(since);
    for (const auto& [day, path] : logFiles(folder)) {
        if (day < firstDay) continue;
        const auto file = posix::openForReading(path, O_NOFOLLOW);
        if (!file) continue;
        const auto content = posix::readAll(*file, path, kLargestRead);
        if (!content) continue;
        std::string_view rest = *content;
        while (!rest.empty()) {
            const auto end = rest.find('\n');
            const auto line = rest.substr(0, end);
            if (!line.empty() && line.substr(0, firstStamp.size()) >= firstStamp) lines.emplace_back(line);
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
        }
    }
    // Several processes write at once, so lines can stand a little out of order.
    std::stable_sort(lines.begin(), lines.end(), [&](const std::string& first, const std::string& second) {
        return first.compare(0, firstStamp.size(), second, 0, firstStamp.size()) < 0;
    });
    if (lines.size() > limit) lines.erase(lines.begin(), lines.end() - static_cast<std::ptrdiff_t>(limit));
    return lines;
}

} // namespace ledgerfinch
