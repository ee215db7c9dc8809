// SPDX-License-Identifier: GPL-3.0-or-later
#include "RecordsFixture.h"

#include "records/JsonReader.h"

#include <thread>

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

using test::recorded;

TEST(HostileBodies, BodiesThatAreNoJsonFailCleanly) {
    const std::string good = R"({"results":[]})";
    const std::vector<std::string> bad{
        "",
        " ",
        "null",
        "5",
        R"("text")",
        "[]",
        "{",
        "}",
        R"({"results":[)",
        R"({"results":[}])",
        good + "x",
        good + good,
        good + "]",
        good + ",",
        R"({"results":[]"count":1})",
        R"({"results":[],})",
        R"({results:[]})",
        R"({'results':[]})",
        "{\"next\":\"a\nb\"}",
        R"({"next":"\x"})",
        R"({"next":"\u12"})",
        R"({"x":"\q"})",
        R"({"x":nul})",
        R"({"x":01})",
        R"({"x":[1 2]})",
        R"({"x":{"a" 1}})",
        R"({"x":NaN})",
        "<!DOCTYPE html><html><body>Server Error (500)</body></html>",
        std::string("\0\0\0", 3),
        "\xEF\xBB\xBF",
    };
    for (const std::string& body : bad) {
        EXPECT_FALSE(decodeDocuments(body, {})) << body;
        EXPECT_FALSE(decodeTags(body, {}).decoded) << body;
    }
    EXPECT_TRUE(decodeTags("\xEF\xBB\xBF" + good, {}).hasResults) << "a byte order mark is no fault";
    EXPECT_TRUE(decodeTags(" \r\n\t" + good + " \n", {}).hasResults);
}

TEST(HostileBodies, EveryCutOfARecordedPageFails) {
    const std::string body = recorded("documents");
    for (std::size_t length = 0; length < body.size(); length += 7)
        EXPECT_FALSE(decodeDocuments(std::string_view(body).substr(0, length), {})) << length;
}

TEST(HostileBodies, DeepNestingIsRefusedWithoutUsingUpTheStack) {
    constexpr std::size_t kDepth = 10'000;
    const std::string lists = std::string(kDepth, '[') + std::string(kDepth, ']');
    std::string objects;
    for (std::size_t i = 0; i < kDepth; ++i)
        objects += R"({"a":)";
    objects += "1" + std::string(kDepth, '}');
    for (const std::string& nested : {lists, objects}) {
        EXPECT_FALSE(decodeDocuments(nested, {}));
        EXPECT_FALSE(decodeDocuments(R"({"x":)" + nested + "}", {}));
        EXPECT_FALSE(decodeDocument(R"({"id":1,"title":"t","tags":)" + nested + "}", {}));
        EXPECT_FALSE(
            decodeDocument(R"({"id":1,"title":"t","custom_fields":[{"field":1,"value":)" + nested + "}]}", {}));
        EXPECT_FALSE(JsonObject::parse(R"({"x":)" + nested + "}"));
    }
    EXPECT_FALSE(decodeDocuments(std::string(100'000, '['), {}));
}

TEST(HostileBodies, TextsThatNoUtf8CanHoldReadAsReplacementCharacters) {
    const auto titleOf = [](const std::string& text) {
        const auto document = decodeDocument(R"({"id":1,"title":")" + text + R"("})", {});
        return document ? document->title : "failed";
    };
    EXPECT_EQ(titleOf(R"(a\ud800b)"), "a\uFFFDb");
    EXPECT_EQ(titleOf(R"(\udc00\ud800)"), "\uFFFD\uFFFD");
    EXPECT_EQ(titleOf(R"(\ud83d\ude00 \ud83d)"), "😀 \uFFFD");
    EXPECT_EQ(titleOf(R"(\ud83d\u0041\n\\ud800)"), "\uFFFDA\n\\ud800");
    EXPECT_EQ(titleOf("a\xFF\xC3(b"), "a\uFFFD\uFFFD(b");
    EXPECT_EQ(titleOf("\xED\xA0\x80x").back(), 'x') << "a surrogate written as bytes";
    EXPECT_EQ(titleOf(R"(a\u0000b)"), std::string("a\0b", 3));
    EXPECT_EQ(titleOf(R"(\b\f\t\r\/\"\u00e9\u65E5)"), "\b\f\t\r/\"é日");

    const auto page =
        decodeDocuments(R"({"results":[{"id":1,"title":"\ud800"},{"id":2,"title":"fine","content":"\u0000"}]})", {});
    ASSERT_TRUE(page) << "one bad title must not cost the page";
    EXPECT_EQ(page->results->at(1).title, "fine");
}

TEST(HostileBodies, ThreadsDecodeSideBySide) {
    const std::string body = recorded("documents");
    std::vector<std::jthread> threads;
    std::vector<int> good(4);
    for (int& count : good)
        threads.emplace_back([&body, &count] {
            for (int i = 0; i < 50; ++i)
                if (const auto page = decodeDocuments(body, {}); page && page->results->size() == 9) ++count;
        });
    threads.clear();
    EXPECT_EQ(good, (std::vector<int>{50, 50, 50, 50}));
}

TEST(HostileBodies, ALargeBodyAfterASmallOneAndBackAgain) {
    const std::string content(20'000'000, 'a');
    EXPECT_TRUE(decodeDocument(R"({"id":1,"title":"t"})", {}));
    const auto large = decodeDocument(R"({"id":1,"title":"t","content":")" + content + R"(\n"})", {});
    ASSERT_TRUE(large);
    EXPECT_EQ(large->content->size(), content.size() + 1);
    EXPECT_TRUE(decodeDocument(R"({"id":1,"title":"t"})", {}));
}

} // namespace
} // namespace ledgerfinch
