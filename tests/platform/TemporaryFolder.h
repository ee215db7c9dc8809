// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <sys/stat.h>

namespace ledgerfinch::test {

/// A folder of its own, removed with everything in it.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (std::filesystem::temp_directory_path() / "ledgerfinch-test-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) std::abort();
        m_path = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code error;
        std::filesystem::remove_all(m_path, error);
    }
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }
    std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

private:
    std::filesystem::path m_path;
};

inline std::string contentOf(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline void put(const std::filesystem::path& file, const std::string& content) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << content;
}

inline unsigned modeOf(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
}

/// How many entries a folder has, hidden ones included.
inline std::ptrdiff_t entriesIn(const std::filesystem::path& folder) {
    return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

} // namespace ledgerfinch::test
