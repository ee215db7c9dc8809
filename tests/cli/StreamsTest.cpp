// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ProgramTest.h"

#include <unistd.h>

namespace ledgerfinch::cli {
namespace {

class StreamsTest : public ProgramTest {
protected:
    Ended runWithClosed(const std::vector<int>& streams, const std::vector<std::string>& words,
                        const std::string& input = {}) const {
        Subprocess program(withFolder(words), {}, Subprocess::Streams::Pipes, [&streams] {
            for (const int stream : streams)
                ::close(stream);
        });
        program.write(input);
        program.closeInput();
        const int code = program.wait();
        return {code, program.out(), program.err()};
    }
};

TEST_F(StreamsTest, ThatAreClosedAreNeverTakenForFilesOfTheProgram) {
    const std::vector<std::string> login{"login", server.url(), "--user", "admin", "--password-stdin"};
    EXPECT_EQ(runWithClosed({STDIN_FILENO}, login).code, toInt(ExitCode::BadData));
    EXPECT_EQ(runWithClosed({STDERR_FILENO}, login, "admin-pass\n").code, 0);
    EXPECT_EQ(runWithClosed({STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}, {"sync"}).code, 0);

    const auto lost = runWithClosed({STDOUT_FILENO}, {"list"});
    EXPECT_EQ(lost.code, toInt(ExitCode::CannotCreate));
    EXPECT_EQ(lost.err, "The output could not be written: Bad file descriptor.\n");
    EXPECT_EQ(runWithClosed({STDOUT_FILENO, STDERR_FILENO}, {"list", "--verbose"}).code, toInt(ExitCode::CannotCreate));
    EXPECT_EQ(runWithClosed({STDERR_FILENO}, {"show", "seven"}).code, toInt(ExitCode::Usage));
    EXPECT_EQ(runWithClosed({STDOUT_FILENO}, {"sync"}).code, 0);

    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (!entry.is_regular_file() || entry.path().extension() == ".sqlite") continue;
        const auto text = read(entry.path());
        EXPECT_EQ(text.find("CORRESPONDENT"), std::string::npos) << entry.path();
        EXPECT_EQ(text.find("could not be written"), std::string::npos) << entry.path();
    }
    EXPECT_EQ(nlohmann::json::parse(run({"list", "--json"}).out).size(), 120u);
}

TEST_F(StreamsTest, FullOnesAreSaidByEveryCommandThatWrites) {
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP();
    loginAndSync();
    for (const auto* words : {"list", "list --json", "show 1", "status --json", "settings", "instances --json", "logs",
                              "help", "list --help", "--version"}) {
        const auto command = std::string(LEDGERFINCH_CLI) + " --data-dir " + (folder / "data").string() + " " + words +
                             " > /dev/full 2> " + (folder / "err").string();
        EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), toInt(ExitCode::CannotCreate)) << words;
        EXPECT_EQ(read(folder / "err"), "The output could not be written: No space left on device.\n") << words;
    }
}

TEST_F(StreamsTest, OnTerminalsOfAnySizeAndKindHoldNoSequenceThatTheyCannotObey) {
    loginAndSync();
    const auto onTerminal = [this](const std::vector<std::string>& words, const std::vector<std::string>& environment) {
        Subprocess program(withFolder(words), environment, Subprocess::Streams::Terminal);
        EXPECT_EQ(program.wait(), 0) << program.out();
        return program.out();
    };
    for (const auto* columns : {"COLUMNS=1", "COLUMNS=7", "COLUMNS=0", "COLUMNS=-4", "COLUMNS=x", "COLUMNS=99999999999",
                                "COLUMNS=", "COLUMNS=4000"}) {
        const auto out = onTerminal({"list", "--limit", "3"}, {columns});
        EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 4) << columns << '\n' << out;
        EXPECT_NE(onTerminal({"sync", "--full"}, {columns}).find("Up to date: 120 documents."), std::string::npos);
    }
    for (const auto* terminal : {"TERM=dumb", "TERM="}) {
        EXPECT_EQ(onTerminal({"list"}, {terminal}).find('\x1b'), std::string::npos) << terminal;
        EXPECT_EQ(onTerminal({"sync"}, {terminal}).find('\x1b'), std::string::npos) << terminal;
    }
    EXPECT_EQ(onTerminal({"list"}, {"NO_COLOR=0"}).find('\x1b'), std::string::npos);
    EXPECT_NE(onTerminal({"list"}, {"NO_COLOR="}).find('\x1b'), std::string::npos);
}

TEST_F(StreamsTest, OfAnyBytesAreReadAndWritten) {
    // A folder whose name is no UTF-8 works; the text about it is.
    const auto strange = folder / "\xff\xfe";
    Subprocess program({"--data-dir", strange.string(), "status", "--json"});
    program.closeInput();
    EXPECT_EQ(program.wait(), 0) << program.err();
    EXPECT_TRUE(nlohmann::json::accept(program.out())) << program.out();
    EXPECT_TRUE(std::filesystem::exists(strange / "config"));

    loginAndSync();
    const auto file = folder / "\xfc.pdf";
    ASSERT_EQ(run({"download", "1", "-o", file.string()}).code, 0);
    // Down the pipe, the bytes and nothing else; into a file, which the system's name for it leads to, too.
    const auto piped = run({"download", "1", "-o", "/proc/self/fd/1"});
    EXPECT_EQ(piped.code, 0) << piped.err;
    EXPECT_EQ(piped.out, read(file));
    const auto out = folder / "out";
    const auto command = std::string(LEDGERFINCH_CLI) + " --data-dir " + (folder / "data").string() +
                         " download 1 --force -o /proc/self/fd/1 > " + out.string();
    EXPECT_EQ(WEXITSTATUS(std::system(command.c_str())), 0);
    EXPECT_EQ(read(out), read(file));
}

} // namespace
} // namespace ledgerfinch::cli
