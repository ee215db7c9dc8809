// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/SecretStore.h"

#include "platform/Escaping.h"
#include "platform/PosixFile.h"

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace ledgerfinch {

namespace {

constexpr std::string_view kFirstLine = "# Secrets of Ledgerfinch: service, account, secret\n";
constexpr std::int64_t kLargestFile = 4 * 1024 * 1024;
constexpr mode_t kOthers = S_IRWXG | S_IRWXO;

struct Entry {
    std::string service;
    std::string account;
    std::string data;
};

std::string encoded(std::string_view field) {
    return escaping::percentEncode(field, "% #");
}

std::optional<std::string> takeField(std::string_view& line) {
    const auto end = line.find('\t');
    auto field = escaping::percentDecode(line.substr(0, end));
    line = end == std::string_view::npos ? std::string_view() : line.substr(end + 1);
    return field;
}

std::vector<Entry> parse(std::string_view text) {
    std::vector<Entry> entries;
    while (!text.empty()) {
        const auto end = text.find('\n');
        auto line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.starts_with('#')) continue;
        auto service = takeField(line);
        auto account = takeField(line);
        auto data = takeField(line);
        if (service && account && data) entries.push_back({*service, *account, *data});
    }
    return entries;
}

std::string serialize(const std::vector<Entry>& entries) {
    std::string text(kFirstLine);
    for (const auto& entry : entries) {
        text += encoded(entry.service) + '\t' + encoded(entry.account) + '\t' + encoded(entry.data) + '\n';
    }
    return text;
}

class FileSecretStore final : public SecretStore {
public:
    explicit FileSecretStore(std::filesystem::path file) : m_file(std::move(file)) {}

    SecretReading read(std::string_view service, std::string_view account) override {
        const std::lock_guard lock(m_mutex);
        const auto entries = load();
        if (!entries) {
            return {SecretState::Unavailable, {}, entries.error().message, entries.error().code};
        }
        for (const auto& entry : *entries) {
            if (entry.service == service && entry.account == account) return {SecretState::Found, entry.data, {}, 0};
        }
        return {};
    }

    Result<void> save(std::string_view data, std::string_view service, std::string_view account) override {
        return change(service, account, Entry{std::string(service), std::string(account), std::string(data)});
    }

    Result<void> remove(std::string_view service, std::string_view account) override {
        return change(service, account, std::nullopt);
    }

    [[nodiscard]] std::string kind() const override { return "file"; }

private:
    [[nodiscard]] Error refusal(std::string_view reason) const {
        return {"The file " + m_file.string() + " isn't used: " + std::string(reason), EPERM};
    }

    /// No entries when there is no file; an error for a file that others could have read or written.
    [[nodiscard]] Result<std::vector<Entry>> load() const {
        const auto file = posix::openForReading(m_file, O_NOFOLLOW);
        if (!file) {
            if (file.error().code == ENOENT) return std::vector<Entry>();
            return file.error();
        }
        struct stat status {};
        if (::fstat(file->descriptor(), &status) != 0) return posix::systemError("Couldn't read", m_file, errno);
        if (status.st_uid != ::geteuid()) return refusal("it belongs to somebody else.");
        if ((status.st_mode & kOthers) != 0) return refusal("others can read it.");
        const auto text = posix::readAll(*file, m_file, kLargestFile);
        if (!text) return text.error();
        return parse(*text);
    }

    [[nodiscard]] Result<void> checkFolder() const {
        const auto folder = m_file.has_parent_path() ? m_file.parent_path() : std::filesystem::path(".");
        if (auto made = posix::createFolders(folder); !made) return made;
        struct stat status {};
        if (::stat(folder.c_str(), &status) != 0) return posix::systemError("Couldn't enter", folder, errno);
        const bool others = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (status.st_mode & S_ISVTX) == 0;
        if (others) return refusal("others can write to its folder.");
        return {};
    }

    Result<void> change(std::string_view service, std::string_view account, std::optional<Entry> added) {
        const std::lock_guard guard(m_mutex);
        if (auto checked = checkFolder(); !checked) return checked;
        const auto lock = posix::openLocked(m_file.string() + ".lock", true);
        if (!lock) return lock.error();
        auto entries = load();
        if (!entries) return entries.error();
        const auto removed = std::erase_if(
            *entries, [&](const Entry& entry) { return entry.service == service && entry.account == account; });
        if (removed == 0 && !added) return {};
        if (added) entries->push_back(std::move(*added));
        return posix::replaceFile(m_file, serialize(*entries));
    }

    std::mutex m_mutex;
    std::filesystem::path m_file;
};

} // namespace

std::unique_ptr<SecretStore> makeFileSecretStore(std::filesystem::path file) {
    return std::make_unique<FileSecretStore>(std::move(file));
}

} // namespace ledgerfinch
