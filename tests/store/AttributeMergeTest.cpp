// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFixture.h"

#include "store/TagColor.h"

namespace ledgerfinch {
namespace {

using test::idsOf;
using testing::ElementsAre;
using testing::IsEmpty;

class AttributeMerge : public test::StoreTest {};

TEST_F(AttributeMerge, WritesWhatIsDeliveredAndLeavesAloneWhatIsNot) {
    store().saveTags(tags(R"([{"id":3,"name":"Bills","slug":"bills","color":"#ffffff","match":"invoice",
        "matching_algorithm":6,"is_insensitive":true,"is_inbox_tag":true,"document_count":12}])"),
                     Delivery::Complete);
    store().saveTags(tags(R"([{"id":3,"name":"Invoices","color":"#000000"}])"), Delivery::Complete);

    const auto tag = store().getTag(3);
    ASSERT_TRUE(tag);
    EXPECT_EQ(tag->name(), "Invoices");
    EXPECT_EQ(tag->slug(), "bills");
    EXPECT_EQ(tag->match(), "invoice");
    EXPECT_EQ(tag->matching_algorithm(), 6);
    EXPECT_TRUE(tag->is_insensitive());
    EXPECT_TRUE(tag->is_inbox_tag());
    EXPECT_EQ(tag->document_count(), 0) << "counts are taken from the documents";
    EXPECT_EQ(tag->color(), "#000000");
    EXPECT_EQ(tag->text_color(), "FFFFFF");
    EXPECT_EQ(serverShadow(*tag)->text("name"), "Invoices");
    EXPECT_EQ(serverShadow(*tag)->text("match"), "invoice") << "what a delivery left out was delivered before";
    EXPECT_EQ(count<CD_Tag>(), 1U);
}

TEST(TagColors, TextIsReadableOnEveryColour) {
    const std::vector<std::pair<std::optional<std::string>, std::string>> cases{
        {"#fff", "000000"},      {"#000000", "FFFFFF"}, {"a6cee3", "000000"},     {"#00FFFFFF", "000000"},
        {"#80000000", "FFFFFF"}, {"#ff0", "000000"},    {"#0000ff", "FFFFFF"},    {std::nullopt, "FFFFFF"},
        {"", "FFFFFF"},          {"#ffff", "FFFFFF"},   {"#fffffffff", "FFFFFF"}, {"rgb(255,255,255)", "FFFFFF"},
    };
    for (const auto& [color, text] : cases)
        EXPECT_EQ(textColorOn(color), text) << color.value_or("absent");
    EXPECT_EQ(TagColor::parse("#1aF").text(), "#11AAFF");
}

TEST_F(AttributeMerge, TagWithoutColourTakesTheAccentColour) {
    store().saveTag(tags(R"([{"id":1,"name":"a"}])").front());
    EXPECT_EQ(store().getTag(1)->color(), "#725BFF");
    ASSERT_TRUE(services.defaults->set("customAccentColor", "#fa0"));
    store().saveTag(tags(R"([{"id":1,"name":"a"}])").front());
    EXPECT_EQ(store().getTag(1)->color(), "#FFAA00");
    EXPECT_EQ(store().getTag(1)->text_color(), "000000");
}

TEST_F(AttributeMerge, OnlyACompleteListRemoves) {
    const auto all = tags(R"([{"id":1,"name":"a"},{"id":2,"name":"b"},{"id":3}])");
    store().saveTags(all, Delivery::Complete, background());
    const auto first = tags(R"([{"id":1,"name":"a"}])");

    store().saveTags({}, Delivery::Absent, background());
    EXPECT_TRUE(log->contains("error obtaining tags from server"));
    store().saveTags(first, Delivery::Partial, background());
    EXPECT_THAT(idsOf(store().getTags()), ElementsAre(1, 2, 3));

    EXPECT_EQ(store().saveTags(first, Delivery::Complete, background()).removed, 2U);
    EXPECT_THAT(idsOf(store().getTags()), ElementsAre(1));
    store().saveTags({}, Delivery::Complete, background());
    EXPECT_THAT(store().getTags(), IsEmpty());
}

TEST_F(AttributeMerge, AccessIsReplacedAsWholeSetsOfWhoIsKnown) {
    store().saveGroups(groups(R"([{"id":7,"name":"family"}])"), Delivery::Complete);
    store().saveUsers(users(R"([{"id":1,"username":"ann"},{"id":2,"username":"ben"}])"), Delivery::Complete);
    store().saveTag(tags(R"([{"id":1,"name":"a","owner":2,"permissions":
        {"view":{"users":[1,2,99],"groups":[7]},"change":{"users":[2],"groups":[7,8]}}}])")
                        .front());
    const auto tag = store().getTag(1);
    EXPECT_THAT(idsOf(tag->viewable_by_users()), ElementsAre(1, 2));
    EXPECT_THAT(idsOf(tag->viewable_by_groups()), ElementsAre(7));
    EXPECT_THAT(idsOf(tag->editable_by_users()), ElementsAre(2));
    EXPECT_THAT(idsOf(tag->editable_by_groups()), ElementsAre(7));
    EXPECT_EQ(tag->owner()->username(), "ben");

    // Without permissions the sets are empty, but what was last delivered of them is still known.
    store().saveTag(tags(R"([{"id":1,"name":"a","owner":null}])").front());
    EXPECT_THAT(tag->viewable_by_users(), IsEmpty());
    EXPECT_THAT(tag->editable_by_groups(), IsEmpty());
    EXPECT_EQ(tag->owner()->id(), 2) << "a merge clears no owner";
    EXPECT_EQ(serverShadow(*tag)->object("permissions")->object("view")->integers("users")->size(), 3U);
    EXPECT_TRUE(serverShadow(*tag)->isNull("owner"));

    store().saveTag(tags(R"([{"id":1,"name":"a","owner":null}])").front(), nullptr, Authority::ServerWins);
    EXPECT_FALSE(tag->owner());
}

TEST_F(AttributeMerge, CorrespondentsKeepNoOwnerAndReadTheirDates) {
    store().saveUser(users(R"([{"id":1,"username":"ann"}])").front());
    const auto merged = [&](const std::string& date) {
        store().saveCorrespondent(
            correspondents(R"([{"id":4,"name":"Bank","owner":1,"last_correspondence":")" + date + R"("}])").front());
        return store().getCorrespondent(4)->last_correspondence();
    };
    EXPECT_EQ(merged("2024-03-01T12:30:00Z"), dates::parseWholeSecond("2024-03-01T12:30:00Z"));
    EXPECT_EQ(merged("2024-03-01T12:30:00.5+01:00"), dates::parseFractional("2024-03-01T11:30:00.500Z"));
    EXPECT_EQ(merged("yesterday"), std::nullopt);
    EXPECT_FALSE(store().getCorrespondent(4)->owner());
}

TEST_F(AttributeMerge, GroupThatSeveralCorrespondentsNameDoesNotGoRoundForEver) {
    store().saveGroup(groups(R"([{"id":7,"name":"family"}])").front());
    const auto both = correspondents(R"([
        {"id":1,"name":"a","permissions":{"view":{"users":[],"groups":[]},"change":{"users":[],"groups":[7]}}},
        {"id":2,"name":"b","permissions":{"view":{"users":[],"groups":[]},"change":{"users":[],"groups":[7]}}}])");
    store().saveCorrespondents(both, Delivery::Complete);
    EXPECT_THAT(idsOf(store().getCorrespondent(2)->editable_by_groups()), ElementsAre(7));
    EXPECT_EQ(rowsWrittenBy([&] { store().saveCorrespondents(both, Delivery::Complete); }), 0U);
    EXPECT_THAT(idsOf(store().getCorrespondent(2)->editable_by_groups()), ElementsAre(7));
}

TEST_F(AttributeMerge, RulesOfASavedViewAreReplacedAndLeaveNoOrphans) {
    const auto merge = [&](const std::string& rules) {
        store().saveSavedViews(
            savedViews(R"([{"id":1,"name":"Inbox","sort_field":"created","filter_rules":)" + rules + "}]"),
            Delivery::Complete);
    };
    merge(R"([{"rule_type":6,"value":"1"},{"rule_type":3,"value":null},{"rule_type":6,"value":"1"}])");
    EXPECT_EQ(store().getSavedView(1)->filter_rules().size(), 3U);
    EXPECT_EQ(store().getSavedView(1)->sort_field(), "created");

    merge(R"([{"rule_type":6,"value":"2"}])");
    ASSERT_EQ(store().getSavedView(1)->filter_rules().size(), 1U);
    EXPECT_EQ(store().getSavedView(1)->filter_rules().front()->value(), "2");
    EXPECT_EQ(count<CD_Filter_Rule>(), 1U);
    store().saveSavedViews({}, Delivery::Complete);
    EXPECT_EQ(count<CD_Filter_Rule>(), 0U) << "rules go with their view";
}

TEST_F(AttributeMerge, PermissionsBelongToOneHolderEach) {
    store().saveGroups(groups(R"([{"id":7,"name":"family","permissions":["view_tag"]}])"), Delivery::Complete);
    store().saveUsers(users(R"([
        {"id":1,"username":"ann","groups":[7,8],"user_permissions":["view_tag"],"inherited_permissions":["view_tag"]},
        {"id":2,"username":"ben","user_permissions":["view_tag","add_tag"],"date_joined":"2024-03-01T12:30:00.25Z"}])"),
                      Delivery::Complete);
    EXPECT_EQ(count<CD_Permission>(), 5U);
    EXPECT_THAT(idsOf(store().getUser(1)->groups()), ElementsAre(7));
    EXPECT_EQ(store().getUser(2)->date_joined(), dates::parseFractional("2024-03-01T12:30:00.25Z"));

    // Lists that aren't delivered stay as they are; an empty one empties.
    store().saveUser(users(R"([{"id":1,"username":"ann"}])").front());
    EXPECT_EQ(store().getUser(1)->user_permissions().size(), 1U);
    EXPECT_THAT(idsOf(store().getUser(1)->groups()), ElementsAre(7));
    store().saveUser(users(R"([{"id":2,"user_permissions":["add_tag"]}])").front());
    ASSERT_EQ(store().getUser(2)->user_permissions().size(), 1U);
    EXPECT_EQ(store().getUser(2)->user_permissions().front()->stringRepresentation(), "add_tag");
    store().saveUsers({}, Delivery::Complete);
    EXPECT_EQ(count<CD_Permission>(), 1U) << "only the group's is left";
}

TEST_F(AttributeMerge, UnchangedListsWriteNothing) {
    const auto pass = [&] {
        store().saveGroups(groups(R"([{"id":7,"name":"family","permissions":["view_tag","add_tag"]}])"),
                           Delivery::Complete, background());
        store().saveUsers(users(R"([{"id":1,"username":"ann","first_name":"Ann","date_joined":"2024-03-01T12:30:00Z",
            "groups":[7],"user_permissions":["b","a"],"inherited_permissions":["c"],"is_staff":true}])"),
                          Delivery::Complete, background());
        store().saveTags(tags(R"([{"id":1,"name":"a"},{"id":2,"name":"b","color":"#fff","owner":1,
            "permissions":{"view":{"users":[1],"groups":[7]},"change":{"users":[1],"groups":[]}}}])"),
                         Delivery::Complete, background());
        store().saveCorrespondents(
            correspondents(R"([{"id":1,"name":"Bank","last_correspondence":"2024-03-01T12:30:00Z"}])"),
            Delivery::Complete, background());
        store().saveCustomFields(
            customFields(R"([{"id":1,"name":"Kind","data_type":"select","extra_data":{"select_options":["a",null]}}])"),
            Delivery::Complete, background());
        store().saveSavedViews(savedViews(R"([{"id":1,"name":"Inbox","show_in_sidebar":true,
            "filter_rules":[{"rule_type":6,"value":"1"},{"rule_type":3,"value":null}]}])"),
                               Delivery::Complete, background());
    };
    EXPECT_GT(rowsWrittenBy(pass), 0U);
    EXPECT_EQ(rowsWrittenBy(pass), 0U);
    EXPECT_EQ(store().getCustomField(1)->extra_data(), R"({"select_options":["a",null]})");
    EXPECT_EQ(store().getCustomField(1)->data_type(), "select");
}

TEST_F(AttributeMerge, RecordThatCannotBeSavedStopsNothingAndLeavesNothingBehind) {
    store();
    execute("CREATE TRIGGER refuse BEFORE INSERT ON CD_Tag WHEN NEW.id = 2 BEGIN SELECT RAISE(ABORT, 'full'); END");
    const auto outcome = store().saveTags(tags(R"([{"id":1,"name":"a"},{"id":2,"name":"b"},{"id":3,"name":"c"}])"),
                                          Delivery::Complete, background());
    EXPECT_EQ(outcome.saved, 2U);
    EXPECT_EQ(outcome.failed, 1U);
    EXPECT_FALSE(outcome.complete());
    EXPECT_TRUE(log->contains("Failed to save tag "));
    EXPECT_THAT(idsOf(store().getTags()), ElementsAre(1, 3));

    execute("DROP TRIGGER refuse");
    store().saveTags(tags(R"([{"id":4,"name":"d"}])"), Delivery::Partial, background());
    EXPECT_THAT(idsOf(store().getTags()), ElementsAre(1, 3, 4)) << "half of a record rides on no later save";
}

TEST_F(AttributeMerge, StoreThatCannotBeAskedAddsNoSecondObject) {
    store().saveTags(tags(R"([{"id":1,"name":"a"}])"), Delivery::Complete, background());
    execute("ALTER TABLE CD_Tag RENAME TO away");
    EXPECT_FALSE(store().saveTag(tags(R"([{"id":1,"name":"b"}])").front(), background()).isValid());
    background()->performAndWait([&] {
        EXPECT_FALSE(background()->findWithID<CD_Tag>(5));
        EXPECT_FALSE(background()->hasChanges());
    });
    execute("ALTER TABLE away RENAME TO CD_Tag");
    EXPECT_TRUE(store().saveTag(tags(R"([{"id":1,"name":"b"}])").front(), background()).isValid());
    EXPECT_EQ(count<CD_Tag>(), 1U);
}

TEST_F(AttributeMerge, ServerThatHasTheLastWordClearsAndRefreshes) {
    store().saveUsers(users(R"([{"id":1,"username":"ann","first_name":"Ann"}])"), Delivery::Complete);
    const auto bank = [&](const std::string& json) {
        return correspondents("[" + json + "]").front();
    };
    store().saveCorrespondent(bank(R"({"id":4,"name":"Bank","match":"iban","owner":1})"), nullptr,
                              Authority::ServerWins);
    EXPECT_EQ(store().getCorrespondent(4)->owner()->id(), 1);
    const auto cleared = bank(R"({"id":4,"name":"Bank","match":null,"owner":null})");
    store().saveCorrespondent(cleared);
    EXPECT_EQ(store().getCorrespondent(4)->match(), "iban");
    EXPECT_TRUE(store().getCorrespondent(4)->owner());
    store().saveCorrespondent(cleared, nullptr, Authority::ServerWins);
    EXPECT_EQ(store().getCorrespondent(4)->match(), std::nullopt);
    EXPECT_FALSE(store().getCorrespondent(4)->owner());

    store().saveSavedView(savedViews(R"([{"id":1,"name":"v","sort_field":"created","filter_rules":[]}])").front());
    store().saveSavedView(savedViews(R"([{"id":1,"name":"v","sort_field":null,"filter_rules":[]}])").front(), nullptr,
                          Authority::ServerWins);
    EXPECT_EQ(store().getSavedView(1)->sort_field(), std::nullopt);
    store().saveUser(users(R"([{"id":1,"username":"ann","first_name":null}])").front(), nullptr, Authority::ServerWins);
    EXPECT_EQ(store().getUser(1)->first_name(), std::nullopt);
}

TEST_F(AttributeMerge, BearersOfARemovedAttributeGetItBackWhenItReturns) {
    const auto tag = tags(R"([{"id":1,"name":"a"}])");
    store().saveTags(tag, Delivery::Complete, background());
    store().saveDocument(document(R"({"id":10,"title":"t","tags":[1]})"), background());
    store().saveTags({}, Delivery::Complete, background());
    EXPECT_THAT(store().getDocument(10)->tags(), IsEmpty());
    EXPECT_THAT(RepairList(store()).entries(), ElementsAre(RepairItem{"CD_Document", 10, "unresolved"}));
    store().saveTags(tag, Delivery::Complete, background());
    EXPECT_EQ(store().resolveUnresolved(background()), 1U);
    EXPECT_THAT(idsOf(store().getDocument(10)->tags()), ElementsAre(1));
}

TEST_F(AttributeMerge, RemovalThatCannotBeSavedIsRolledBack) {
    store().saveTags(tags(R"([{"id":1,"name":"a"},{"id":2,"name":"b"}])"), Delivery::Complete, background());
    execute("CREATE TRIGGER refuse BEFORE DELETE ON CD_Tag BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_EQ(store().saveTags({}, Delivery::Complete, background()).removed, 0U);
    execute("DROP TRIGGER refuse");
    EXPECT_THAT(idsOf(store().getTags()), ElementsAre(1, 2));
    background()->performAndWait([&] { EXPECT_FALSE(background()->hasChanges()); });
}

TEST_F(AttributeMerge, ListsAreSortedAsPeopleReadThem) {
    store().saveTags(tags(R"([{"id":1,"name":"tag 10"},{"id":2,"name":"Tag 9"},{"id":3,"name":"älter"}])"),
                     Delivery::Complete, background());
    std::vector<std::string> names;
    for (const auto& tag : store().getTags())
        names.push_back(tag->attributeName());
    EXPECT_THAT(names, ElementsAre("älter", "Tag 9", "tag 10"));
}

TEST_F(AttributeMerge, NamelessAttributesHaveFallbacksOfTheirKind) {
    store().saveTag(tags(R"([{"id":1}])").front());
    store().saveCorrespondent(named<Correspondent>(1));
    store().saveDocumentType(named<Document_Type>(1));
    store().saveStoragePath(named<Storage_Path>(1));
    std::vector<std::string> names;
    const std::vector<std::shared_ptr<PaperlessAttribute>> attributes{
        store().getTag(1), store().getCorrespondent(1), store().getDocumentType(1), store().getStoragePath(1)};
    for (const auto& attribute : attributes)
        names.push_back(attribute->attributeName());
    EXPECT_THAT(names, ElementsAre("Untitled Tag", "Untitled Correspondent", "Untitled document type",
                                   "Untitled storage path"));
    EXPECT_EQ(attributes[0]->attributeTextColor(), "FFFFFF");
    EXPECT_EQ(attributes[1]->attributeColor(), std::nullopt);
}

} // namespace
} // namespace ledgerfinch
