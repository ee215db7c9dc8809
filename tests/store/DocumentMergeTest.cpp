// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFixture.h"

namespace ledgerfinch {
namespace {

using test::idsOf;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

class DocumentMerge : public test::StoreTest {
protected:
    DocumentMerge() {
        store().saveGroup(groups(R"([{"id":7,"name":"family"}])").front());
        store().saveUsers(users(R"([{"id":1,"username":"ann"},{"id":2,"username":"ben"}])"), Delivery::Complete);
        store().saveTags(tags(R"([{"id":1,"name":"a"},{"id":2,"name":"b"}])"), Delivery::Complete);
        store().saveCorrespondent(correspondents(R"([{"id":4,"name":"Bank"}])").front());
        store().saveDocumentType(named<Document_Type>(5, "Invoice"));
        store().saveStoragePath(named<Storage_Path>(6, "Archive"));
        store().saveCustomFields(customFields(R"([{"id":1,"name":"Amount","data_type":"monetary"},
            {"id":2,"name":"Due","data_type":"date"}])"),
                                 Delivery::Complete);
    }

    static constexpr const char* kFull = R"({"id":10,"title":"Invoice 7","content":"first text","correspondent":4,
        "document_type":5,"storage_path":6,"tags":[1,2],"created":"2024-03-01T00:00:00+01:00",
        "modified":"2024-03-02T10:00:00.123456Z","added":"2024-03-02T09:00:00Z","archive_serial_number":77,
        "original_file_name":"scan.pdf","owner":1,"user_can_change":true,
        "permissions":{"view":{"users":[1,2],"groups":[7]},"change":{"users":[2],"groups":[]}},
        "notes":[{"id":3,"note":"paid","created":"2024-03-03T10:00:00Z","document":10,"user":2}],
        "custom_fields":[{"field":1,"value":"EUR12.50"},{"field":2,"value":"2024-04-01"}]})";
    /// The same document with nothing set but what every record has.
    static constexpr const char* kCleared = R"({"id":10,"title":"Invoice 7","content":"second text",
        "correspondent":null,"document_type":null,"storage_path":null,"tags":[],"archive_serial_number":null,
        "owner":null,"notes":[{"id":3,"note":"paid twice"}],"custom_fields":[]})";
};

TEST_F(DocumentMerge, TakesOverEverythingDelivered) {
    store().saveDocument(document(kFull), background());
    const auto merged = store().getDocument(10);
    ASSERT_TRUE(merged);
    EXPECT_TRUE(merged->uuid().has_value());
    EXPECT_EQ(merged->title(), "Invoice 7");
    EXPECT_EQ(merged->content()->content(), "first text");
    EXPECT_EQ(merged->correspondent()->id(), 4);
    EXPECT_EQ(merged->document_type()->id(), 5);
    EXPECT_EQ(merged->storage_path()->id(), 6);
    EXPECT_THAT(idsOf(merged->tags()), ElementsAre(1, 2));
    EXPECT_EQ(merged->created(), dates::parseWholeSecond("2024-02-29T23:00:00Z"));
    EXPECT_EQ(merged->modified(), dates::parseFractional("2024-03-02T10:00:00.123456Z"));
    EXPECT_EQ(merged->added(), dates::parseWholeSecond("2024-03-02T09:00:00Z"));
    EXPECT_EQ(merged->archive_serial_number(), 77);
    EXPECT_EQ(merged->original_file_name(), "scan.pdf");
    EXPECT_EQ(merged->owner()->id(), 1);
    EXPECT_TRUE(merged->user_can_change());
    EXPECT_THAT(idsOf(merged->viewable_by_user()), ElementsAre(1, 2));
    EXPECT_THAT(idsOf(merged->viewable_by_group()), ElementsAre(7));
    EXPECT_THAT(idsOf(merged->editable_by_user()), ElementsAre(2));
    EXPECT_THAT(merged->editable_by_group(), IsEmpty());
    ASSERT_EQ(merged->notes().size(), 1U);
    EXPECT_EQ(merged->notes().front()->note(), "paid");
    EXPECT_EQ(merged->notes().front()->user()->id(), 2);
    EXPECT_THAT(idsOf(merged->custom_fields()), ElementsAre(1, 2));
    EXPECT_EQ(merged->custom_field_values().size(), 2U);
    EXPECT_THAT(RepairList(store()).entries(), IsEmpty());
}

TEST_F(DocumentMerge, LeavesAloneWhatTheServerHasNot) {
    store().saveDocument(document(kFull));
    const auto uuid = store().getDocument(10)->uuid();
    store().saveDocument(document(kCleared));
    const auto merged = store().getDocument(10);
    EXPECT_EQ(merged->uuid(), uuid) << "files stay valid";
    EXPECT_EQ(merged->content()->content(), "first text");
    EXPECT_EQ(merged->notes().front()->note(), "paid");
    EXPECT_THAT(merged->correspondent(), NotNull());
    EXPECT_THAT(merged->document_type(), NotNull());
    EXPECT_THAT(merged->storage_path(), NotNull());
    EXPECT_THAT(merged->owner(), NotNull());
    EXPECT_EQ(merged->archive_serial_number(), 77);
    EXPECT_THAT(merged->tags(), IsEmpty()) << "sets are replaced";
    EXPECT_THAT(merged->viewable_by_user(), IsEmpty());
    EXPECT_THAT(merged->custom_field_values(), IsEmpty());
}

TEST_F(DocumentMerge, ClearsAndRefreshesWhenTheServerHasTheLastWord) {
    store().saveDocument(document(kFull));
    ASSERT_TRUE(RepairList(store()).add(CD_Document::kEntityName, 10, RepairList::kRefused));
    store().saveDocument(document(kCleared), nullptr, Authority::ServerWins);
    const auto merged = store().getDocument(10);
    EXPECT_EQ(merged->content()->content(), "second text");
    EXPECT_EQ(merged->notes().front()->note(), "paid twice");
    EXPECT_THAT(merged->correspondent(), IsNull());
    EXPECT_THAT(merged->document_type(), IsNull());
    EXPECT_THAT(merged->storage_path(), IsNull());
    EXPECT_THAT(merged->owner(), IsNull());
    EXPECT_THAT(merged->custom_fields(), IsEmpty());
    EXPECT_EQ(merged->archive_serial_number(), 0);
    EXPECT_THAT(RepairList(store()).entries(), IsEmpty());

    // A server that sends less clears less: what isn't delivered isn't null.
    store().saveDocument(document(kFull));
    store().saveDocument(document(R"({"id":10,"title":"t"})"), nullptr, Authority::ServerWins);
    EXPECT_THAT(store().getDocument(10)->owner(), NotNull());
    EXPECT_EQ(store().getDocument(10)->archive_serial_number(), 77);
}

TEST_F(DocumentMerge, RemembersToTheByteWhatWasDelivered) {
    store().saveDocument(document(R"({"id":10,"title":"t","owner":99,"custom_fields":[{"field":1,
        "value":9007199254740993}],"permissions":{"view":{"users":[98]}},"archive_serial_number":null})"));
    const auto shadow = serverShadow(*store().getDocument(10));
    ASSERT_TRUE(shadow);
    EXPECT_EQ(shadow->integer("owner"), 99);
    EXPECT_THAT(std::string(*shadow->raw("custom_fields")), testing::HasSubstr("9007199254740993"));
    EXPECT_EQ(*shadow->raw("permissions"), R"({"view":{"users":[98]}})");
    EXPECT_TRUE(shadow->isNull("archive_serial_number"));
    EXPECT_FALSE(shadow->has("tags"));

    JsonObject accepted;
    accepted.setRaw("title", R"("new")");
    updateServerShadow(*store().getDocument(10), accepted);
    EXPECT_EQ(serverShadow(*store().getDocument(10))->text("title"), "new");
    EXPECT_EQ(serverShadow(*store().getDocument(10))->integer("owner"), 99);
    view()->rollback();

    const auto partly = document(R"({"id":10,"title":"newer"})");
    store().saveDocument(partly, background());
    EXPECT_EQ(*serverShadow(*store().getDocument(10))->raw("permissions"), R"({"view":{"users":[98]}})");
    EXPECT_EQ(rowsWrittenBy([&] { store().saveDocument(partly, background()); }), 0U);
}

TEST_F(DocumentMerge, SecondMergeWritesNothing) {
    for (const auto authority : {Authority::Merge, Authority::ServerWins}) {
        store().saveDocument(document(kFull), background(), authority);
        EXPECT_EQ(rowsWrittenBy([&] { store().saveDocument(document(kFull), background(), authority); }), 0U);
    }
    const auto lost = document(R"({"id":11,"title":"t","correspondent":44,"tags":[1,45]})");
    store().saveDocument(lost, background());
    EXPECT_EQ(rowsWrittenBy([&] { store().saveDocument(lost, background()); }), 0U);
}

TEST_F(DocumentMerge, DatesThatDoNotParseStoreNone) {
    const auto created = [&](const std::string& text) {
        store().saveDocument(document(R"({"id":10,"title":"t","created":")" + text + R"("})"));
        return store().getDocument(10)->created();
    };
    EXPECT_EQ(created("2024-03-01"), dates::parseDateOnly("2024-03-01")) << "servers that send days";
    EXPECT_EQ(created("soon"), std::nullopt);
}

TEST_F(DocumentMerge, LinksAgainFromTheShadowWhatWasMissing) {
    store().saveDocument(document(R"({"id":10,"title":"t","correspondent":44,"document_type":55,"storage_path":6,
        "tags":[1,45]})"));
    store().saveDocument(document(R"({"id":11,"title":"t","owner":99})"));
    const RepairItem unresolved{"CD_Document", 10, "unresolved"};
    const RepairItem ownerless{"CD_Document", 11, "unresolved"};
    EXPECT_THAT(RepairList(store()).entries(), ElementsAre(unresolved, ownerless));
    EXPECT_EQ(store().resolveUnresolved(), 0U);

    store().saveCorrespondent(correspondents(R"([{"id":44,"name":"Late"}])").front());
    store().saveTag(tags(R"([{"id":45,"name":"late"}])").front());
    EXPECT_EQ(store().resolveUnresolved(background()), 0U) << "the type is still missing";
    EXPECT_EQ(store().getDocument(10)->correspondent()->id(), 44);
    EXPECT_THAT(RepairList(store()).entries(), ElementsAre(unresolved, ownerless));

    store().saveDocumentType(named<Document_Type>(55));
    EXPECT_EQ(store().resolveUnresolved(background()), 1U);
    EXPECT_EQ(store().getDocument(10)->document_type()->id(), 55);
    EXPECT_THAT(idsOf(store().getDocument(10)->tags()), ElementsAre(1, 45));
    EXPECT_THAT(RepairList(store()).entries(), ElementsAre(ownerless));
}

TEST_F(DocumentMerge, LaterDeliveryEndsTheSearchForMissingRelations) {
    store().saveDocument(document(R"({"id":10,"title":"t","correspondent":44})"));
    store().saveDocument(document(R"({"id":10,"title":"t","correspondent":4})"));
    EXPECT_THAT(RepairList(store()).entries(), IsEmpty());
}

TEST_F(DocumentMerge, RepairsSurviveAndAreKeptApart) {
    RepairList list(store());
    ASSERT_TRUE(list.add("CD_Document", 10, RepairList::kRefused, background()));
    ASSERT_TRUE(list.add("CD_Tag", 10, RepairList::kRefused, background()));
    ASSERT_TRUE(list.add("CD_Document", 10, RepairList::kUnresolved, background()));
    ASSERT_TRUE(list.add("CD_Tag", 10, RepairList::kRefused));
    EXPECT_EQ(rowsWrittenBy([&] { EXPECT_TRUE(list.add("CD_Document", 10, RepairList::kUnresolved)); }), 0U);

    handler.reset();
    RepairList reopened(store());
    EXPECT_EQ(reopened.entries().size(), 3U);
    EXPECT_EQ(reopened.entries(RepairList::kRefused).size(), 2U);
    ASSERT_TRUE(reopened.remove("CD_Tag", 10));
    EXPECT_THAT(reopened.entries(),
                ElementsAre(RepairItem{"CD_Document", 10, "refused"}, RepairItem{"CD_Document", 10, "unresolved"}));
}

TEST_F(DocumentMerge, RepairNeverSavesAnotherPersonsEdit) {
    store().saveDocument(document(kFull));
    const auto edited = store().getDocument(10);
    edited->setTitle("not sent yet");
    ASSERT_TRUE(RepairList(store()).add("CD_Document", 10, RepairList::kRefused));
    ASSERT_TRUE(RepairList(store()).remove("CD_Document", 10));
    EXPECT_TRUE(edited->hasChanged("title"));
    view()->rollback();
    EXPECT_EQ(store().getDocument(10)->title(), "Invoice 7");
}

TEST_F(DocumentMerge, FailedSaveStopsNothingAndLeavesNothingBehind) {
    execute("CREATE TRIGGER refuse BEFORE INSERT ON CD_Note BEGIN SELECT RAISE(ABORT, 'full'); END");
    const auto outcome = store().saveDocuments({document(kFull), document(R"({"id":1,"title":"a"})")}, background());
    EXPECT_EQ(outcome.saved, 1U);
    EXPECT_EQ(outcome.failed, 1U);
    EXPECT_TRUE(log->contains("Failed to save document "));
    EXPECT_THAT(store().getDocument(10), IsNull());
    execute("DROP TRIGGER refuse");
    store().saveDocuments({document(R"({"id":2,"title":"b"})")}, background());
    EXPECT_THAT(store().getDocument(10), IsNull());
    store().saveDocuments({document(kFull)}, background());
    EXPECT_EQ(store().getDocument(10)->custom_field_values().size(), 2U);
}

TEST_F(DocumentMerge, StoreThatCannotBeAskedChangesNeitherUuidNorNumberOfDocuments) {
    store().saveDocument(document(kFull), background());
    const auto uuid = store().getDocument(10)->uuid();
    // Nothing may be known of it already: what was looked up before is remembered.
    int unknown = 400;
    for (const char* table : {"CD_Document", "CD_Correspondent", "CD_Tag"}) {
        const auto id = std::to_string(++unknown);
        const auto stranger = document(R"({"id":10,"title":"t","correspondent":)" + id + R"(,"tags":[)" + id + "]}");
        execute("ALTER TABLE " + std::string(table) + " RENAME TO away");
        EXPECT_FALSE(store().saveDocument(stranger, background()).isValid()) << table;
        execute("ALTER TABLE away RENAME TO " + std::string(table));
    }
    EXPECT_TRUE(store().saveDocument(document(kCleared), background()).isValid());
    EXPECT_EQ(count<CD_Document>(), 1U);
    EXPECT_EQ(store().getDocument(10)->uuid(), uuid);
}

TEST_F(DocumentMerge, LocalDocumentsMakeRoomAndKeepTheirFiles) {
    test::put(folder / "letter.pdf", "%PDF");
    store().saveDocument(document(R"({"id":9,"title":"t"})"));
    const auto local = store().addLocalDocument({.source = folder / "letter.pdf"}).value();
    const auto example = store().addLocalDocument({.source = folder / "letter.pdf", .example = true}).value();
    const auto uuidOf = [&](const ObjectID& id) {
        return *std::static_pointer_cast<CD_Document>(view()->object(id))->uuid();
    };
    const auto uuid = uuidOf(local);
    ASSERT_EQ(store().getDocument(10)->uuid(), uuid);
    for (const char* json : {R"({"id":10,"title":"the server's"})", R"({"id":0,"title":"hostile"})"}) {
        store().saveDocument(document(json), background());
        store().saveDocument(document(json), background());
    }
    view()->performAndWait([] {});
    EXPECT_EQ(count<CD_Document>(), 5U);
    EXPECT_EQ(store().getDocument(10)->title(), "the server's");
    EXPECT_EQ(store().getDocument(0)->title(), "hostile");
    const auto moved = store().getDocumentByUuid(uuid);
    ASSERT_TRUE(moved);
    EXPECT_TRUE(isLocalDocument(*moved));
    EXPECT_EQ(moved->id(), 11);
    EXPECT_EQ(moved->title(), "letter");
    EXPECT_TRUE(store().documentFiles().existingDocumentFile(uuidOf(local)));
    EXPECT_TRUE(store().documentFiles().existingDocumentFile(uuidOf(example)));

    JsonObject accepted;
    accepted.setRaw("title", R"("new")");
    updateServerShadow(*moved, accepted);
    EXPECT_TRUE(isLocalDocument(*moved));
    // The highest id of all leaves no room above it.
    store().saveDocument(document(R"({"id":9223372036854775807,"title":"t"})"), background());
    const auto last = store().addLocalDocument({.source = folder / "letter.pdf"});
    ASSERT_TRUE(last);
    EXPECT_GT(std::static_pointer_cast<CD_Document>(view()->object(*last))->id(), 0);
}

TEST_F(DocumentMerge, LinkingAgainUndoesNoEdit) {
    store().saveDocument(document(R"({"id":10,"title":"t","correspondent":4,"document_type":55,"tags":[1,45]})"),
                         background());
    const auto edited = store().getDocument(10);
    edited->setCorrespondent(nullptr);
    store().saveCorrespondent(correspondents(R"([{"id":8,"name":"Shop"}])").front());
    edited->setCorrespondent(store().getCorrespondent(8));
    edited->addTagsObject(store().getTag(2));
    ASSERT_TRUE(store().saveViewContext());
    store().saveDocumentType(named<Document_Type>(55));
    const auto link = [&] {
        EXPECT_EQ(store().resolveUnresolved(background()), 0U) << "a tag that this account can't see";
    };
    link();
    EXPECT_EQ(rowsWrittenBy(link), 0U);
    EXPECT_EQ(store().getDocument(10)->document_type()->id(), 55);
    EXPECT_EQ(store().getDocument(10)->correspondent()->id(), 8);
    EXPECT_THAT(idsOf(store().getDocument(10)->tags()), ElementsAre(1, 2));
}

TEST_F(DocumentMerge, RepairThatCouldNotBeNotedIsNotedByTheNextTry) {
    RepairList list(store());
    execute("CREATE TRIGGER refuse BEFORE INSERT ON RepairEntry BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_FALSE(list.add("CD_Document", 10, RepairList::kRefused));
    execute("DROP TRIGGER refuse");
    EXPECT_TRUE(list.add("CD_Document", 10, RepairList::kRefused));
    EXPECT_EQ(list.entries({}, background()).size(), 1U);
}

TEST_F(DocumentMerge, FetchThatBeganBeforeTheLastRefusalMendsNothing) {
    RepairList list(store());
    ASSERT_TRUE(list.add("CD_Document", 10, RepairList::kRefused));
    ASSERT_EQ(list.entries(RepairList::kRefused).size(), 1U);
    ASSERT_TRUE(list.add("CD_Document", 10, RepairList::kRefused));
    store().saveDocument(document(kFull), nullptr, Authority::ServerWins);
    ASSERT_TRUE(list.remove("CD_Document", 10, RepairList::kRefused));
    ASSERT_EQ(list.entries(RepairList::kRefused).size(), 1U);
    store().saveDocument(document(kFull), nullptr, Authority::ServerWins);
    EXPECT_THAT(list.entries(), IsEmpty());
}

TEST_F(DocumentMerge, EveryFailureLeavesAStoreThatTheNextMergeMends) {
    // Whatever table refuses, the state after a retry is the same.
    for (const char* table : {"CD_Document", "CD_Document_Content", "CD_Note", "CD_Custom_Field_Value"}) {
        execute(std::string("CREATE TRIGGER refuse BEFORE INSERT ON ") + table +
                " BEGIN SELECT RAISE(ABORT, 'full'); END");
        EXPECT_FALSE(store().saveDocument(document(kFull), background()).isValid()) << table;
        execute("DROP TRIGGER refuse");
        EXPECT_TRUE(store().saveDocument(document(kFull), background()).isValid()) << table;
        EXPECT_EQ(count<CD_Document>(), 1U);
        EXPECT_EQ(count<CD_Document_Content>(), 1U);
        EXPECT_EQ(count<CD_Note>(), 1U);
        EXPECT_EQ(count<CD_Custom_Field_Value>(), 2U);
        store().removeOutdatedDocuments({}, background());
    }
}

TEST_F(DocumentMerge, LongPassesKeepNoObjects) {
    std::weak_ptr<CD_Document> seen;
    background()->performAndWait([&] {
        store().saveDocument(document(kFull), background());
        seen = background()->firstWithID<CD_Document>(10);
    });
    EXPECT_TRUE(seen.expired());
}

class SinkOfNames final : public DocumentSink {
public:
    void documentSaved(const ObjectID& document) override { saved.push_back(document); }
    void documentRemoved(const Uuid& uuid) override { removed.push_back(uuid); }
    std::vector<ObjectID> saved;
    std::vector<Uuid> removed;
};

class DocumentHooks : public test::StoreTest {};

TEST_F(DocumentHooks, TellOfEverySavedDocumentOnceItIsCommitted) {
    const auto heard = std::make_shared<SinkOfNames>();
    sink = heard;
    const auto id = store().saveDocument(document(R"({"id":10,"title":"t"})"), background());
    EXPECT_THAT(heard->saved, ElementsAre(id));
    store().saveDocument(document(R"({"id":10,"title":"t"})"), background());
    EXPECT_EQ(heard->saved.size(), 1U) << "nothing changed";
    store().saveDocument(document(R"({"id":10,"title":"u"})"), background());
    EXPECT_THAT(heard->saved, ElementsAre(id, id));

    execute("CREATE TRIGGER refuse BEFORE UPDATE ON CD_Document BEGIN SELECT RAISE(ABORT, 'full'); END");
    store().saveDocument(document(R"({"id":10,"title":"v"})"), background());
    EXPECT_EQ(heard->saved.size(), 2U);
    execute("DROP TRIGGER refuse");
    background()->performAndWait([&] { background()->rollback(); });

    const auto uuid = store().getDocument(10)->uuid();
    ASSERT_TRUE(store().deleteObject(id));
    EXPECT_THAT(heard->removed, ElementsAre(*uuid));
}

} // namespace
} // namespace ledgerfinch
