// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/DisplayText.h"
#include "cli/Table.h"

#include <gtest/gtest.h>

#include <sstream>

namespace ledgerfinch::cli {
namespace {

TEST(DisplayText, LeavesNothingThatATerminalWouldObey) {
    const struct {
        std::string foreign;
        std::string shown;
    } cases[] = {
        {"plain, ümläut, 東京, مرحبا", "plain, ümläut, 東京, مرحبا"},
        {"\x1b]0;owned\x07\x1b[31mred", "\\x1b]0;owned\\x07\\x1b[31mred"},
        {"two\nlines\r\tand a tab", "two\\nlines\\r\\tand a tab"},
        {"\xc2\x9b"
         "31m C1",
         "\\x9b31m C1"},
        {"gpj\xe2\x80\xae"
         "fdp.exe",
         "gpj\\u{202e}fdp.exe"},
        {"\xe2\x81\xa6isolate\xe2\x80\xa8line", "\\u{2066}isolate\\u{2028}line"},
        {"broken \xff\xfe utf-8", "broken \xef\xbf\xbd\xef\xbf\xbd utf-8"},
        {std::string("nul\0byte", 8), "nul\\x00byte"},
        {"\x7f", "\\x7f"},
    };
    for (const auto& [foreign, shown] : cases)
        EXPECT_EQ(printable(foreign), shown);
    EXPECT_EQ(printable("a\r\nb\tc\x1b[m\rd", LineBreaks::Keep), "a\nb\tc\\x1b[m\\rd");
}

TEST(DisplayText, CountsColumnsAsATerminalDoes) {
    const struct {
        std::string text;
        std::size_t columns;
    } cases[] = {
        {"", 0},
        {"abc", 3},
        {"東京", 4},
        {"ｆｕｌｌ", 8},
        {"한국어", 6},
        {"e\xcc\x81", 1},
        {"🧾", 2},
        {"a\xe2\x80\x8d"
         "b",
         2},
        {"שלום", 4},
        {"\xc2\xad", 0},
        {"नमस्ते", 4},
    };
    for (const auto& [text, columns] : cases)
        EXPECT_EQ(displayWidth(text), columns) << text;
}

TEST(DisplayText, CutsBetweenCharactersAndNeverGrows) {
    EXPECT_EQ(truncated("invoice", 7), "invoice");
    EXPECT_EQ(truncated("invoices", 7), "invoic…");
    EXPECT_EQ(truncated("東京タワー", 6), "東京…");
    EXPECT_EQ(truncated("東京", 1), "…");
    EXPECT_EQ(truncated("x", 0), "");
    // The accent stays with its letter.
    EXPECT_EQ(truncated("e\xcc\x81"
                        "bcd",
                        2),
              "e\xcc\x81…");
    for (std::size_t width = 0; width < 14; ++width)
        EXPECT_LE(displayWidth(truncated("a東e\xcc\x81🧾京b", width)), width);
}

class TableTest : public testing::Test {
protected:
    std::istringstream in;
    std::ostringstream out;
    std::ostringstream err;
    Console console{.in = in, .out = out, .err = err, .width = {}, .readSecret = {}};

    std::vector<std::string> lines() const {
        std::vector<std::string> all;
        std::istringstream stream(out.str());
        for (std::string line; std::getline(stream, line);)
            all.push_back(line);
        return all;
    }
};

TEST_F(TableTest, AlignsWideAndHostileCells) {
    Table table(console, {{"ID", Alignment::Right, 0}, {"TITLE", Alignment::Left, 4}, {"TAG", Alignment::Left, 4}});
    table.add({"7", "東京", "a"});
    table.add({"100", "x\ny", "b"});
    table.finish();
    EXPECT_EQ(lines(), (std::vector<std::string>{" ID  TITLE  TAG", "  7  東京   a", "100  x\\ny   b"}));
}

TEST_F(TableTest, FitsTheWidthByCuttingTheWidestColumns) {
    console.width = 30;
    Table table(console, {{"ID", Alignment::Right, 0}, {"TITLE", Alignment::Left, 6}, {"NAME", Alignment::Left, 6}});
    table.add({"1", std::string(60, 't'), "Müller & Söhne"});
    table.add({"12345", "short", "x"});
    table.finish();
    for (const auto& line : lines())
        EXPECT_LE(displayWidth(line), 30u) << line;
    EXPECT_EQ(lines().size(), 3u);
}

TEST_F(TableTest, NeverCutsOffTheTerminal) {
    Table table(console, {{"TITLE", Alignment::Left, 6}});
    table.add({std::string(500, 't')});
    table.finish();
    EXPECT_EQ(lines().at(1).size(), 500u);
}

} // namespace
} // namespace ledgerfinch::cli
