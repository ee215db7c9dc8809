// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ProgramTest.h"

#include "objectstore/PersistentContainer.h"
#include "platform/LogSinks.h"
#include "store/entities/Models.h"

#include <csignal>

#include <sys/stat.h>

namespace ledgerfinch::cli {
namespace {

using support::Fault;

TEST_F(ProgramTest, WorksOnWithTheServerSwitchedOff) {
    loginAndSync();
    server.stop();
    EXPECT_EQ(nlohmann::json::parse(run({"list", "--json"}).out).size(), 120u);
    EXPECT_EQ(run({"show", "1"}).code, 0);
    EXPECT_EQ(run({"status"}).code, 0);
    EXPECT_EQ(run({"sync"}).code, toInt(ExitCode::Unreachable));
    EXPECT_EQ(run({"list", "--limit", "2"}, {}, {"XDG_DATA_HOME=/nonexistent"}).code, 0);
}

TEST_F(ProgramTest, ShowsNoSecretToOtherUsersOfTheMachine) {
    server.faults().onPath("/api/token/", Fault::stall(0), 1);
    Subprocess program(withFolder({"login", server.url(), "--user", "admin", "--password-stdin"}));
    program.write("admin-pass\n");
    while (server.faults().stalled() == 0)
        ASSERT_TRUE(program.isRunning());
    EXPECT_EQ(program.commandLine().find("admin-pass"), std::string::npos);
    EXPECT_EQ(program.environmentText().find("admin-pass"), std::string::npos);
    server.faults().release();
    EXPECT_EQ(program.wait(), 0) << program.err();
    EXPECT_EQ(program.out().find(server.token()), std::string::npos);
    // Without a secret service the token lies in a file that only its owner can read, and nowhere else.
    int files = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        struct stat status {};
        ASSERT_EQ(::lstat(entry.path().c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 077u, 0u) << entry.path();
        if (S_ISREG(status.st_mode) && read(entry.path()).find(server.token()) != std::string::npos) ++files;
    }
    EXPECT_LE(files, 1);
}

TEST_F(ProgramTest, AsksForThePasswordWithoutEchoAndRestoresTheTerminal) {
    Subprocess program(withFolder({"login", server.url(), "--user", "admin"}), {}, Subprocess::Streams::Terminal);
    ASSERT_TRUE(program.readUntil("Password of admin: "));
    program.write("admin-pass\n");
    EXPECT_EQ(program.wait(), 0) << program.out();
    EXPECT_EQ(program.out().find("admin-pass"), std::string::npos);

    Subprocess interrupted(withFolder({"login", server.url(), "--user", "admin"}), {}, Subprocess::Streams::Terminal);
    ASSERT_TRUE(interrupted.readUntil("Password of admin: "));
    interrupted.write("\x03");
    EXPECT_EQ(interrupted.wait(), 1000 + SIGINT);
}

TEST_F(ProgramTest, EndsQuietlyWhenTheReaderLeaves) {
    loginAndSync();
    for (const auto& words : {std::vector<std::string>{"list"}, {"list", "--json"}, {"help", "--man"}}) {
        Subprocess program(withFolder(words));
        program.closeOutput();
        EXPECT_EQ(program.wait(), 0);
        EXPECT_EQ(program.err(), "");
    }
}

TEST_F(ProgramTest, SaysWhenTheOutputIsLost) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
    const auto command = std::string(LEDGERFINCH_CLI) + " help > /dev/full 2> " + (folder / "err").string();
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), toInt(ExitCode::CannotCreate));
    EXPECT_TRUE(read(folder / "err").starts_with("The output could not be written: "));
}

TEST_F(ProgramTest, ColoursOnlyATerminalThatWantsThem) {
    loginAndSync();
    const auto list = [this](const std::vector<std::string>& environment) {
        Subprocess program(withFolder({"list", "--limit", "3"}), environment, Subprocess::Streams::Terminal);
        EXPECT_EQ(program.wait(), 0);
        return program.out();
    };
    EXPECT_NE(list({}).find('\x1b'), std::string::npos);
    EXPECT_EQ(list({"NO_COLOR=1"}).find('\x1b'), std::string::npos);
    EXPECT_EQ(list({"TERM=dumb"}).find('\x1b'), std::string::npos);
    EXPECT_EQ(run({"list", "--limit", "3"}).out.find('\x1b'), std::string::npos);
}

TEST_F(ProgramTest, EndsASyncCleanlyOnSignals) {
    ASSERT_EQ(run({"login", server.url(), "--user", "admin", "--password-stdin"}, "admin-pass\n").code, 0);
    for (const int number : {SIGINT, SIGTERM}) {
        server.faults().onPath("/api/documents/\\?", Fault::stall(0));
        Subprocess program(withFolder({"sync", "--full"}), {}, Subprocess::Streams::Terminal);
        while (server.faults().stalled() == 0)
            ASSERT_TRUE(program.isRunning());
        program.signal(number);
        EXPECT_TRUE(program.readUntil("Stopping after the record in hand"));
        server.faults().clear();
        EXPECT_EQ(program.wait(), toInt(ExitCode::Interrupted)) << program.out();
    }
    EXPECT_EQ(run({"sync"}).code, 0);
    EXPECT_EQ(nlohmann::json::parse(run({"list", "--json"}).out).size(), 120u);
}

TEST_F(ProgramTest, LeavesAStoreThatItCannotOpenAsItIs) {
    loginAndSync();
    const auto file = storeFile();
    for (const auto* other : {"-wal", "-shm"})
        std::filesystem::remove(file.string() + other);
    std::ofstream(file, std::ios::binary | std::ios::trunc) << std::string(20'000, 'x');
    const auto before = read(file);
    for (const auto* command : {"list", "status", "sync"}) {
        const auto ran = run({command});
        EXPECT_EQ(ran.code, toInt(ExitCode::Internal)) << command;
        EXPECT_NE(ran.err.find("Core Data Store failed "), std::string::npos) << ran.err;
    }
    EXPECT_EQ(read(file), before);
}

TEST_F(ProgramTest, LeavesAStoreOfANewerProgramAsItIs) {
    loginAndSync();
    const auto file = storeFile();
    for (const auto* suffix : {"", "-wal", "-shm"})
        std::filesystem::remove(file.string() + suffix);
    {
        const auto& today = ledgerfinchModel();
        const Model newer(today.name(), today.version() + 1, {{"CD_Later", {{"id", AttributeType::Int64}}, {}, {}}});
        const auto made = PersistentContainer::open(newer, {file, Durability::Full, {}},
                                                    Logger(std::make_shared<MemoryLogSink>(), "test"));
        ASSERT_TRUE(made.ok()) << made.error().message;
    }
    const auto before = read(file);
    const auto ran = run({"list"});
    EXPECT_EQ(ran.code, toInt(ExitCode::Internal));
    EXPECT_NE(ran.err.find("Core Data Store failed "), std::string::npos) << ran.err;
    EXPECT_EQ(read(file), before);
}

TEST_F(ProgramTest, WritesTheLogToStandardErrorOnlyWhenAskedTo) {
    const auto words = std::vector<std::string>{"login", server.url(), "--user", "admin", "--password-stdin"};
    EXPECT_EQ(run(words, "admin-pass\n").err, "");
    auto verbose = words;
    verbose.push_back("--verbose");
    const auto ran = run(verbose, "admin-pass\n");
    EXPECT_NE(ran.err.find("Received token from server, proceeding..."), std::string::npos) << ran.err;
    EXPECT_EQ(ran.err.find("admin-pass"), std::string::npos);
    EXPECT_EQ(ran.err.find(server.token()), std::string::npos);
}

} // namespace
} // namespace ledgerfinch::cli
