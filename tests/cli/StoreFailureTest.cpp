// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"

#include "cli/ActiveStore.h"
#include "platform/Fatal.h"

#include <fstream>
#include <iterator>

#include <sys/stat.h>

namespace ledgerfinch::cli {
namespace {

class StoreFailureTest : public CommandTest {
protected:
    static std::string read(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
};

TEST_F(StoreFailureTest, FolderThatCannotBeMadeIsSaid) {
    std::filesystem::create_directories(data().parent_path());
    std::ofstream(data()) << "a file where the folder should be";
    const auto ran = run({"status"});
    EXPECT_EQ(ran.code, ExitCode::CannotCreate);
    EXPECT_NE(ran.err, "");
    EXPECT_EQ(read(data()), "a file where the folder should be");
}

TEST_F(StoreFailureTest, SettingsThatCannotBeReadEndTheRun) {
    ASSERT_EQ(run({"status"}).code, ExitCode::Ok);
    std::filesystem::path settings;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(data()))
        if (entry.path().extension() == ".ini") settings = entry.path();
    if (settings.empty()) settings = data() / "config" / (std::string(UserDefaults::kSuite) + ".ini");
    std::filesystem::remove(settings);
    std::filesystem::create_directory(settings);
    const auto ran = run({"list"});
    EXPECT_EQ(ran.code, ExitCode::Internal);
    EXPECT_TRUE(ran.err.starts_with("The settings can't be opened")) << ran.err;
}

TEST_F(StoreFailureTest, NothingIsReadableByOthers) {
    support::PaperlessServer server;
    server.generate(3);
    server.start();
    ASSERT_EQ(login(server).code, ExitCode::Ok);
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    ASSERT_EQ(run({"download", "1", "-o", (folder() / "out").string()}).code, ExitCode::Ok);
    std::size_t seen = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(data())) {
        struct stat status {};
        ASSERT_EQ(::lstat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777u, S_ISDIR(status.st_mode) ? 0700u : 0600u) << entry.path();
        ++seen;
    }
    EXPECT_GT(seen, 5u);
}

} // namespace
} // namespace ledgerfinch::cli
