// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/JsonReader.h"
#include "records/JsonWriter.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

TEST(JsonWriter, PutsCommasWhereTheyBelong) {
    JsonWriter writer;
    writer.beginObject().key("empty").beginArray().endArray().key("list").beginArray();
    writer.integer(1).beginObject().endObject().null().beginArray().boolean(false).endArray().endArray();
    writer.member("name", "n").member("none", std::optional<std::int64_t>{}).member("some", std::optional<bool>{true});
    writer.member("ids", std::vector<std::int64_t>{1, 2}).rawMember("raw", R"({"a": 1.0})").endObject();
    EXPECT_EQ(writer.take(), R"({"empty":[],"list":[1,{},null,[false]],"name":"n","none":null,"some":true,)"
                             R"("ids":[1,2],"raw":{"a": 1.0}})");
    writer.beginArray().string("again").endArray();
    EXPECT_EQ(writer.take(), R"(["again"])");
}

TEST(JsonWriter, EveryTextReadsBackAsItself) {
    std::string everything("äöü 日本 😀 \" \\ / ");
    for (char c = 0; c < 0x20; ++c)
        everything += c;
    everything += '\x7F';
    EXPECT_EQ(json::text(jsonQuoted(everything)), everything);
    EXPECT_EQ(jsonQuoted(std::string("a\0\x1f\n", 4)), R"("a\u0000\u001f\n")");
    EXPECT_EQ(json::text(jsonQuoted("a\xFF")), "a\uFFFD");
    EXPECT_EQ(jsonQuoted(""), R"("")");
}

TEST(JsonWriter, NumbersReadBackAsThemselves) {
    const auto written = [](double number) {
        return JsonWriter().number(number).take();
    };
    for (const double number : {0.1, -1e300, 5e-324, 17.0, 1e22, -0.0})
        EXPECT_EQ(json::number(written(number)), number) << number;
    EXPECT_EQ(JsonWriter().value(0.1f).take(), "0.1");
    EXPECT_EQ(written(std::nan("")), "null");
    EXPECT_EQ(written(std::numeric_limits<double>::infinity()), "null");
    EXPECT_EQ(JsonWriter().integer(std::numeric_limits<std::int64_t>::min()).take(), "-9223372036854775808");
    constexpr auto kLargest = std::numeric_limits<std::uint64_t>::max();
    EXPECT_EQ(JsonWriter().integer(kLargest).take(), "18446744073709551615");
    EXPECT_EQ(JsonWriter().value(std::vector<std::uint64_t>{kLargest, 0}).take(), "[18446744073709551615,0]");
}

TEST(JsonObject, ReadsMembersAndKeepsTheirBytes) {
    const auto object = JsonObject::parse(
        R"( { "a" : 1.0 , "t":"x\u0041", "n": null,"l":[1, 2 ],"s":["a","b"],"o":{"k" : [ {} ]},"b":true,"a":5 } )");
    ASSERT_TRUE(object);
    EXPECT_EQ(object->integer("a"), 5);
    EXPECT_EQ(object->text("t"), "xA");
    EXPECT_EQ(object->raw("t"), R"("x\u0041")");
    EXPECT_TRUE(object->has("n") && object->isNull("n") && !object->text("n"));
    EXPECT_FALSE(object->has("missing") || object->isNull("missing"));
    EXPECT_EQ(object->integers("l"), (std::vector<std::int64_t>{1, 2}));
    EXPECT_EQ(object->texts("s"), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(object->object("o")->raw("k"), "[ {} ]");
    EXPECT_EQ(object->elements("l"), (std::vector<std::string>{"1", "2"}));
    EXPECT_EQ(object->boolean("b"), true);
    EXPECT_EQ(object->integer("t"), std::nullopt);
    EXPECT_EQ(object->boolean("a"), std::nullopt);
    EXPECT_EQ(object->toText(),
              R"({"a":5,"t":"x\u0041","n":null,"l":[1, 2 ],"s":["a","b"],"o":{"k" : [ {} ]},"b":true})");
}

TEST(JsonObject, ComposesABodyOfUntouchedAndChangedMembers) {
    auto object = JsonObject::parse(R"({"title":"old","owner":9007199254740993,"tags":[1]})");
    ASSERT_TRUE(object);
    object->setRaw("title", jsonQuoted("new \"one\""));
    object->remove("tags");
    object->setRaw("added", "null");
    EXPECT_EQ(object->toText(), R"({"title":"new \"one\"","owner":9007199254740993,"added":null})");
    EXPECT_EQ(JsonObject().toText(), "{}");
    EXPECT_TRUE(JsonObject::parse("{}")->empty());
}

TEST(JsonObject, EachNameIsThereOnceAtItsFirstPlaceWithItsLastValue) {
    EXPECT_EQ(JsonObject::parse(R"({"a":1,"b":2,"\u0061":3,"c":4,"b":5,"a":6})")->toText(), R"({"a":6,"b":5,"c":4})");

    // So many that asking every earlier name would take minutes.
    constexpr int kNames = 50'000;
    JsonWriter writer;
    writer.beginObject();
    for (const int round : {1, 2})
        for (int i = 0; i < kNames; ++i)
            writer.member("name" + std::to_string(i), i * round);
    const auto object = JsonObject::parse(writer.endObject().take());
    ASSERT_TRUE(object);
    ASSERT_EQ(object->members().size(), std::size_t{kNames});
    for (const int i : {0, 1, kNames / 2, kNames - 1}) {
        const auto& [name, value] = object->members().at(static_cast<std::size_t>(i));
        EXPECT_EQ(name, "name" + std::to_string(i));
        EXPECT_EQ(value, std::to_string(2 * i));
    }
}

TEST(Json, AFragmentIsExactlyOneValue) {
    for (const char* good : {"1", "-1e5", R"("a")", "null", "true", "[]", R"({"a":[1,{"b":null}]})", " 1 "})
        EXPECT_TRUE(json::isValid(good)) << good;
    for (const char* bad : {"", "1,2", "1],[2", "tru", "01", R"("a)", "{", "[1,]", R"({"a"})", "nan", "1 2", "]"})
        EXPECT_FALSE(json::isValid(bad)) << bad;
    EXPECT_EQ(json::integer("9223372036854775808"), std::nullopt);
    EXPECT_EQ(json::integer("true"), std::nullopt);
    EXPECT_EQ(json::integers("[1,null]"), std::nullopt);
    EXPECT_EQ(json::text("null"), std::nullopt);
}

} // namespace
} // namespace ledgerfinch
