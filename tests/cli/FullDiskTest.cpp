// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ProgramTest.h"

#include <sys/resource.h>

namespace ledgerfinch::cli {
namespace {

const int kCannotCreate = toInt(ExitCode::CannotCreate);

bool saysThatItIsFull(const Ended& ran) {
    return ran.err.find("No space left on device") != std::string::npos ||
           ran.err.find("isk is full") != std::string::npos;
}

/// The program on a disk that has room for so many bytes more.
class FullDiskTest : public ProgramTest {
protected:
    Ended runWithRoom(std::size_t bytes, const std::vector<std::string>& words, const std::string& input = {}) const {
        return run(words, input,
                   {"LD_PRELOAD=" LEDGERFINCH_FULL_DISK, "LF_FULL_FOLDER=" + (folder / "data").string(),
                    "LF_FULL_AFTER=" + std::to_string(bytes)});
    }
    [[nodiscard]] std::vector<std::string> login() const {
        return {"login", server.url(), "--user", "admin", "--password-stdin"};
    }
    [[nodiscard]] nlohmann::json json(const std::vector<std::string>& words) const {
        return nlohmann::json::parse(run(words).out);
    }
};

/// Where room ends, from nothing to enough for all.
constexpr std::size_t kSteps[] = {0, 200, 1'000, 4'000, 9'000, 20'000, 50'000, 100'000, 400'000, 1'000'000};

TEST_F(FullDiskTest, LoginSaysThatItIsFullAndWorksOnceThereIsRoom) {
    for (const auto room : kSteps) {
        std::filesystem::remove_all(folder / "data");
        const auto ran = runWithRoom(room, login(), "admin-pass\n");
        if (ran.code == 0) {
            EXPECT_EQ(json({"status", "--json"})["server"], server.url());
            continue;
        }
        EXPECT_EQ(ran.code, kCannotCreate) << room;
        EXPECT_TRUE(saysThatItIsFull(ran)) << room << ": " << ran.err;
        EXPECT_EQ(ran.out, "");
        EXPECT_EQ(run(login(), "admin-pass\n").code, 0) << room;
        EXPECT_EQ(run({"sync"}).code, 0) << room;
    }
    EXPECT_EQ(json({"list", "--json"}).size(), 120u);
}

TEST_F(FullDiskTest, LogoutKeepsTheLoginAndSaysWhy) {
    loginAndSync();
    const auto ran = runWithRoom(0, {"logout"});
    EXPECT_EQ(ran.code, kCannotCreate);
    EXPECT_TRUE(ran.err.starts_with("The token could not be removed: ")) << ran.err;
    EXPECT_NE(ran.err.find("No space left on device"), std::string::npos) << ran.err;
    EXPECT_EQ(run({"sync"}).code, 0);
    EXPECT_EQ(run({"logout"}).code, 0);
    EXPECT_EQ(run({"sync"}).code, toInt(ExitCode::Refused));
}

TEST_F(FullDiskTest, SyncNamesTheReasonKeepsWhatCameAndMakesUpForTheRest) {
    std::size_t failures = 0;
    for (const auto room : kSteps) {
        std::filesystem::remove_all(folder / "data");
        ASSERT_EQ(run(login(), "admin-pass\n").code, 0);
        const auto ran = runWithRoom(room, {"sync"});
        if (ran.code != 0) {
            ++failures;
            EXPECT_EQ(ran.code, kCannotCreate) << room << ": " << ran.err;
            EXPECT_TRUE(saysThatItIsFull(ran)) << room << ": " << ran.err;
            EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 1) << ran.err;
        }
        const auto again = run({"sync"});
        EXPECT_EQ(again.code, 0) << room << ": " << again.err;
        EXPECT_EQ(json({"list", "--json"}).size(), 120u) << room;
    }
    EXPECT_GT(failures, 4u);
}

TEST_F(FullDiskTest, SettingsAndServersAreKeptWholeOrNotAtAll) {
    loginAndSync();
    const auto before = json({"settings", "--json"});
    const auto set = runWithRoom(0, {"settings", "set", "download_all", "true"});
    EXPECT_EQ(set.code, kCannotCreate);
    EXPECT_TRUE(set.err.starts_with("The setting could not be kept: ")) << set.err;
    support::PaperlessServer second;
    second.generate(2);
    second.start();
    const auto add =
        runWithRoom(0, {"instances", "add", second.url(), "--user", "admin", "--password-stdin"}, "admin-pass\n");
    EXPECT_EQ(add.code, kCannotCreate) << add.err;
    EXPECT_TRUE(saysThatItIsFull(add)) << add.err;
    EXPECT_EQ(json({"instances", "--json"}).size(), 1u);
    EXPECT_EQ(json({"settings", "--json"}), before);

    const std::vector<std::string> adding{"instances", "add", second.url(), "--user", "admin", "--password-stdin"};
    std::size_t failures = 0;
    // A disk that was full for the second write of the settings would have been so for the first.
    for (const std::size_t room : {0, 10, 20, 50, 100, 300}) {
        for (const auto& words : {std::vector<std::string>{"instances", "use", second.url()},
                                  {"instances", "remove", second.url(), "--yes"}}) {
            ASSERT_EQ(run(adding, "admin-pass\n").code, 0);
            ASSERT_EQ(run({"instances", "use", server.url()}).code, 0);
            const auto ran = runWithRoom(room, words);
            if (ran.code == 0) continue;
            ++failures;
            EXPECT_EQ(ran.code, kCannotCreate) << room << words[1] << ran.err;
            EXPECT_TRUE(saysThatItIsFull(ran)) << room << words[1] << ran.err;
            EXPECT_EQ(json({"instances", "--json"}).size(), 2u) << room << words[1];
            EXPECT_EQ(json({"status", "--json"})["server"], server.url()) << room << words[1];
        }
    }
    EXPECT_GT(failures, 8u);
}

TEST_F(FullDiskTest, OrALimitOnTheSizeOfFilesDoesNotKillTheProgram) {
    ASSERT_EQ(run(login(), "admin-pass\n").code, 0);
    Subprocess program(withFolder({"sync"}), {}, Subprocess::Streams::Pipes, [] {
        const rlimit limit{600 * 1024, 600 * 1024};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    });
    program.closeInput();
    EXPECT_EQ(program.wait(), kCannotCreate) << program.err();
    EXPECT_TRUE(program.err().starts_with("The local store can't be written to: ")) << program.err();
    EXPECT_EQ(run({"sync"}).code, 0);
    EXPECT_EQ(json({"list", "--json"}).size(), 120u);
}

TEST_F(FullDiskTest, IsNoHindranceToReading) {
    loginAndSync();
    const auto before = run({"list", "--json"}).out;
    for (const auto* action : {"list", "status", "settings", "instances", "logs"})
        EXPECT_EQ(runWithRoom(0, {action}).code, 0) << action;
    EXPECT_EQ(runWithRoom(0, {"show", "1"}).code, 0);
    EXPECT_EQ(runWithRoom(0, {"list", "--json"}).out, before);
}

TEST_F(FullDiskTest, DownloadStillWritesTheFileThatWasAskedFor) {
    loginAndSync();
    const auto elsewhere = folder / "1.pdf";
    const auto ran = runWithRoom(0, {"download", "1", "-o", elsewhere.string()});
    EXPECT_EQ(ran.code, 0) << ran.err;
    EXPECT_TRUE(ran.err.starts_with("The file could not be kept on this device: ")) << ran.err;
    EXPECT_GT(std::filesystem::file_size(elsewhere), 0u);
    const auto there = runWithRoom(0, {"download", "1", "-o", (folder / "data" / "1.pdf").string()});
    EXPECT_EQ(there.code, kCannotCreate);
    EXPECT_NE(there.err.find("could not be written: No space left on device"), std::string::npos) << there.err;
    EXPECT_FALSE(std::filesystem::exists(folder / "data" / "1.pdf"));
}

} // namespace
} // namespace ledgerfinch::cli
