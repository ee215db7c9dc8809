// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/FileSystem.h"

#include <atomic>
#include <memory>
#include <utility>

namespace ledgerfinch::test {

/// The real file system, whose n-th operation fails. Looking whether something exists can't fail and isn't counted.
class FailingFileSystem final : public FileSystem {
public:
    explicit FailingFileSystem(std::unique_ptr<FileSystem> files) : m_files(std::move(files)) {}

    /// Counted from now, 0 being the next one; negative: none.
    void failAt(std::int64_t operation) {
        m_count = 0;
        m_failAt = operation;
    }
    /// That one and all after it; negative: none.
    void failFrom(std::int64_t operation) {
        m_count = 0;
        m_failFrom = operation;
    }
    [[nodiscard]] std::int64_t count() const { return m_count; }

    Result<void> createDirectories(const std::filesystem::path& folder) override {
        if (fails()) return failure();
        return m_files->createDirectories(folder);
    }
    Result<void> write(const std::filesystem::path& file, std::string_view bytes) override {
        if (fails()) return failure();
        return m_files->write(file, bytes);
    }
    Result<std::string> read(const std::filesystem::path& file, std::int64_t maximumBytes) override {
        if (fails()) return failure();
        return m_files->read(file, maximumBytes);
    }
    Result<std::vector<std::string>> list(const std::filesystem::path& folder) override {
        if (fails()) return failure();
        return m_files->list(folder);
    }
    Result<std::int64_t> size(const std::filesystem::path& file) override {
        if (fails()) return failure();
        return m_files->size(file);
    }
    Result<void> removeAll(const std::filesystem::path& path) override {
        if (fails()) return failure();
        return m_files->removeAll(path);
    }
    Result<void> copyAll(const std::filesystem::path& from, const std::filesystem::path& to) override {
        if (fails()) return failure();
        return m_files->copyAll(from, to);
    }
    [[nodiscard]] bool exists(const std::filesystem::path& path) const override { return m_files->exists(path); }

private:
    bool fails() {
        const auto operation = m_count++;
        return operation == m_failAt || (m_failFrom >= 0 && operation >= m_failFrom);
    }
    static Error failure() { return {"the disk said no", 5}; }

    std::unique_ptr<FileSystem> m_files;
    std::atomic<std::int64_t> m_count{0};
    std::atomic<std::int64_t> m_failAt{-1};
    std::atomic<std::int64_t> m_failFrom{-1};
};

} // namespace ledgerfinch::test
