// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ProgramTest.h"

#include "objectstore/PersistentContainer.h"
#include "platform/LogSinks.h"
#include "store/entities/Entities.h"
#include "store/entities/Models.h"

#include <map>

#include <grp.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

namespace fs = std::filesystem;

constexpr uid_t kNobody = 65534;

/// The program on folders that it may not write to. Root may write anywhere, so it gives up its rights.
class ReadOnlyTest : public ProgramTest {
protected:
    ~ReadOnlyTest() override { giveWritePermission(data()); }

    [[nodiscard]] fs::path data() const { return folder / "data"; }

    static void changeMode(const fs::path& path, mode_t take, mode_t give) {
        struct stat status {};
        if (::lstat(path.c_str(), &status) != 0 || S_ISLNK(status.st_mode)) return;
        if (::getuid() == 0) {
            ASSERT_EQ(::lchown(path.c_str(), kNobody, kNobody), 0);
        }
        ASSERT_EQ(::chmod(path.c_str(), (status.st_mode & ~take & 07777u) | give), 0);
    }
    static void changeTree(const fs::path& root, mode_t take, mode_t give) {
        changeMode(root, take, give);
        if (!fs::is_directory(root)) return;
        for (const auto& entry : fs::recursive_directory_iterator(root))
            changeMode(entry.path(), take, give);
    }
    /// Belongs to whoever runs the program, and can't be written to.
    void takeWritePermission(const fs::path& root) const {
        changeMode(folder, 0, 0);
        changeTree(root, 0222, 0);
    }
    static void giveWritePermission(const fs::path& root) { changeTree(root, 0, 0200); }

    Ended runWithoutRights(const std::vector<std::string>& words, const std::string& input = {}) const {
        Subprocess program(withFolder(words), {}, Subprocess::Streams::Pipes, [] {
            if (::getuid() != 0) return;
            if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0) ::_exit(99);
        });
        program.write(input);
        program.closeInput();
        const int code = program.wait();
        return {code, program.out(), program.err()};
    }

    /// Names and contents of everything below the folder.
    [[nodiscard]] std::map<std::string, std::string> everything() const {
        std::map<std::string, std::string> all;
        for (const auto& entry : fs::recursive_directory_iterator(data()))
            all[entry.path().string()] = entry.is_regular_file() ? read(entry.path()) : std::string();
        return all;
    }

    const std::vector<std::vector<std::string>> kReading{
        {"list"},
        {"list", "--json"},
        {"show", "1"},
        {"show", "1", "--content"},
        {"status"},
        {"settings"},
        {"settings", "get", "server"},
        {"instances"},
        {"logs", "--limit", "0"},
    };
    [[nodiscard]] std::vector<std::vector<std::string>> writing() const {
        return {{"sync"},
                {"logout"},
                {"settings", "set", "swipeAction", "inbox"},
                {"instances", "use", server.url()},
                {"instances", "remove", "http://other", "--yes"},
                {"login", server.url(), "--user", "admin", "--password-stdin"}};
    }
};

TEST_F(ReadOnlyTest, FolderCanBeReadAndSaysThatItCannotBeWrittenTo) {
    loginAndSync();
    ASSERT_EQ(run({"download", "1", "-o", (folder / "1.pdf").string()}).code, 0);
    takeWritePermission(data());
    const auto before = everything();
    for (const auto& words : kReading) {
        const auto ran = runWithoutRights(words);
        EXPECT_EQ(ran.code, 0) << words[0] << ": " << ran.err;
        EXPECT_EQ(ran.err, "") << words[0];
    }
    EXPECT_EQ(nlohmann::json::parse(runWithoutRights({"list", "--json"}).out).size(), 120u);
    // What is here already, and what isn't.
    EXPECT_EQ(runWithoutRights({"download", "1", "-o", (folder / "again.pdf").string()}).code, 0);
    EXPECT_EQ(read(folder / "again.pdf"), read(folder / "1.pdf"));
    const auto fetched = runWithoutRights({"download", "2", "-o", (folder / "2.pdf").string()});
    EXPECT_EQ(fetched.code, 0);
    EXPECT_TRUE(fetched.err.starts_with("The file could not be kept on this device: ")) << fetched.err;
    EXPECT_GT(fs::file_size(folder / "2.pdf"), 0u);

    for (const auto& words : writing()) {
        const auto ran = runWithoutRights(words, "admin-pass\n");
        EXPECT_EQ(ran.code, toInt(ExitCode::CannotCreate)) << words[0];
        EXPECT_TRUE(ran.err.starts_with("Couldn't write to " + data().string())) << ran.err;
        EXPECT_TRUE(ran.err.ends_with(": Permission denied\n")) << ran.err;
    }
    EXPECT_EQ(everything(), before);
}

TEST_F(ReadOnlyTest, PartOfTheFolderIsEnoughToReadAndTooLittleToWrite) {
    loginAndSync();
    changeTree(data(), 0, 0);
    changeMode(folder, 0, 0);
    for (const auto& part : {data() / "container", data() / "config", data() / "state", storeFile()}) {
        takeWritePermission(part);
        EXPECT_EQ(nlohmann::json::parse(runWithoutRights({"list", "--json"}).out).size(), 120u) << part;
        EXPECT_EQ(runWithoutRights({"status"}).code, 0) << part;
        const auto ran = runWithoutRights({"sync"});
        EXPECT_EQ(ran.code, toInt(ExitCode::CannotCreate)) << part;
        EXPECT_EQ(ran.err, "Couldn't write to " + part.string() + ": Permission denied\n");
        giveWritePermission(part);
    }
    EXPECT_EQ(runWithoutRights({"sync"}).code, 0);
}

TEST_F(ReadOnlyTest, StoreIsReadWithWhatAnotherProcessWritesIntoIt) {
    loginAndSync();
    const auto opened = PersistentContainer::open(ledgerfinchModel(), {storeFile(), Durability::Normal, {}},
                                                  Logger(std::make_shared<MemoryLogSink>(), "test"));
    ASSERT_TRUE(opened.ok());
    const auto context = (*opened)->newBackgroundContext();
    context->performAndWait([&] {
        FetchRequest request;
        request.limit = 1;
        const auto documents = context->fetch<CD_Document>(request);
        ASSERT_TRUE(documents.ok());
        (*documents)[0]->setTitle("Only in the log");
        ASSERT_TRUE(context->save().ok());
    });
    ASSERT_GT(fs::file_size(storeFile().string() + "-wal"), 0u);
    takeWritePermission(data());
    const auto listed = runWithoutRights({"list"});
    EXPECT_EQ(listed.code, 0) << listed.err;
    EXPECT_NE(listed.out.find("Only in the log"), std::string::npos);
}

TEST_F(ReadOnlyTest, FolderWithoutAnythingInItSaysSo) {
    fs::create_directory(data());
    takeWritePermission(data());
    for (const auto* command : {"list", "sync", "status"}) {
        const auto ran = runWithoutRights({command});
        EXPECT_EQ(ran.code, toInt(ExitCode::CannotCreate)) << command;
        EXPECT_TRUE(ran.err.starts_with("Couldn't create " + data().string())) << ran.err;
    }
}

} // namespace
} // namespace ledgerfinch::cli
