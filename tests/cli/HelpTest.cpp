// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"
#include "cli/DisplayText.h"

namespace ledgerfinch::cli {
namespace {

using HelpTest = CommandTest;

TEST_F(HelpTest, NeedsNoFolder) {
    const auto sameText = run({"help"}).out;
    EXPECT_EQ(run({"--help"}).out, sameText);
    EXPECT_EQ(run({}).out, sameText);
    EXPECT_EQ(run({"help", "sync"}).out, run({"sync", "--help"}).out);
    EXPECT_TRUE(run({"--version"}).out.starts_with("ledgerfinch-cli 0."));
    EXPECT_TRUE(run({"help", "--man"}).out.find("\\fB77\\fR") != std::string::npos);
    EXPECT_EQ(programsMade, 0);
    EXPECT_FALSE(std::filesystem::exists(data()));
    std::istringstream lines(sameText);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(displayWidth(line), 80u) << line;
}

TEST_F(HelpTest, MistakesGetASentenceASuggestionAndNothingElse) {
    const struct {
        std::vector<std::string> words;
        std::string begins;
    } cases[] = {
        {{"lsit"}, "Unknown command lsit. Did you mean list?"},
        {{"\x1b[2J"}, "Unknown command \\x1b[2J."},
        {{"list", "--limmit", "3"}, "Unknown option --limmit. Did you mean --limit?"},
        {{"list", "extra"}, "list takes options only, no further word."},
        {{"show"}, "show needs ID."},
        {{"show", "1", "2"}, "show takes no more than 1 word besides its options."},
        {{"show", "seven"}, "ID is a whole number"},
        {{"list", "--limit", "-3"}, "--limit needs a whole number"},
        {{"list", "--columns", "id,titel"}, "Unknown column titel. Did you mean title?"},
        {{"login", "http://h", "--password=x"}, "A password is never taken from the command line"},
        {{"help", "nothing"}, "Unknown command nothing."},
        {{"help", ""}, "Unknown command \"\"."},
        {{""}, "Unknown command \"\"."},
        {{"\xff"}, "Unknown command \xef\xbf\xbd."},
        {{"list", "--columns", ""}, "Unknown column \"\". There are: id"},
        {{"list", "--sort", "-"}, "Unknown sort key \"\"."},
        {{"list", "--limit", ""}, "--limit needs a whole number"},
        {{"list", "--limit", "99999999999999999999"}, "--limit needs a whole number"},
        {{"list", "--json=yes"}, "--json takes no value."},
        {{"show", "1", "--json", "--content"}, "--json holds the text already"},
        {{"settings", "set", "download_all", "true", "--json"}, "settings set takes no --json."},
        {{std::string(100'000, 'x')}, "Unknown command xxx"},
        {{"list", "--" + std::string(100'000, 'x')}, "Unknown option --xxx"},
        {{"list", "--columns", std::string(100'000, 'x')}, "Unknown column xxx"},
    };
    for (const auto& [words, begins] : cases) {
        const auto ran = run(words);
        EXPECT_EQ(ran.code, ExitCode::Usage) << begins;
        EXPECT_TRUE(ran.err.starts_with(begins)) << ran.err;
        EXPECT_EQ(ran.out, "");
        EXPECT_LT(ran.err.size(), 400u) << begins;
    }
    EXPECT_EQ(programsMade, 0);
}

} // namespace
} // namespace ledgerfinch::cli
