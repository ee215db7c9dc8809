// SPDX-License-Identifier: GPL-3.0-or-later
// Merges in a context in which somebody is editing, and lists that meet a store that can't be written.
#include "store/StoreFixture.h"

#include "store/RepairEntries.h"

namespace ledgerfinch {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;

class MergeBesideEdits : public test::StoreTest {
protected:
    MergeBesideEdits() {
        store().saveTags(tags(R"([{"id":1,"name":"a"},{"id":2,"name":"b"}])"), Delivery::Complete);
        edited = store().getTag(1);
        edited->setName("not sent yet");
    }
    template <class T>
    std::size_t pendingOf() {
        FetchRequest request;
        return view()->fetch<T>(request).value().size();
    }
    void refuse(const std::string& table) {
        execute("CREATE TRIGGER refuse BEFORE INSERT ON " + table + " BEGIN SELECT RAISE(ABORT, 'full'); END");
    }

    Ref<CD_Tag> edited;
};

constexpr const char* kDocument = R"({"id":10,"title":"t","content":"text","notes":[{"id":3,"note":"n"}],"tags":[2],
    "custom_fields":[{"field":1,"value":"x"}],"correspondent":44})";

TEST_F(MergeBesideEdits, AFailedMergeLeavesNothingPending) {
    store().saveCustomField(customFields(R"([{"id":1,"name":"f","data_type":"string"}])").front(), background());
    for (const char* table : {"CD_Document", "CD_Note", "CD_Custom_Field_Value", "RepairEntry"}) {
        refuse(table);
        EXPECT_FALSE(store().saveDocument(document(kDocument)).isValid()) << table;
        execute("DROP TRIGGER refuse");
        EXPECT_EQ(pendingOf<CD_Note>() + pendingOf<CD_Custom_Field_Value>() + pendingOf<CD_Document_Content>() +
                      pendingOf<RepairEntry>() + pendingOf<CD_Document>(),
                  0U)
            << table;
    }
    refuse("CD_Permission");
    EXPECT_FALSE(store().saveGroup(groups(R"([{"id":7,"permissions":["view_tag"]}])").front()).isValid());
    execute("DROP TRIGGER refuse");
    refuse("CD_Filter_Rule");
    const auto view1 = savedViews(R"([{"id":1,"name":"v","filter_rules":[{"rule_type":6,"value":"1"}]}])").front();
    EXPECT_FALSE(store().saveSavedView(view1).isValid());
    execute("DROP TRIGGER refuse");
    EXPECT_EQ(pendingOf<CD_Permission>() + pendingOf<CD_Filter_Rule>() + pendingOf<CD_Group>(), 0U);

    EXPECT_EQ(edited->name(), "not sent yet");
    ASSERT_TRUE(store().saveViewContext());
    EXPECT_EQ(count<CD_Permission>() + count<CD_Filter_Rule>() + count<CD_Note>() + count<RepairEntry>(), 0U)
        << "rode on nobody's save";
}

TEST_F(MergeBesideEdits, AMergeNeitherSavesNorUndoesTheEdit) {
    EXPECT_TRUE(store().saveDocument(document(kDocument)).isValid());
    EXPECT_TRUE(store().saveTag(tags(R"([{"id":2,"name":"renamed"}])").front()).isValid());
    EXPECT_EQ(store().getTag(2)->name(), "renamed") << "seen at once";
    EXPECT_EQ(store().getDocument(10)->notes().size(), 1U);
    EXPECT_TRUE(edited->hasChanged("name"));
    // The record that is being edited: what came is in the store, the edit stays on top.
    EXPECT_TRUE(store().saveTag(tags(R"([{"id":1,"name":"server's","match":"m"}])").front()).isValid());
    EXPECT_EQ(edited->name(), "not sent yet");
    EXPECT_EQ(edited->match(), "m");
    view()->rollback();
    EXPECT_EQ(edited->name(), "server's");
}

TEST_F(MergeBesideEdits, ContextsThatTakeTurnsWriteTheColumnsThatTheyChanged) {
    // Each context is gone when the next one is made, and takes over what it had open.
    const auto change = [&](std::int64_t id, auto set) {
        const auto context = store().persistenceContainer()->newBackgroundContext();
        context->performAndWait([&] {
            set(*store().getTag(id, context));
            ASSERT_TRUE(context->save());
        });
    };
    change(1, [](CD_Tag& tag) { tag.setSlug("slug of 1"); });
    change(2, [](CD_Tag& tag) { tag.setMatch("match of 2"); });
    change(2, [](CD_Tag& tag) {
        tag.setSlug("slug of 2");
        tag.setColor("#000000");
    });
    const auto context = store().persistenceContainer()->newBackgroundContext();
    context->performAndWait([&] {
        EXPECT_EQ(store().getTag(1, context)->slug(), "slug of 1");
        EXPECT_EQ(store().getTag(2, context)->match(), "match of 2");
        EXPECT_EQ(store().getTag(2, context)->slug(), "slug of 2");
        EXPECT_EQ(store().getTag(2, context)->color(), "#000000");
    });
}

TEST_F(MergeBesideEdits, RemovedAttributesNoteTheirBearersForGood) {
    store().saveDocument(document(R"({"id":10,"title":"t","tags":[2]})"));
    store().saveTags(tags(R"([{"id":1,"name":"a"}])"), Delivery::Complete);
    view()->rollback();
    EXPECT_THAT(RepairList(store()).entries(), ElementsAre(RepairItem{"CD_Document", 10, "unresolved"}));
}

// Users, groups, owners and fields.

class MergeOfPeople : public test::StoreTest {};

TEST_F(MergeOfPeople, NullEmptiesListsOnlyWhenTheServerHasTheLastWord) {
    store().saveGroup(groups(R"([{"id":7,"name":"family","permissions":["view_tag"]}])").front());
    store().saveUser(users(R"([{"id":1,"username":"ann","groups":[7],"user_permissions":["a"],
        "inherited_permissions":["b"]}])")
                         .front());
    const auto user = users(R"([{"id":1,"username":"ann","groups":null,"user_permissions":null,
        "inherited_permissions":null}])")
                          .front();
    const auto group = groups(R"([{"id":7,"name":"family","permissions":null}])").front();
    for (const auto authority : {Authority::Merge, Authority::ServerWins}) {
        store().saveUser(user, nullptr, authority);
        store().saveGroup(group, nullptr, authority);
        const std::size_t left = authority == Authority::Merge ? 1 : 0;
        EXPECT_EQ(store().getUser(1)->groups().size(), left);
        EXPECT_EQ(store().getUser(1)->user_permissions().size(), left);
        EXPECT_EQ(store().getUser(1)->inherited_permissions().size(), left);
        EXPECT_EQ(store().getGroup(7)->permissions().size(), left);
    }
    EXPECT_EQ(count<CD_Permission>(), 0U);
    store().saveUser(users(R"([{"id":1,"groups":[7]}])").front());
    store().saveUser(users(R"([{"id":1,"username":"ann"}])").front(), nullptr, Authority::ServerWins);
    EXPECT_EQ(store().getUser(1)->groups().size(), 1U) << "what isn't delivered isn't null";
}

TEST_F(MergeOfPeople, UnknownOwnersAndFieldsAreLinkedWhenTheyCome) {
    store().saveDocument(document(R"({"id":10,"title":"t","owner":5,"custom_fields":[{"field":1,"value":"x"},
        {"field":2,"value":7}]})"),
                         background());
    EXPECT_THAT(RepairList(store()).entries(), ElementsAre(RepairItem{"CD_Document", 10, "unresolved"}));
    EXPECT_EQ(rowsWrittenBy([&] { store().resolveUnresolved(background()); }), 0U);
    store().saveUser(users(R"([{"id":5,"username":"eve"}])").front(), background());
    store().saveCustomField(customFields(R"([{"id":1,"name":"f","data_type":"string"}])").front(), background());
    EXPECT_EQ(store().resolveUnresolved(background()), 0U) << "one field is missing";
    EXPECT_EQ(store().getDocument(10)->owner()->id(), 5);
    EXPECT_EQ(store().getDocument(10)->custom_field_values().size(), 1U);
    store().saveCustomField(customFields(R"([{"id":2,"name":"n","data_type":"integer"}])").front(), background());
    EXPECT_EQ(store().resolveUnresolved(background()), 1U);
    EXPECT_EQ(store().getDocument(10)->custom_field_values().size(), 2U);
    EXPECT_THAT(RepairList(store()).entries(), IsEmpty());
}

TEST_F(MergeOfPeople, WithoutTheWholeListNoDocumentIsNotedByItself) {
    RepairList list(store());
    for (const auto kind : {CD_User::kEntityName, CD_Custom_Field::kEntityName})
        ASSERT_TRUE(list.add(kind, RepairList::kListMissing, RepairList::kUnresolved));
    for (int id = 1; id <= 5; ++id)
        store().saveDocument(document(R"({"id":)" + std::to_string(id) +
                                      R"(,"title":"t","owner":5,"custom_fields":[{"field":1,"value":"x"}]})"),
                             background());
    EXPECT_EQ(list.entries().size(), 2U) << "an account that may not list users would note every document";
}

// A store that can't be written.

class UnwritableStore : public test::StoreTest {
protected:
    std::size_t failures() {
        const auto records = log->records();
        return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [](const LogRecord& record) {
            return record.message.starts_with("Failed to");
        }));
    }
    std::vector<Document> many(std::int64_t count) {
        std::vector<Document> documents;
        for (std::int64_t id = 1; id <= count; ++id)
            documents.push_back(document(R"({"id":)" + std::to_string(id) + R"(,"title":"t"})"));
        return documents;
    }
};

TEST_F(UnwritableStore, EndsAListAndTellsWhy) {
    store();
    execute("CREATE TRIGGER refuse BEFORE INSERT ON CD_Document BEGIN SELECT RAISE(ABORT, 'the disk is dying'); END");
    const auto outcome = store().saveDocuments(many(500), background());
    EXPECT_EQ(outcome.failed, 500U);
    EXPECT_LE(failures(), 20U);
    EXPECT_TRUE(log->contains("the disk is dying")) << "not private in the log";
    ASSERT_TRUE(store().writeFailure().reason());
    EXPECT_THAT(*store().writeFailure().reason(), testing::HasSubstr("the disk is dying"));
    execute("DROP TRIGGER refuse");
    store().writeFailure().forget();
    EXPECT_TRUE(store().saveDocuments(many(500), background()).complete());
    EXPECT_FALSE(store().writeFailure().reason());
}

TEST_F(UnwritableStore, SomeRecordsThatCanNotBeSavedAreNotTheStoresFault) {
    store();
    execute("CREATE TRIGGER refuse BEFORE INSERT ON CD_Document WHEN NEW.id % 3 = 0 BEGIN SELECT RAISE(ABORT, 'no'); "
            "END");
    const auto outcome = store().saveDocuments(many(90), background());
    EXPECT_EQ(outcome.failed, 30U);
    EXPECT_EQ(outcome.saved, 60U);
    EXPECT_FALSE(store().writeFailure().reason());
}

// Two processes and one repair list.

class RepairsOfTwoProcesses : public test::StoreTest {
protected:
    RepairsOfTwoProcesses() : list(store()) {}
    /// As another process does it.
    void refusedElsewhere() {
        const auto other = PersistentContainer::open(ledgerfinchModel(),
                                                     {store().persistenceContainer()->file(), Durability::Normal, {}},
                                                     services.logger("test"))
                               .value();
        const auto context = other->newBackgroundContext();
        context->performAndWait([&] {
            repair::put(*context, CD_Document::kEntityName, 10, RepairList::kRefused);
            ASSERT_TRUE(context->save());
        });
    }

    RepairList list;
};

TEST_F(RepairsOfTwoProcesses, ARefusalElsewhereIsNotMendedByAFetchThatBeganBeforeIt) {
    ASSERT_TRUE(list.add("CD_Document", 10, RepairList::kRefused));
    ASSERT_EQ(list.entries(RepairList::kRefused, background()).size(), 1U); // the fetch begins
    refusedElsewhere();
    store().saveDocument(document(R"({"id":10,"title":"t"})"), background(), Authority::ServerWins);
    ASSERT_TRUE(list.remove("CD_Document", 10, RepairList::kRefused, background()));
    ASSERT_EQ(list.entries(RepairList::kRefused, background()).size(), 1U) << "and once is enough";
    store().saveDocument(document(R"({"id":10,"title":"t"})"), background(), Authority::ServerWins);
    EXPECT_THAT(list.entries({}, background()), IsEmpty());
}

TEST_F(RepairsOfTwoProcesses, WhoeverPutAnEntryDropsThatOneAlone) {
    const auto context = store().persistenceContainer()->newBackgroundContext();
    ObjectID mine;
    context->performAndWait([&] {
        mine = repair::put(*context, CD_Document::kEntityName, 10, RepairList::kRefused)->objectID();
        ASSERT_TRUE(context->save());
    });
    refusedElsewhere();
    context->performAndWait([&] {
        EXPECT_THAT(repair::put(*context, CD_Document::kEntityName, 10, RepairList::kUnresolved), testing::NotNull());
        repair::drop(*context, mine);
        ASSERT_TRUE(context->save());
        EXPECT_THAT(repair::put(*context, CD_Document::kEntityName, 10, RepairList::kRefused), IsNull())
            << "still on the list";
        context->rollback();
    });
    EXPECT_EQ(list.entries(RepairList::kRefused).size(), 1U);
}

} // namespace
} // namespace ledgerfinch
