// SPDX-License-Identifier: GPL-3.0-or-later
#include "RecordsFixture.h"

#include "records/JsonReader.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

using test::Console;
using test::recorded;

Document decodedDocument(const std::string& body) {
    Console console;
    auto document = decodeDocument(body, console.context);
    EXPECT_TRUE(document) << body << console.onlyLine();
    return document ? *document : Document{};
}

/// A document with one custom field value, or nothing when that fails it.
std::optional<Custom_Field_of_Document> fieldOf(const std::string& value) {
    Console console;
    const auto document = decodeDocument(
        R"({"id":1,"title":"t","custom_fields":[{"value":)" + value + R"(,"field":4}]})", console.context);
    if (!document) return std::nullopt;
    return document->custom_fields->at(0);
}

bool documentFails(const std::string& body) {
    Console console;
    return !decodeDocument(body, console.context).has_value();
}

TEST(DecodeDocuments, ReadsARecordedPage) {
    const auto page = decodeDocuments(recorded("documents"), {});
    ASSERT_TRUE(page) << page.error().message;
    EXPECT_TRUE(page->decoded);
    EXPECT_TRUE(page->hasResults);
    EXPECT_EQ(page->count, 259);
    EXPECT_EQ(page->all->front(), 259);
    EXPECT_FALSE(page->previous);
    ASSERT_EQ(page->results->size(), 9u);

    const Document& uploaded = page->results->at(1);
    EXPECT_EQ(uploaded.id, 253);
    EXPECT_EQ(uploaded.title, "Hochgeladen äöü 日本 😀");
    EXPECT_EQ(uploaded.correspondent, 2);
    EXPECT_EQ(uploaded.tags, (std::vector<std::int64_t>{1, 3, 2, 10}));
    EXPECT_EQ(uploaded.created, "2024-03-01T00:00:00+01:00");
    EXPECT_EQ(uploaded.archive_serial_number, 9001);
    EXPECT_NE(uploaded.content->find("ACME Corporation (page 1)\nDate"), std::string::npos);
    EXPECT_FALSE(uploaded.user_can_change);

    EXPECT_EQ(page->results->at(0).archive_serial_number, std::nullopt);
    const Document& noted = page->results->at(2);
    ASSERT_EQ(noted.notes->size(), 2u);
    EXPECT_EQ(noted.notes->at(1).note, "付箋: 確認済み");
    EXPECT_EQ(noted.notes->at(1).user, 5);
    const Document& shared = page->results->at(3);
    EXPECT_EQ(shared.permissions->view->users, (std::vector<std::int64_t>{4, 6}));
    EXPECT_EQ(shared.permissions->change->groups, (std::vector<std::int64_t>{1}));
    EXPECT_EQ(*shared.custom_fields->at(0).value->asString(), "EUR12.50");
}

TEST(DecodeDocuments, KeepsWhatMayBeSentBackToTheByte) {
    const auto document = decodedDocument(
        R"({ "id" : 7, "title" : "caf\u00e9 \/ \ud800", "owner":null , "archive_serial_number": 9007199254740993,)"
        R"("custom_fields":[ {"value":99999999999999999999.50,"field":1 } ] ,"content":"x","page_count":2,)"
        R"("created":"2024-03-01","created_date" : "2024-03-01","permissions":{"view":{"users":[1],"extra":{}}}, "tags":[3,  1]})");
    EXPECT_EQ(document.raw, R"({"title":"caf\u00e9 \/ \ud800","tags":[3,  1],"created":"2024-03-01",)"
                            R"("created_date":"2024-03-01","archive_serial_number":9007199254740993,"owner":null,)"
                            R"("permissions":{"view":{"users":[1],"extra":{}}},)"
                            R"("custom_fields":[ {"value":99999999999999999999.50,"field":1 } ]})");
    const auto raw = JsonObject::parse(document.raw);
    ASSERT_TRUE(raw);
    EXPECT_TRUE(raw->isNull("owner"));
    EXPECT_FALSE(raw->has("correspondent")) << "was never delivered";
    EXPECT_EQ(raw->integer("archive_serial_number"), 9007199254740993);
    EXPECT_EQ(document.title, "café / \uFFFD");

    // Every recorded document's raw holds exactly what its body held.
    const auto page = decodeDocuments(recorded("documents"), {});
    ASSERT_TRUE(page);
    const auto body = JsonObject::parse(recorded("documents"));
    const auto results = body->elements("results");
    for (std::size_t i = 0; i < results->size(); ++i) {
        const auto delivered = JsonObject::parse(results->at(i));
        const auto kept = JsonObject::parse(page->results->at(i).raw);
        EXPECT_EQ(kept->members().size(), 11u);
        for (const auto& [name, value] : kept->members())
            EXPECT_EQ(delivered->raw(name), value) << name;
    }
}

TEST(DecodeDocuments, EmptyPagesAreValidAndTellWhetherTheyHeldResults) {
    for (const std::string body : {R"({"count":0,"next":null,"results":[]})", R"({"results":[]})"}) {
        const auto page = decodeDocuments(body, {});
        ASSERT_TRUE(page) << body;
        EXPECT_TRUE(page->decoded && page->hasResults && page->results->empty() && !page->next);
    }
    for (const std::string body : {R"({"count":0})", "{}", R"({"results":null})", R"({"detail":"Invalid page."})"}) {
        const auto page = decodeDocuments(body, {});
        ASSERT_TRUE(page) << body;
        EXPECT_TRUE(page->decoded && !page->hasResults) << body;
    }
}

TEST(DecodeDocuments, MendsTheSchemeOfNextBehindATlsProxyOnly) {
    const std::string body = R"({"next":"http://h/?x=http://h","previous":"http://h/p"})";
    const auto nextWith = [&](const std::string& server, const std::string& text) {
        return decodeDocuments(text, {nullptr, server})->next;
    };
    EXPECT_EQ(nextWith("https://papers.example", body), "https://h/?x=https://h");
    EXPECT_EQ(nextWith("proxy+https", body), "https://h/?x=https://h");
    EXPECT_EQ(nextWith("http://papers.example", body), "http://h/?x=http://h");
    EXPECT_EQ(nextWith("http://papers.example", R"({"next":"https://h/"})"), "https://h/");
    EXPECT_EQ(nextWith("", body), "http://h/?x=http://h");
    EXPECT_EQ(decodeDocuments(body, {nullptr, "https://x"})->previous, "http://h/p");
}

TEST(DecodeDocuments, AFailureNamesItsPlaceAndNoValues) {
    const auto page =
        decodeDocuments(R"({"results":[{"id":1,"title":"a"},{"id":2,"title":"secret","tags":[1,"secret"]}]})", {});
    ASSERT_FALSE(page);
    EXPECT_EQ(page.error().message, "results[1].tags[1]: an integer of 64 bits was expected (byte 68)");
    EXPECT_EQ(decodeDocuments(R"({"results":[{"id":1}]})", {}).error().message,
              "results[0].title: the key is missing (byte 18)");
}

TEST(DecodeDocument, IsAsStrictAsItsTable) {
    EXPECT_TRUE(documentFails(R"({"title":"t"})"));
    EXPECT_TRUE(documentFails(R"({"id":1})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":null})"));
    EXPECT_TRUE(documentFails(R"({"id":null,"title":"t"})"));
    EXPECT_TRUE(documentFails(R"({"id":true,"title":"t"})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":5})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":"t","archive_serial_number":"5"})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":"t","user_can_change":1})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":"t","tags":[null]})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":"t","permissions":[]})"));
    EXPECT_TRUE(documentFails(R"({"id":1,"title":"t","notes":[{"id":1,"user":{"id":3}}]})"));
    EXPECT_FALSE(documentFails(R"({"id":1,"title":"t","content":null,"custom_fields":null,"unknown":{"a":[1e999]}})"));
}

TEST(DecodeDocument, IntegersReachBothEndsOf64BitsAndMayBeWrittenWithAFraction) {
    const auto idOf = [](const std::string& digits) -> std::optional<std::int64_t> {
        const auto document = decodeDocument(R"({"id":)" + digits + R"(,"title":""})", {});
        return document ? std::optional(document->id) : std::nullopt;
    };
    EXPECT_EQ(idOf("9223372036854775807"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(idOf("-9223372036854775808"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(idOf("1.0"), 1);
    EXPECT_EQ(idOf("-2e3"), -2000);
    EXPECT_EQ(idOf("9007199254740993.0"), 9007199254740993);
    EXPECT_EQ(idOf("9223372036854775807.0"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(idOf("-9.223372036854775808E+18"), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(idOf("12.50e1"), 125);
    EXPECT_EQ(idOf("1200e-2"), 12);
    EXPECT_EQ(idOf("-0.0"), 0);
    EXPECT_EQ(idOf("0e99999999999999999999"), 0);
    EXPECT_EQ(idOf("1" + std::string(400, '0') + "e-400"), 1);
    for (const char* bad :
         {"9223372036854775808", "-9223372036854775809", "9223372036854775808.0", "9223372036854775807.5", "1.5",
          "1.00000000000000000001", "125e-2", "1e-400", "1e-99999999999999999999", "1e19", "1e400",
          "1e99999999999999999999", "01", "01.0", "1.", "1e", "1x", "+1", "-"})
        EXPECT_EQ(idOf(bad), std::nullopt) << bad;
}

TEST(DecodeDocument, FieldValuesAreTextTruthNumberOrListInThisOrder) {
    EXPECT_EQ(*fieldOf(R"("EUR12.50")")->value->asString(), "EUR12.50");
    EXPECT_EQ(*fieldOf(R"("")")->value->asString(), "");
    EXPECT_EQ(*fieldOf("true")->value->asBoolean(), true);
    EXPECT_EQ(*fieldOf("17")->value->asFloat(), 17.0f);
    EXPECT_EQ(*fieldOf("-0.5")->value->asFloat(), -0.5f);
    EXPECT_EQ(fieldOf("\"\"")->value->kind(), Field_Value::Case::string);
    EXPECT_EQ(fieldOf("false")->value->kind(), Field_Value::Case::boolean);
    EXPECT_EQ(fieldOf("0")->value->kind(), Field_Value::Case::float_);
    EXPECT_EQ(fieldOf("[0]")->value->kind(), Field_Value::Case::docLink);
    EXPECT_EQ(*fieldOf("16777217")->value->asFloat(), 16777216.0f);
    EXPECT_EQ(*fieldOf("[3,1]")->value->asDocLink(), (std::vector<std::int64_t>{3, 1}));
    EXPECT_TRUE(fieldOf("[]")->value->asDocLink()->empty());
    EXPECT_EQ(fieldOf("null")->value, std::nullopt);
    for (const char* bad : {"{}", R"({"a":1})", "[1.5]", R"(["a"])", "[null]", "[[1]]", "tru"})
        EXPECT_EQ(fieldOf(bad), std::nullopt) << bad;
    for (const char* bad : {"{}", "[7,null]", R"([[{"a":1}]])"}) {
        Console console;
        decodeDocument(R"({"id":1,"title":"t","custom_fields":[{"value":)" + std::string(bad) + R"(,"field":4}]})",
                       console.context);
        EXPECT_EQ(console.onlyLine(),
                  "enountered an error while decoding document: custom_fields[0].value: missingValue (byte 46)");
    }
}

TEST(DecodeDocument, ANumberBeyond32BitsIsTheLargestOne) {
    constexpr float kLargest = std::numeric_limits<float>::max();
    EXPECT_EQ(*fieldOf("1e300")->value->asFloat(), kLargest);
    EXPECT_EQ(*fieldOf("-1e39")->value->asFloat(), -kLargest);
    EXPECT_EQ(*fieldOf("1e400")->value->asFloat(), kLargest);
    EXPECT_EQ(*fieldOf("-" + std::string(400, '9'))->value->asFloat(), -kLargest);
    EXPECT_EQ(*fieldOf("1e-400")->value->asFloat(), 0.0f);
    EXPECT_EQ(fieldOf("1e400x"), std::nullopt);
}

TEST(DecodeDocument, TheLastOfTwoEqualKeysCounts) {
    const auto document = decodedDocument(R"({"id":1,"id":2,"title":"a","tags":[1],"title":"b","t\u0061gs":null})");
    EXPECT_EQ(document.id, 2);
    EXPECT_EQ(document.title, "b");
    EXPECT_EQ(document.tags, std::nullopt);
    EXPECT_EQ(document.raw, R"({"title":"b","tags":null})");
}

TEST(DecodeDocument, OfTwoEqualKeysTheFirstMayHoldAnything) {
    const auto document = decodedDocument(
        R"( {"id":"x","title":{"a":[]},"tags":[null],"tags":[1, 2],"id":1,"title":"b",)"
        R"("permissions":{"view":5,"view":{"users":[4]}},"custom_fields":[{"value":{},"field":1,"value":true}]})");
    EXPECT_EQ(document.id, 1);
    EXPECT_EQ(document.title, "b");
    EXPECT_EQ(document.tags, (std::vector<std::int64_t>{1, 2}));
    EXPECT_EQ(document.permissions->view->users, (std::vector<std::int64_t>{4}));
    EXPECT_EQ(*document.custom_fields->at(0).value->asBoolean(), true);
    EXPECT_EQ(JsonObject::parse(document.raw)->integers("tags"), document.tags);
    EXPECT_EQ(
        decodeDocuments(R"({"results":5,"results":[{"id":1,"id":2,"title":0,"title":"t"}]})", {})->results->at(0).id,
        2);
    EXPECT_EQ(decodeNotes(R"([{"id":null,"id":3}])", {})->at(0).id, 3);

    EXPECT_TRUE(documentFails(R"({"id":1,"title":"b","id":"x"})"));
    EXPECT_TRUE(documentFails(R"({"id":[1 2],"id":1,"title":"b"})")) << "what is overtaken must be JSON still";
    Console console;
    decodeDocument(R"({"id":"x","id":1,"title":5})", console.context);
    EXPECT_EQ(console.onlyLine(),
              "enountered an error while decoding document: id: an integer of 64 bits was expected (byte 6)")
        << "places are those of the body as it came";
}

TEST(DecodeNotes, ReadsTheBareList) {
    const auto notes = decodeNotes(R"([{"id":1,"note":"n","created":"2024","user":3},{"id":2}])", {});
    ASSERT_TRUE(notes);
    EXPECT_EQ(notes->size(), 2u);
    EXPECT_EQ(notes->at(0).user, 3);
    EXPECT_FALSE(decodeNotes(R"([{"note":"n"}])", {}));
}

} // namespace
} // namespace ledgerfinch
