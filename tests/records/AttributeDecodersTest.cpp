// SPDX-License-Identifier: GPL-3.0-or-later
#include "RecordsFixture.h"

#include "records/JsonReader.h"

#include <functional>

#include <gtest/gtest.h>

namespace ledgerfinch {
namespace {

using test::Console;
using test::recorded;

TEST(DecodeAttributes, ReadRecordedPages) {
    const Tags tags = decodeTags(recorded("tags"), {});
    ASSERT_TRUE(tags.decoded && tags.hasResults);
    EXPECT_EQ(tags.count, 14);
    const Tag& health = tags.results->at(2);
    EXPECT_EQ(health.id, 6);
    EXPECT_EQ(health.color, "#fb9a99");
    EXPECT_EQ(health.matching_algorithm, 5);
    EXPECT_EQ(health.is_insensitive, true);
    EXPECT_EQ(health.document_count, 36);
    EXPECT_EQ(health.permissions->view->users, (std::vector<std::int64_t>{4}));
    EXPECT_EQ(health.raw, R"({"name":"Gesundheit","color":"#fb9a99","match":"Arztrechnung","matching_algorithm":5,)"
                          R"("is_insensitive":true,"is_inbox_tag":false,"owner":5,)"
                          R"("permissions":{"view":{"users":[4],"groups":[1]},"change":{"users":[],"groups":[1]}}})");

    const Correspondents correspondents = decodeCorrespondents(recorded("correspondents"), {});
    ASSERT_TRUE(correspondents.hasResults);
    EXPECT_EQ(correspondents.results->size(), 4u);
    EXPECT_TRUE(correspondents.results->front().name);
    const Document_Types types = decodeDocumentTypes(recorded("document_types"), {});
    ASSERT_TRUE(types.hasResults);
    EXPECT_TRUE(types.results->front().slug);
    const Storage_Paths paths = decodeStoragePaths(recorded("storage_paths"), {});
    ASSERT_TRUE(paths.hasResults);
    EXPECT_EQ(JsonObject::parse(paths.results->front().raw)->text("path"), paths.results->front().path);

    const Users users = decodeUsers(recorded("users"), {});
    ASSERT_TRUE(users.hasResults);
    EXPECT_EQ(users.all, (std::vector<std::int64_t>{3, 4, 5, 6, 7}));
    EXPECT_EQ(users.results->at(1).groups, (std::vector<std::int64_t>{1}));
    EXPECT_EQ(users.results->at(1).user_permissions->size(), 3u);
    EXPECT_EQ(users.results->at(1).raw.find("password"), std::string::npos);
    const PaperlessGroups groups = decodeGroups(recorded("groups"), {});
    ASSERT_TRUE(groups.hasResults);
    EXPECT_EQ(groups.results->at(1).permissions->at(0), "view_correspondent");
}

TEST(DecodeAttributes, NextIsMendedOnEveryPage) {
    const DecodeContext context{nullptr, "https://papers.example"};
    const std::string body = R"({"next":"http://h/","results":[]})";
    EXPECT_EQ(decodeTags(body, context).next, "https://h/");
    EXPECT_EQ(decodeUsers(body, context).next, "https://h/");
    EXPECT_EQ(decodeSavedViews(body, context).next, "https://h/");
    EXPECT_EQ(decodeShareLinks(body, context).next, "https://h/");
}

TEST(DecodeAttributes, AFailedPageIsEmptySaysSoAndPrintsItsLine) {
    struct Case {
        std::string message;
        std::function<bool(const DecodeContext&)> failsEmpty;
    };
    const std::string bad = R"({"count":1,"next":"x","results":[{"id":"secret"}]})";
    const auto page = [&](auto decode) {
        return [decode, &bad](const DecodeContext& context) {
            const auto decoded = decode(bad, context);
            return !decoded.decoded && !decoded.hasResults && !decoded.count && !decoded.next && !decoded.results;
        };
    };
    const auto single = [&](auto decode) {
        return [decode](const DecodeContext& context) {
            return !decode(R"({"id":"secret"})", context).has_value();
        };
    };
    const std::string response = "enountered an error while decoding api response for ";
    const std::string one = "enountered an error while decoding ";
    const std::vector<Case> cases{
        {"Encountered error while serializing Tags: ", page(decodeTags)},
        {response + "correspondents: ", page(decodeCorrespondents)},
        {response + "document_types: ", page(decodeDocumentTypes)},
        {response + "storage paths: ", page(decodeStoragePaths)},
        {response + "custom fields: ", page(decodeCustomFields)},
        {response + "saved views: ", page(decodeSavedViews)},
        {response + "users: ", page(decodeUsers)},
        {response + "groups: ", page(decodeGroups)},
        {response + "share links: ", page(decodeShareLinks)},
        {response + "tasks: ", single(decodeTasks)},
        {one + "suggestions: ", single(decodeSuggestions)},
        {one + "tag: ", single(decodeTag)},
        {one + "correspondent: ", single(decodeCorrespondent)},
        {one + "document type: ", single(decodeDocumentType)},
        {one + "storage path: ", single(decodeStoragePath)},
        {response + "custom field: ", single(decodeCustomField)},
        {one + "saved view: ", single(decodeSavedView)},
        {one + "user: ", single(decodeUser)},
    };
    for (const Case& testCase : cases) {
        Console console;
        EXPECT_TRUE(testCase.failsEmpty(console.context)) << testCase.message;
        const std::string line = console.onlyLine();
        EXPECT_TRUE(line.starts_with(testCase.message)) << line;
        EXPECT_EQ(line.find("secret"), std::string::npos) << line;
        EXPECT_EQ(console.sink->records().front().level, LogLevel::Error);
    }
}

TEST(DecodeAttributes, OnlyTheIdIsRequiredOfMostRecords) {
    EXPECT_TRUE(decodeTag(R"({"id":1})", {}));
    EXPECT_TRUE(decodeCorrespondent(R"({"id":1,"last_correspondence":null})", {}));
    EXPECT_TRUE(decodeDocumentType(R"({"id":1})", {}));
    EXPECT_TRUE(decodeStoragePath(R"({"id":1})", {}));
    EXPECT_TRUE(decodeGroup(R"({"id":1})", {}));
    const auto user = decodeUser(R"({"id":1})", {});
    ASSERT_TRUE(user);
    EXPECT_EQ(user->groups, std::nullopt);
    EXPECT_EQ(user->raw, "{}");
    EXPECT_FALSE(decodeTag(R"({"id":1,"matching_algorithm":"6"})", {}));
    EXPECT_FALSE(decodeTag(R"({"id":1,"is_inbox_tag":0})", {}));
}

TEST(DecodeCustomFields, KnowTheServersKinds) {
    const Custom_Fields fields = decodeCustomFields(recorded("custom_fields"), {});
    ASSERT_TRUE(fields.hasResults);
    const Custom_Field& status = fields.results->at(1);
    EXPECT_EQ(status.data_type, Data_Type::select);
    EXPECT_EQ(status.extra_data->select_options->at(2), "Erledigt ✅");
    EXPECT_EQ(fields.results->at(4).extra_data->default_currency, "EUR");
    EXPECT_EQ(fields.results->at(3).extra_data.has_value(), false) << "null: no options, no currency";
    EXPECT_EQ(fields.results->at(0).data_type, Data_Type::string) << "longtext reads as text";
    EXPECT_EQ(JsonObject::parse(fields.results->at(0).raw)->text("data_type"), "longtext");
    for (const Custom_Field& field : *fields.results)
        EXPECT_EQ(dataTypeFromRawValue(rawValue(field.data_type)), field.data_type);

    const auto withHole = decodeCustomField(
        R"({"id":1,"name":"n","data_type":"select","extra_data":{"select_options":["a",null,"c"]}})", {});
    ASSERT_TRUE(withHole);
    EXPECT_EQ(withHole->extra_data->select_options->at(1), std::nullopt);
    EXPECT_EQ(withHole->extra_data->select_options->at(2), "c");
}

TEST(DecodeCustomFields, AnUnknownKindOrOptionFailsThePage) {
    EXPECT_FALSE(decodeCustomFields(R"({"results":[{"id":1,"name":"n","data_type":"colour"}]})", {}).decoded);
    EXPECT_FALSE(decodeCustomFields(R"({"results":[{"id":1,"name":"n","data_type":"String"}]})", {}).decoded);
    EXPECT_FALSE(decodeCustomFields(R"({"results":[{"id":1,"data_type":"url"}]})", {}).decoded);
    EXPECT_FALSE(
        decodeCustomFields(
            R"({"results":[{"id":1,"name":"n","data_type":"select","extra_data":{"select_options":[{"id":"x","label":"a"}]}}]})",
            {})
            .decoded);
}

} // namespace
} // namespace ledgerfinch
