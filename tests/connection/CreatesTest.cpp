// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/Status.h"
#include "connection/endpoints/Creates.h"
#include "connection/endpoints/Writes.h"

namespace ledgerfinch::test {
namespace {

class Creates : public ConnectionTest {
protected:
    void SetUp() override {
        server.clear();
        handler = handlerFor();
        values.name = "New \"one\"";
        values.color = "#a6cee3";
        values.match = "invoice";
        values.matching_algorithm = 3;
        values.path = "{created_year}/{title}";
        values.owner = 4;
        values.viewable_by_users = {5};
        values.editable_by_groups = {1};
    }
    std::shared_ptr<ApiHandler> handler;
    NewAttribute values;
};

TEST_F(Creates, EachAttributeIsMadeWithEverythingTheFormHolds) {
    const auto check = [this](const std::string& table, const auto& created, const std::vector<std::string>& keys) {
        ASSERT_EQ(created.status, 201) << table << created.body;
        ASSERT_TRUE(created.record) << table;
        const auto record = server.record(table, created.record->id);
        ASSERT_TRUE(record) << table;
        EXPECT_EQ(record->at("name"), values.name);
        EXPECT_EQ(record->at("owner"), 4);
        EXPECT_EQ(record->at("permissions")["view"]["users"], Json({5})) << table;
        EXPECT_EQ(record->at("permissions")["change"]["groups"], Json({1})) << table;
        EXPECT_EQ(keysOf(onlyRequest("POST /api/" + table + "/").request.body), keys) << table;
    };
    std::vector<std::string> keys{"name", "match", "matching_algorithm", "is_insensitive", "owner", "set_permissions"};
    check("correspondents", createCorrespondent(*handler, values), keys);
    check("document_types", createDocumentType(*handler, values), keys);
    keys.push_back("path");
    check("storage_paths", createStoragePath(*handler, values), keys);
    check(
        "tags", createTag(*handler, values),
        {"name", "color", "match", "matching_algorithm", "is_insensitive", "is_inbox_tag", "owner", "set_permissions"});
}

TEST_F(Creates, ARecordJustMadeCanBeEditedWithoutLosingItsPermissions) {
    const auto created = createTag(*handler, values);
    ASSERT_TRUE(created.record);
    (void)core->saveTag(*created.record, core->backgroundContext());
    Ref<CD_Tag> tag;
    inStore([&](ManagedObjectContext& context) {
        tag = context.firstWithID<CD_Tag>(created.record->id);
        tag->setName("Renamed");
    });
    EXPECT_EQ(updateTag(*handler, tag), 200);
    const auto record = *server.record("tags", created.record->id);
    EXPECT_EQ(record["name"], "Renamed");
    EXPECT_EQ(record["permissions"]["view"]["users"], Json({5}));
    inStore([](ManagedObjectContext& context) { context.rollback(); });
}

TEST_F(Creates, FieldErrorsComeBackAsTheServerWroteThem) {
    ASSERT_EQ(createTag(*handler, values).status, 201);
    const auto again = createTag(*handler, values);
    EXPECT_EQ(again.status, 400);
    EXPECT_FALSE(again.record);
    EXPECT_EQ(again.body, R"({"error":"Object violates owner / name unique constraint"})");
    EXPECT_TRUE(log->contains("Error updating document status 400"));
    server.stop();
    const auto unheard = createTag(*handler, values);
    EXPECT_EQ(unheard.status, status::kNoAnswer);
    EXPECT_EQ(unheard.body, "");
}

TEST_F(Creates, CustomFieldsCarryOnlyTheExtrasOfTheirType) {
    const auto extras = [this](Data_Type type) {
        server.clearRequests();
        const auto created =
            createCustomField(*handler, {"field " + std::string(rawValue(type)), type, {"a", "b"}, "EUR"});
        EXPECT_TRUE(created.record) << created.body;
        const auto body = onlyRequest("POST ").request.body;
        EXPECT_EQ(keysOf(body), (std::vector<std::string>{"name", "data_type", "extra_data"}));
        return Json::parse(body)["extra_data"].dump();
    };
    EXPECT_EQ(extras(Data_Type::select), R"({"select_options":["a","b"]})");
    EXPECT_EQ(extras(Data_Type::monetary), R"({"default_currency":"EUR"})");
    EXPECT_EQ(extras(Data_Type::string), "{}");
}

TEST_F(Creates, ASavedViewTakesItsRulesAlong) {
    Saved_view view;
    view.name = "Mine";
    view.show_in_sidebar = true;
    view.filter_rules = {{6, "1"}, {18, std::nullopt}};
    const auto created = createSavedView(*handler, view);
    ASSERT_TRUE(created.record) << created.body;
    EXPECT_EQ(created.record->filter_rules, view.filter_rules);
    const auto body = onlyRequest("POST ").request.body;
    EXPECT_EQ(body,
              R"({"name":"Mine","show_on_dashboard":false,"show_in_sidebar":true,"sort_field":null,)"
              R"("sort_reverse":false,"filter_rules":[{"rule_type":6,"value":"1"},{"rule_type":18,"value":null}]})");
}

} // namespace
} // namespace ledgerfinch::test
