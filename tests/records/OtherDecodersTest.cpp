// SPDX-License-Identifier: GPL-3.0-or-later
#include "RecordsFixture.h"

#include "records/Encoders.h"

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

using namespace std::chrono_literals;
using test::Console;
using test::recorded;

std::optional<PaperlessTask> taskWith(const std::string& members) {
    const auto tasks = decodeTasks(R"([{"id":1)" + members + "}]", {});
    if (!tasks) return std::nullopt;
    return tasks->at(0);
}

TEST(DecodeTasks, ReadARecordedList) {
    const auto tasks = decodeTasks(recorded("tasks"), {});
    ASSERT_TRUE(tasks);
    ASSERT_EQ(tasks->size(), 4u);
    const PaperlessTask& done = tasks->at(0);
    EXPECT_EQ(done.task_file_name, "upload9.txt");
    EXPECT_EQ(done.status->kind, PaperlessTaskStatus::Case::complete);
    EXPECT_EQ(docIDFromResult(*done.result), 259);
    EXPECT_EQ(done.related_document, "259");
    EXPECT_EQ(done.ackknowledged, std::nullopt) << "the usual spelling is never read";
    EXPECT_EQ(done.date_done, dates::parseFractional("2026-11-22T19:59:12.472664Z"));
    EXPECT_EQ(tasks->at(3).status->kind, PaperlessTaskStatus::Case::failed);
    EXPECT_EQ(docIDFromResult(*tasks->at(3).result), std::nullopt);
    EXPECT_EQ(decodeTasks("[]", {})->size(), 0u);
    EXPECT_FALSE(decodeTasks(R"({"results":[]})", {})) << "a page is no bare list";
}

TEST(DecodeTasks, ReadStatusesLeniently) {
    using Case = PaperlessTaskStatus::Case;
    const auto statusOf = [](const std::string& value) {
        return *taskWith(R"(,"status":)" + value)->status;
    };
    EXPECT_EQ(taskWith("")->status, std::nullopt);
    EXPECT_EQ(taskWith(R"(,"status":null)")->status, std::nullopt);
    for (const char* text : {R"("PENDING")", R"("pending")"})
        EXPECT_EQ(statusOf(text).kind, Case::pending);
    for (const char* text : {R"("STARTED")", R"("started")"})
        EXPECT_EQ(statusOf(text).kind, Case::started);
    for (const char* text : {R"("SUCCESS")", R"("complete")"})
        EXPECT_EQ(statusOf(text).kind, Case::complete);
    for (const char* text : {R"("FAILURE")", R"("failed")"})
        EXPECT_EQ(statusOf(text).kind, Case::failed);
    EXPECT_EQ(statusOf(R"("success")"), (PaperlessTaskStatus{Case::unknown, "success"}));
    for (const char* other : {"5", "true", "[1]", R"({"a":{}})"})
        EXPECT_EQ(statusOf(other), (PaperlessTaskStatus{Case::unknown, "unknown"})) << other;
}

TEST(DecodeTasks, DatesNeedAFraction) {
    EXPECT_TRUE(taskWith(R"(,"date_done":"2026-11-22T20:59:12.4+01:00")")->date_done);
    EXPECT_EQ(taskWith(R"(,"date_done":null)")->date_done, std::nullopt);
    EXPECT_FALSE(taskWith(R"(,"date_done":"2026-11-22T20:59:12+01:00")"));
    EXPECT_FALSE(taskWith(R"(,"date_created":"")"));
    EXPECT_TRUE(taskWith(R"(,"ackknowledged":true)")->ackknowledged.value());
    EXPECT_FALSE(taskWith(R"(,"related_document":253)"));
}

TEST(DocIDFromResult, FindsThePatternAnywhere) {
    EXPECT_EQ(docIDFromResult("Success. New document id 253 created"), 253);
    EXPECT_EQ(docIDFromResult("log: Success! New document id 7 created, fine"), 7);
    EXPECT_EQ(docIDFromResult("Success… New document id 8 created"), 8) << "any one character";
    EXPECT_EQ(docIDFromResult("x New document id 1 created Success. New document id 2 created"), 2);
    for (const char* text : {"", "Success New document id 5 created", "Success. New document id  created",
                             "Success.. New document id 5 created", "Success\n New document id 5 created",
                             "Success\u0085 New document id 5 created", "Success\u2028 New document id 5 created",
                             "Success\u2029 New document id 5 created", "Success. New document id 5x created",
                             " New document id 5 created", "Success. New document id 99999999999999999999 created"})
        EXPECT_EQ(docIDFromResult(text), std::nullopt) << text;
}

TEST(DecodeShareLinks, TakeBothDateForms) {
    const PaperlessShareLinks links = decodeShareLinks(recorded("share_links"), {});
    ASSERT_TRUE(links.hasResults);
    EXPECT_EQ(links.results->at(0).slug, "abcDEF123");
    EXPECT_EQ(links.results->at(0).fileVersion, "archive");
    EXPECT_TRUE(links.results->at(0).expiration);
    EXPECT_EQ(links.results->at(2).expiration, std::nullopt);
    const auto whole = decodeShareLink(
        R"({"id":1,"created":"2024-03-01T12:30:00Z","slug":"s","document":2,"file_version":"original"})", {});
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->created, dates::parseWholeSecond("2024-03-01T12:30:00Z"));
    EXPECT_EQ(whole->expiration, std::nullopt);
    Console console;
    const std::string date = "yesterday, " + std::string(100, '!');
    const auto failed = decodeShareLinks(R"({"results":[{"id":1,"created":")" + date +
                                             R"(","slug":"s","document":2,"file_version":"original"}]})",
                                         console.context);
    EXPECT_FALSE(failed.decoded);
    EXPECT_EQ(failed.failure, "results[0].created: Invalid date: " + date + " (byte 30)");
    EXPECT_EQ(console.onlyLine(), "enountered an error while decoding api response for share links: "
                                  "results[0].created: Invalid date: <private> (byte 30)");
    EXPECT_EQ(links.failure, "");
}

TEST(DecodeSuggestions, ReadDaysInTheDevicesZone) {
    EXPECT_TRUE(decodeSuggestions(recorded("suggestions"), {}));
    const auto suggestions = decodeSuggestions(
        R"({"correspondents":[1],"tags":[],"document_types":[2,5],"storage_paths":[],"dates":["2024-03-01"]})", {});
    ASSERT_TRUE(suggestions);
    EXPECT_EQ(suggestions->document_types, (std::vector<std::int64_t>{2, 5}));
    EXPECT_EQ(suggestions->dates.at(0), dates::parseDateOnly("2024-03-01"));
    EXPECT_FALSE(decodeSuggestions(
        R"({"correspondents":[],"tags":[],"document_types":[],"storage_paths":[],"dates":["2024-13-40"]})", {}));
    EXPECT_FALSE(decodeSuggestions(R"({"correspondents":[],"tags":[],"document_types":[],"storage_paths":[]})", {}));
}

TEST(DecodeUISettings, ReadTheUserAlone) {
    const auto settings = decodeUISettings(recorded("ui_settings"), {});
    ASSERT_TRUE(settings);
    EXPECT_EQ(settings->user.id, 3);
    EXPECT_FALSE(decodeUISettings(R"({"settings":{}})", {}));
    const auto doubled = decodeUISettings(R"({"user":{"id":1,"username":"first"},"user":{"id":2}})", {});
    ASSERT_TRUE(doubled);
    EXPECT_EQ(doubled->user.id, 2);
    EXPECT_EQ(doubled->user.username, std::nullopt) << "two users don't mix";
}

TEST(DecodeSavedViews, ReadRulesAndKeepThem) {
    const Saved_views views = decodeSavedViews(recorded("saved_views"), {});
    ASSERT_TRUE(views.hasResults);
    EXPECT_EQ(views.results->at(1).filter_rules.at(20).value,
              R"(["AND",[["Bezahlt","exact","true"],["Betrag","gt",5]]])");
    EXPECT_EQ(views.results->at(2).sort_field, std::nullopt);
    EXPECT_EQ(views.results->at(2).filter_rules.at(0), (Filter_rule{3, std::nullopt}));
    EXPECT_TRUE(views.results->at(3).filter_rules.empty());
    EXPECT_FALSE(decodeSavedView(R"({"id":1,"name":"n"})", {})) << "rules are required";
    EXPECT_FALSE(decodeSavedView(R"({"id":1,"name":"n","filter_rules":[{"rule_type":1,"value":5}]})", {}));
}

TEST(Encoders, WriteWhatTheDecodersRead) {
    const Saved_views views = decodeSavedViews(recorded("saved_views"), {});
    for (const Saved_view& view : *views.results) {
        const auto again = decodeSavedView(encode(view), {});
        ASSERT_TRUE(again) << encode(view);
        EXPECT_EQ(again->name, view.name);
        EXPECT_EQ(again->sort_field, view.sort_field);
        EXPECT_EQ(again->filter_rules, view.filter_rules);
    }
    EXPECT_EQ(encode(Filter_rule{6, std::nullopt}), R"({"rule_type":6})");
    EXPECT_EQ(encode(Custom_Field_Extra_Data{}), "{}");
    EXPECT_EQ(encode(Custom_Field_Extra_Data{{{"a", std::nullopt}}, "EUR"}),
              R"({"select_options":["a",null],"default_currency":"EUR"})");
    const auto links = decodeShareLinks(recorded("share_links"), {});
    for (const PaperlessShareLink& link : *links.results) {
        const auto again = decodeShareLink(encode(link), {});
        ASSERT_TRUE(again) << encode(link);
        EXPECT_EQ(again->created, link.created);
        EXPECT_EQ(again->expiration, link.expiration);
    }
    EXPECT_EQ(encode(PaperlessShareLink{1, Timestamp{1h}, std::nullopt, "s", 2, "archive"}),
              R"({"id":1,"created":"1970-01-01T01:00:00Z","slug":"s","document":2,"file_version":"archive"})");
}

} // namespace
} // namespace ledgerfinch
