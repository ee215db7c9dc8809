// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/Arguments.h"

#include <gtest/gtest.h>

#include <array>

namespace ledgerfinch::cli {
namespace {

constexpr std::array<OptionDescription, 3> kOptions{{
    {"limit", "N", "", 'n'},
    {"json", "", ""},
    {"output", "PATH", "", 'o'},
}};

Result<Arguments> parse(std::vector<std::string> words) {
    return parseArguments(words, kOptions);
}

TEST(Arguments, AreTakenInEveryUsualForm) {
    const std::vector<std::vector<std::string>> forms{
        {"--limit", "5", "--json", "word"},
        {"--limit=5", "word", "--json"},
        {"-n5", "--json", "word"},
        {"word", "-n", "5", "--json"},
        {"-n", "3", "--json", "-n", "5", "--", "word"},
    };
    for (const auto& form : forms) {
        const auto parsed = parse(form);
        ASSERT_TRUE(parsed.ok());
        EXPECT_EQ(parsed->value("limit"), "5");
        EXPECT_TRUE(parsed->has("json"));
        EXPECT_FALSE(parsed->has("output"));
        EXPECT_EQ(parsed->positionals(), std::vector<std::string>{"word"});
    }
    EXPECT_EQ(parse({"--", "--json"})->positionals(), std::vector<std::string>{"--json"});
    EXPECT_EQ(parse({"--output", "-x"})->value("output"), "-x");
    EXPECT_EQ(parse({"-"})->positionals(), std::vector<std::string>{"-"});
}

TEST(Arguments, AreRefusedWithASentenceThatHoldsNoValue) {
    const struct {
        std::vector<std::string> words;
        std::string sentence;
    } cases[] = {
        {{"--limt", "3"}, "Unknown option --limt. Did you mean --limit?"},
        {{"--zzzzzz=hunter2"}, "Unknown option --zzzzzz."},
        {{"-phunter2"}, "Unknown option -p."},
        {{"--json=yes"}, "--json takes no value."},
        {{"--limit"}, "--limit needs a value: --limit N."},
        {{"--\x1b[31m"}, "Unknown option --\\x1b[31m."},
    };
    for (const auto& [words, sentence] : cases) {
        const auto parsed = parse(words);
        ASSERT_FALSE(parsed.ok());
        EXPECT_EQ(parsed.error().message, sentence);
    }
}

TEST(Arguments, SuggestOnlyWhatIsNear) {
    constexpr std::array<std::string_view, 4> names{"list", "login", "logout", "settings"};
    EXPECT_EQ(nearest("lsit", names), "list");
    EXPECT_EQ(nearest("set", names), "settings");
    EXPECT_EQ(nearest("logut", names), "logout");
    EXPECT_EQ(nearest("frobnicate", names), std::nullopt);
    EXPECT_EQ(nearest(std::string(5000, 'l'), names), std::nullopt);
}

TEST(Arguments, TakeWholeNumbersOnly) {
    EXPECT_EQ(wholeNumber("42"), 42);
    EXPECT_EQ(wholeNumber("-1"), -1);
    for (const auto* text : {"", "4x", " 4", "4.0", "99999999999999999999", "0x10"})
        EXPECT_EQ(wholeNumber(text), std::nullopt) << text;
}

} // namespace
} // namespace ledgerfinch::cli
