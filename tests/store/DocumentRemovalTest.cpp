// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFixture.h"

namespace ledgerfinch {
namespace {

using testing::ElementsAre;
using testing::IsNull;
using testing::NotNull;

class DocumentRemoval : public test::StoreTest {
protected:
    void merge(std::int64_t id) {
        store().saveDocument(document(R"({"id":)" + std::to_string(id) + R"(,"title":"t","content":"text",
            "archive_serial_number":)" +
                                      std::to_string(100 + id) + R"(,"notes":[{"id":)" + std::to_string(id) +
                                      R"(,"note":"n"}],"custom_fields":[{"field":1,"value":"x"}],"tags":[1]})"),
                             background());
    }
    Uuid uuidOf(std::int64_t id) { return store().getDocument(id)->uuid().value(); }
    void giveFiles(const Uuid& uuid) {
        ASSERT_TRUE(store().documentFiles().storeFile("documents", uuid, uuid.text() + ".pdf", "%PDF"));
        ASSERT_TRUE(store().documentFiles().storePreview(uuid, "\x89PNG\r\n\x1a\n0000"));
    }
    bool hasFiles(const Uuid& uuid) {
        return store().documentFiles().existingDocumentFile(uuid) && store().documentFiles().existingPreview(uuid);
    }
};

TEST_F(DocumentRemoval, TakesAlongWhatBelongsToTheDocumentOnly) {
    store().saveTag(tags(R"([{"id":1,"name":"a"}])").front());
    store().saveCustomField(customFields(R"([{"id":1,"name":"f","data_type":"string"}])").front());
    merge(1);
    merge(2);
    giveFiles(uuidOf(1));
    giveFiles(uuidOf(2));
    const auto first = uuidOf(1);
    const auto second = uuidOf(2);

    EXPECT_EQ(store().removeOutdatedDocuments({2, 3}, background()).removed, 1U);
    EXPECT_THAT(store().getDocument(1), IsNull());
    EXPECT_THAT(store().getDocument(2), NotNull());
    EXPECT_EQ(count<CD_Document_Content>(), 1U);
    EXPECT_EQ(count<CD_Note>(), 1U);
    EXPECT_EQ(count<CD_Custom_Field_Value>(), 1U);
    EXPECT_EQ(count<CD_Tag>(), 1U);
    EXPECT_EQ(count<CD_Custom_Field>(), 1U);
    EXPECT_FALSE(std::filesystem::exists(store().documentFiles().documentFolder(first)));
    EXPECT_FALSE(std::filesystem::exists(store().documentFiles().previewFolder(first)));
    EXPECT_TRUE(hasFiles(second));

    store().saveTags({}, Delivery::Complete);
    EXPECT_THAT(store().getDocument(2), NotNull()) << "a document outlives its tags";
}

TEST_F(DocumentRemoval, SparesDocumentsThatNoServerDelivered) {
    merge(1);
    test::put(folder / "letter.pdf", "%PDF");
    ASSERT_TRUE(store().addLocalDocument({.source = folder / "letter.pdf"}));
    ASSERT_TRUE(store().addLocalDocument({.source = folder / "letter.pdf", .example = true}));
    EXPECT_EQ(store().removeOutdatedDocuments({}, background()).removed, 1U);
    EXPECT_EQ(count<CD_Document>(), 2U);
}

TEST_F(DocumentRemoval, FindsEveryDocumentOfAnId) {
    merge(1);
    const auto twin = background();
    twin->performAndWait([&] {
        const auto bare = twin->insert<CD_Document>();
        bare->setId(1);
        const auto second = twin->insert<CD_Document>();
        second->setId(1);
        second->setServer_shadow("{}");
        ASSERT_TRUE(twin->save());
    });
    EXPECT_EQ(store().removeOutdatedDocuments({}, background()).removed, 2U);
    EXPECT_EQ(count<CD_Document>(), 1U) << "the one that no server delivered";
}

TEST_F(DocumentRemoval, WorksInPieces) {
    std::vector<Document> many;
    for (int id = 1; id <= 450; ++id)
        many.push_back(document(R"({"id":)" + std::to_string(id) + R"(,"title":"t"})"));
    store().saveDocuments(many, background());
    EXPECT_EQ(store().removeOutdatedDocuments({7}, background()).removed, 449U);
    EXPECT_EQ(count<CD_Document>(), 1U);
    EXPECT_THAT(store().getDocument(7), NotNull());
}

TEST_F(DocumentRemoval, FilesStayWhenTheDeletionFails) {
    merge(1);
    const auto uuid = uuidOf(1);
    giveFiles(uuid);
    execute("CREATE TRIGGER refuse BEFORE DELETE ON CD_Document BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_FALSE(store().deleteDocument(store().getDocument(1)));
    EXPECT_FALSE(store().removeOutdatedDocuments({}, background()).complete());
    execute("DROP TRIGGER refuse");
    EXPECT_THAT(store().getDocument(1), NotNull());
    EXPECT_TRUE(hasFiles(uuid));

    files->failOn = "documents";
    EXPECT_TRUE(store().deleteDocument(store().getDocument(1))) << "files don't hold a deletion back";
    EXPECT_TRUE(log->contains("couldn't delete document folder: "));
    EXPECT_FALSE(store().documentFiles().existingPreview(uuid));
}

TEST_F(DocumentRemoval, NeitherSavesNorUndoesAnEditThatIsUnderWay) {
    merge(1);
    merge(2);
    const auto edited = store().getDocument(2);
    edited->setTitle("not sent yet");
    execute("CREATE TRIGGER refuse BEFORE DELETE ON CD_Document BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_FALSE(store().deleteDocument(store().getDocument(1)));
    execute("DROP TRIGGER refuse");
    EXPECT_EQ(edited->title(), "not sent yet");
    EXPECT_THAT(store().getDocument(1), NotNull());
    EXPECT_EQ(store().getDocument(1)->notes().size(), 1U);

    EXPECT_TRUE(store().deleteDocument(store().getDocument(1)));
    EXPECT_TRUE(edited->hasChanged("title"));
    view()->rollback();
    EXPECT_EQ(edited->title(), "t");
    EXPECT_EQ(count<CD_Document>(), 1U);
    EXPECT_EQ(count<CD_Note>(), 1U);
}

TEST_F(DocumentRemoval, PassesOverADocumentWithoutUuid) {
    const auto bare = view()->insert<CD_Document>();
    bare->setId(1);
    ASSERT_TRUE(store().saveViewContext());
    EXPECT_FALSE(store().deleteDocument(bare));
    EXPECT_FALSE(store().deleteDocument(nullptr));
    EXPECT_EQ(count<CD_Document>(), 1U);
}

TEST_F(DocumentRemoval, LookUpsFindByEveryKey) {
    EXPECT_EQ(store().getMaxAsn(), std::nullopt);
    EXPECT_EQ(store().getMaxId("CD_Document"), std::nullopt);
    EXPECT_THAT(store().getLatestDocument(), IsNull());
    merge(3);
    merge(9);
    store().saveDocument(document(R"({"id":5,"title":"no number"})"));
    EXPECT_EQ(store().getMaxAsn(), 109);
    EXPECT_EQ(store().getMaxId("CD_Document"), 9);
    EXPECT_EQ(store().getLatestDocument()->id(), 9);
    EXPECT_EQ(store().getDocumentByAsn(103)->id(), 3);
    EXPECT_THAT(store().getDocumentByAsn(0), IsNull()) << "0 is no number";
    EXPECT_EQ(store().getDocumentByUuid(uuidOf(9))->id(), 9);
    EXPECT_THAT(store().getDocumentByUuid(Uuid::random()), IsNull());
}

class LocalDocuments : public test::StoreTest {};

TEST_F(LocalDocuments, KeepTheirFileAndWhatTheAnalysisFound) {
    store().saveTag(tags(R"([{"id":2,"name":"b"}])").front());
    store().saveDocumentType(named<Document_Type>(5, "Invoice"));
    test::put(folder / "Letter of May.pdf", "%PDF-1");
    const auto analyse = [&](const std::filesystem::path& file) {
        EXPECT_EQ(test::contentOf(file), "%PDF-1");
        return LocalAnalysis{.text = "Dear you",
                             .documentType = 5,
                             .correspondent = 99,
                             .tags = {2, 3},
                             .created = dates::parseDateOnly("2024-05-01")};
    };
    const auto id = store().addLocalDocument({.source = folder / "Letter of May.pdf", .removeSource = true}, analyse);
    ASSERT_TRUE(id);
    const auto added = store().getDocument(1);
    ASSERT_TRUE(added);
    EXPECT_TRUE(isLocalDocument(*added));
    EXPECT_EQ(added->title(), "Letter of May");
    EXPECT_EQ(added->original_file_name(), "Letter of May.pdf");
    EXPECT_EQ(added->content()->content(), "Dear you");
    EXPECT_EQ(added->document_type()->id(), 5);
    EXPECT_THAT(test::idsOf(added->tags()), ElementsAre(2));
    EXPECT_EQ(added->created(), dates::parseDateOnly("2024-05-01"));
    EXPECT_EQ(added->added(), clock->now());
    EXPECT_EQ(store().documentFiles().existingDocumentFile(*added->uuid())->filename(), "Letter of May.pdf");
    EXPECT_FALSE(std::filesystem::exists(folder / "Letter of May.pdf"));
}

TEST_F(LocalDocuments, AreNumberedAfterTheHighestExceptExamples) {
    test::put(folder / "a.txt", "a");
    store().saveDocument(document(R"({"id":41,"title":"t"})"));
    ASSERT_TRUE(store().addLocalDocument({.source = folder / "a.txt", .title = "Named"}));
    EXPECT_EQ(store().getDocument(42)->title(), "Named");
    EXPECT_EQ(store().getDocument(42)->created(), clock->now());
    ASSERT_TRUE(store().addLocalDocument({.source = folder / "a.txt", .title = "Example", .example = true}));
    EXPECT_EQ(store().getDocument(0)->title(), "Example");
}

TEST_F(LocalDocuments, NamesThatMeanSomethingElseLoseTheirDots) {
    for (const char* name : {".scan.part-2.pdf", ".x.icloud", "..."}) {
        test::put(folder / name, "%PDF");
        const auto id = store().addLocalDocument({.source = folder / name});
        ASSERT_TRUE(id) << name;
        const auto uuid = std::static_pointer_cast<CD_Document>(view()->object(*id))->uuid();
        ASSERT_TRUE(store().documentFiles().existingDocumentFile(*uuid)) << name;
        EXPECT_FALSE(store().documentFiles().existingDocumentFile(*uuid)->filename().string().starts_with('.'));
    }
}

TEST_F(LocalDocuments, FailuresLeaveNeitherRowNorFileAndKeepTheSource) {
    const auto source = folder / (std::string(240, 'x') + ".pdf");
    test::put(source, "%PDF");
    ASSERT_TRUE(store().addLocalDocument({.source = source})) << "long names are shortened";
    const auto kept = test::entriesIn(services.paths.container / "documents");
    execute("CREATE TRIGGER refuse BEFORE INSERT ON CD_Document BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_FALSE(store().addLocalDocument({.source = source, .removeSource = true}));
    execute("DROP TRIGGER refuse");
    EXPECT_FALSE(store().addLocalDocument({.source = folder / "missing.pdf"}));
    files->failOn = "documents";
    EXPECT_FALSE(store().addLocalDocument({.source = source, .removeSource = true}));
    EXPECT_EQ(count<CD_Document>(), 1U);
    EXPECT_EQ(test::entriesIn(services.paths.container / "documents"), kept);
    EXPECT_TRUE(std::filesystem::exists(source));
}

} // namespace
} // namespace ledgerfinch
