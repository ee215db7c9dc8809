// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/OutputFile.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

TEST(SafeFileName, NeverLeavesTheFolderNorHides) {
    const struct {
        std::string stem;
        std::string extension;
        std::string name;
    } cases[] = {
        {"Invoice 2024", "pdf", "Invoice 2024.pdf"},
        {"../../etc/passwd", "pdf", "etcpasswd.pdf"},
        {".bashrc", "", "bashrc"},
        {"--force", "pdf", "force.pdf"},
        {"a\nb\x1b[31m", "pdf", "ab[31m.pdf"},
        {"", "pdf", "document-7.pdf"},
        {"..", "../x", "document-7.x"},
        {"日本", "pdf", "日本.pdf"},
        {"name", "anextensionthatisfartoolong", "name"},
    };
    for (const auto& [stem, extension, name] : cases)
        EXPECT_EQ(safeFileName(stem, extension, "document-7"), name);
    const auto cut = safeFileName(std::string(199, 'x') + "日本", "pdf", "f");
    EXPECT_LE(cut.size(), 200u);
    EXPECT_EQ(cut.substr(cut.size() - 5), "x.pdf");
}

class OutputFileTest : public testing::Test {
protected:
    OutputFileTest() {
        std::string name = testing::TempDir() + "output-XXXXXX";
        folder = ::mkdtemp(name.data());
    }
    ~OutputFileTest() override { std::filesystem::remove_all(folder); }
    static std::string read(const std::filesystem::path& file) {
        std::ifstream stream(file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::filesystem::path folder;
};

TEST_F(OutputFileTest, OverwritesOnlyWhenAskedTo) {
    const auto file = folder / "a.pdf";
    ASSERT_TRUE(writeOutputFile(file, "one", Overwrite::No));
    const auto again = writeOutputFile(file, "two", Overwrite::No);
    ASSERT_FALSE(again);
    EXPECT_EQ(again.error().code, static_cast<int>(OutputError::Exists));
    EXPECT_EQ(read(file), "one");
    ASSERT_TRUE(writeOutputFile(file, "two", Overwrite::Yes));
    EXPECT_EQ(read(file), "two");
    EXPECT_EQ(std::filesystem::status(file).permissions() & std::filesystem::perms::others_all,
              std::filesystem::perms::none);
    // Nothing but the file is left.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder), {}), 1);
}

TEST_F(OutputFileTest, DoesNotFollowALinkThatLeadsElsewhere) {
    const auto elsewhere = folder / "elsewhere";
    std::ofstream(elsewhere) << "precious";
    std::filesystem::create_symlink(elsewhere, folder / "link");
    std::filesystem::create_symlink(folder / "nowhere", folder / "dangling");
    EXPECT_FALSE(writeOutputFile(folder / "link", "x", Overwrite::No));
    EXPECT_FALSE(writeOutputFile(folder / "dangling", "x", Overwrite::No));
    EXPECT_TRUE(writeOutputFile(folder / "link", "x", Overwrite::Yes));
    EXPECT_EQ(read(elsewhere), "precious");
}

TEST_F(OutputFileTest, LeavesWhatIsNoFileInItsPlace) {
    const auto fifo = folder / "pipe";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    const int reader = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    for (const auto overwrite : {Overwrite::No, Overwrite::Yes}) {
        ASSERT_TRUE(writeOutputFile(fifo, "bytes", overwrite));
        std::array<char, 16> buffer{};
        EXPECT_EQ(::read(reader, buffer.data(), buffer.size()), 5);
        EXPECT_TRUE(std::filesystem::is_fifo(fifo));
    }
    ::close(reader);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const auto socketName = (folder / "socket").string();
    ASSERT_LT(socketName.size(), sizeof address.sun_path);
    std::copy(socketName.begin(), socketName.end(), address.sun_path);
    const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    EXPECT_FALSE(writeOutputFile(socketName, "x", Overwrite::Yes));
    EXPECT_TRUE(std::filesystem::is_socket(socketName));
    ::close(socket);
    EXPECT_FALSE(writeOutputFile(folder, "x", Overwrite::Yes));
}

TEST_F(OutputFileTest, SaysWhenTheFolderIsMissing) {
    const auto written = writeOutputFile(folder / "none" / "a.pdf", "x", Overwrite::No);
    ASSERT_FALSE(written);
    EXPECT_EQ(written.error().code, static_cast<int>(OutputError::CannotWrite));
}

} // namespace
} // namespace ledgerfinch::cli
