// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFixture.h"

#include "store/StoreFolder.h"

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;
using testing::IsEmpty;

const std::string kPng = "\x89PNG\r\n\x1a\n0000";

class Files : public test::StoreTest {
protected:
    const DocumentFiles& documentFiles() { return store().documentFiles(); }
    fs::path container() { return services.paths.container; }
    Uuid merged(std::int64_t id) {
        store().saveDocument(document(R"({"id":)" + std::to_string(id) + R"(,"title":"t"})"));
        return store().getDocument(id)->uuid().value();
    }
    Uuid addedHere() {
        test::put(folder / "letter.pdf", "%PDF");
        const auto id = store().addLocalDocument({.source = folder / "letter.pdf"});
        return std::static_pointer_cast<CD_Document>(view()->object(id.value()))->uuid().value();
    }
    fs::path give(const Uuid& uuid) {
        EXPECT_TRUE(documentFiles().storePreview(uuid, kPng));
        return documentFiles().storeFile("documents", uuid, uuid.text() + ".pdf", "%PDF").value();
    }
    void startAgain() {
        handler.reset();
        store();
    }
    void useCloud() {
        fs::create_directories(folder / "cloud");
        ASSERT_TRUE(services.defaults->set("cloudFolder", (folder / "cloud").string()));
        ASSERT_TRUE(services.defaults->set("useiCloud", true));
    }
};

TEST_F(Files, LieUnderTheirDocumentsUuid) {
    const auto uuid = Uuid::random();
    EXPECT_FALSE(documentFiles().existingDocumentFile(uuid));
    EXPECT_EQ(give(uuid), container() / "documents" / uuid.text() / (uuid.text() + ".pdf"));
    EXPECT_EQ(documentFiles().existingDocumentFile(uuid)->filename(), uuid.text() + ".pdf");
    EXPECT_EQ(documentFiles().existingPreview(uuid), container() / "previews" / uuid.text() / "thumb.png");

    EXPECT_FALSE(documentFiles().storePreview(Uuid::random(), "<html>"));
    EXPECT_TRUE(log->contains("Received invalid data for preview image..."));
    files->failOn = "previews";
    EXPECT_FALSE(documentFiles().storePreview(Uuid::random(), kPng));
    EXPECT_TRUE(log->contains("Error creating directory: broken on purpose"));
}

TEST_F(Files, NamesNeverLeadOutOfTheFolder) {
    const auto uuid = Uuid::random();
    for (const std::string& name :
         {std::string(), std::string("."), std::string(".."), std::string("../x"), std::string("a/b"),
          std::string("/etc/x"), std::string("a\0b", 3), std::string(300, 'a')})
        EXPECT_FALSE(documentFiles().storeFile("documents", uuid, name, "x")) << name;
    EXPECT_FALSE(documentFiles().storeFile("..", uuid, "a", "x"));
    EXPECT_FALSE(documentFiles().storeFile("documents/../..", uuid, "a", "x"));
    EXPECT_EQ(test::entriesIn(container()), 3) << "the store and its two companions";
}

TEST_F(Files, AreNamedAndAskedForByType) {
    const auto uuid = Uuid::random();
    EXPECT_EQ(DocumentFiles::downloadName(uuid, "application/pdf"), uuid.text() + ".pdf");
    EXPECT_EQ(DocumentFiles::downloadName(uuid, "what/ever"), uuid.text() + "..pdf");
    EXPECT_EQ(DocumentFiles::mimeType("a/b.PDF"), "application/pdf");
    EXPECT_EQ(DocumentFiles::mimeType("a/b"), "application/octet-stream");
    for (const char* type : {"application/pdf", "image/png", "image/jpeg", "image/tiff", "image/gif", "text/plain",
                             "image/webp", "application/msword", "application/vnd.oasis.opendocument.text"})
        EXPECT_TRUE(DocumentFiles::supportsOriginal(type)) << type;
    for (const char* type : {"image/heic", "undefined", "text/html", ""})
        EXPECT_FALSE(DocumentFiles::supportsOriginal(type)) << type;
}

TEST_F(Files, StatisticsCountOneFileADocument) {
    EXPECT_EQ(documentFiles().downloadedFileStatistics().files, 0);
    give(Uuid::random());
    const auto two = Uuid::random();
    give(two);
    test::put(documentFiles().documentFolder(two) / "zzz", "more");
    fs::create_directories(container() / "documents" / Uuid::random().text());
    const auto statistics = documentFiles().downloadedFileStatistics();
    EXPECT_EQ(statistics.files, 2);
    EXPECT_EQ(statistics.bytes, 8);
}

TEST_F(Files, RemovingDownloadsSparesWhatExistsNowhereElse) {
    const auto local = addedHere();
    ASSERT_TRUE(store().moveToStore("httpsa.example"));
    const auto downloaded = merged(1);
    const auto beingAdded = Uuid::random();
    give(downloaded);
    give(beingAdded);

    documentFiles().removeAllDownloads();
    EXPECT_FALSE(documentFiles().existingDocumentFile(downloaded));
    EXPECT_TRUE(documentFiles().existingPreview(downloaded));
    EXPECT_TRUE(documentFiles().existingDocumentFile(local)) << "known as local in another store";
    EXPECT_TRUE(documentFiles().existingDocumentFile(beingAdded)) << "not saved yet, perhaps";
    EXPECT_TRUE(log->contains("deleted document folder"));
}

TEST_F(Files, NothingIsRemovedWhenAStoreCannotBeRead) {
    const auto downloaded = merged(1);
    const auto stray = Uuid::random();
    give(downloaded);
    give(stray);
    clock->advance(std::chrono::hours(48));
    test::put(container() / "other.sqlite", "this is no store" + std::string(5000, '.'));
    documentFiles().removeAllDownloads();
    EXPECT_EQ(documentFiles().sweepStrays(), 0U);
    EXPECT_TRUE(documentFiles().existingDocumentFile(downloaded));
    EXPECT_TRUE(log->contains("couldn't delete document folder: "));

    fs::remove(container() / "other.sqlite");
    ASSERT_TRUE(services.defaults->set("connectedInstances", R"({"https://a":{"store":"httpsa"}})"));
    EXPECT_EQ(documentFiles().sweepStrays(), 0U) << "nobody knows what a missing store holds";
    EXPECT_TRUE(documentFiles().existingDocumentFile(stray));
}

TEST_F(Files, SweepTakesOldLeftoversOnly) {
    const auto local = addedHere();
    ASSERT_TRUE(store().moveToStore("httpsa.example"));
    const auto known = merged(1);
    const auto stray = Uuid::random();
    give(known);
    give(stray);
    const auto unfinished = documentFiles().documentFolder(known) / (".x.pdf.part-" + std::string("0123456789abcdef"));
    test::put(unfinished, "half");
    test::put(container() / "documents" / "readme.txt", "somebody's");
    fs::create_directory_symlink(folder.path(), container() / "documents" / Uuid::random().text());

    clock->advance(std::chrono::hours(25));
    EXPECT_EQ(documentFiles().sweepStrays(), 0U) << "the start that made a store can't tell what is a stray";
    clock->advance(std::chrono::hours(-25));
    startAgain();
    EXPECT_EQ(documentFiles().sweepStrays(), 0U) << "younger than a day";
    clock->advance(std::chrono::hours(25));
    // The stray's two folders and the link; what the link leads to stays.
    EXPECT_GE(documentFiles().sweepStrays(), 3U);
    EXPECT_FALSE(fs::exists(documentFiles().documentFolder(stray)));
    EXPECT_FALSE(fs::exists(documentFiles().previewFolder(stray)));
    EXPECT_TRUE(documentFiles().existingDocumentFile(known));
    EXPECT_TRUE(documentFiles().existingDocumentFile(local));
    EXPECT_TRUE(fs::exists(container() / "documents" / "readme.txt"));
    EXPECT_TRUE(fs::exists(folder / "letter.pdf"));
}

TEST_F(Files, PapersOutliveTheLossOfTheirStore) {
    const auto local = addedHere();
    give(Uuid::random());
    EXPECT_TRUE(documentFiles().storePreview(local, kPng));
    clock->advance(std::chrono::hours(48));
    handler.reset();
    for (const auto& file : {"Ledgerfinch.sqlite", "Ledgerfinch.sqlite-wal", "Ledgerfinch.sqlite-shm"})
        fs::remove(container() / file);
    EXPECT_EQ(documentFiles().sweepStrays(), 0U);
    startAgain();
    test::put(container() / "cut.sqlite", "");
    EXPECT_EQ(documentFiles().sweepStrays(), 0U) << "nobody knows what a store held that has no tables";
    fs::remove(container() / "cut.sqlite");
    EXPECT_EQ(documentFiles().sweepStrays(), 2U) << "what can be downloaded again";
    EXPECT_TRUE(documentFiles().existingDocumentFile(local));
    EXPECT_TRUE(documentFiles().existingPreview(local));
}

TEST_F(Files, UnknownColumnFailsInsteadOfMakingEveryDocumentDelivered) {
    addedHere();
    execute("ALTER TABLE CD_Document RENAME COLUMN server_shadow TO other");
    EXPECT_FALSE(readKnownDocuments(container()));
    execute("ALTER TABLE CD_Document RENAME COLUMN other TO server_shadow");
}

TEST_F(Files, MoveOverwritesNothingAndLosesNothing) {
    const auto uuid = merged(1);
    const auto file = give(uuid);
    useCloud();
    const auto target = folder / "cloud/Documents/documents" / uuid.text() / (uuid.text() + ".pdf");
    fs::create_directories(target.parent_path());
    test::put(target, "another device's");
    store().cloud().moveFilesToCloud();
    EXPECT_TRUE(log->contains("error copying files: "));
    EXPECT_EQ(test::contentOf(file), "%PDF");
    EXPECT_EQ(test::contentOf(target), "another device's");
}

TEST_F(Files, CloudFolderIsTheBaseOnlyWhenItCanBeWritten) {
    const CloudDataHandler cloud(services);
    EXPECT_EQ(cloud.baseFolder(), container());
    useCloud();
    EXPECT_EQ(cloud.baseFolder(), folder / "cloud/Documents");
    for (const auto& setting : {std::string(), std::string("relative"), (folder / "missing").string(),
                                (folder / "config/settings.ini").string()}) {
        ASSERT_TRUE(services.defaults->set("cloudFolder", setting));
        EXPECT_FALSE(cloud.isSignedIn()) << setting;
        EXPECT_EQ(cloud.baseFolder(), container());
    }
}

TEST_F(Files, MoveToTheCloudAndBackLeavingOtherDevicesTheirs) {
    const auto ours = merged(1);
    give(ours);
    useCloud();
    const auto theirs = Uuid::random();
    give(theirs);
    const CloudDataHandler& cloud = store().cloud();
    cloud.moveFilesToCloud();
    EXPECT_TRUE(documentFiles().existingDocumentFile(ours));
    EXPECT_TRUE(documentFiles().existingPreview(ours));
    EXPECT_FALSE(fs::exists(container() / "documents"));
    EXPECT_FALSE(fs::exists(container() / "previews"));

    clock->advance(std::chrono::hours(48));
    EXPECT_EQ(documentFiles().sweepStrays(), 0U);
    documentFiles().removeAllDownloads();
    EXPECT_TRUE(documentFiles().existingDocumentFile(theirs));
    give(ours);

    cloud.moveFilesToLocal();
    EXPECT_TRUE(documentFiles().existingDocumentFile(theirs)) << "stays for the other device";
    EXPECT_FALSE(documentFiles().existingDocumentFile(ours));
    ASSERT_TRUE(services.defaults->set("useiCloud", false));
    EXPECT_TRUE(documentFiles().existingDocumentFile(ours));
    EXPECT_TRUE(documentFiles().existingPreview(ours));
}

TEST_F(Files, FailedMoveLeavesTheSourceWhole) {
    const auto uuid = merged(1);
    give(uuid);
    useCloud();
    files->failOn = "previews";
    store().cloud().moveFilesToCloud();
    EXPECT_TRUE(log->contains("error copying files: "));
    EXPECT_TRUE(fs::exists(container() / "documents" / uuid.text() / (uuid.text() + ".pdf")));
    EXPECT_TRUE(fs::exists(container() / "previews" / uuid.text() / "thumb.png"));

    files->failOn.clear();
    store().cloud().moveFilesToCloud();
    EXPECT_TRUE(documentFiles().existingDocumentFile(uuid)) << "a second try ends it";
    EXPECT_FALSE(fs::exists(container() / "documents"));
}

TEST_F(Files, PlaceholderIsWaitedForAMinuteAtMost) {
    const auto place = folder / "documents/X";
    fs::create_directories(place);
    int waits = 0;
    int arrivesAfter = 3;
    const CloudDataHandler cloud(services, [&](std::chrono::microseconds pause) {
        EXPECT_EQ(pause, std::chrono::milliseconds(500));
        if (++waits == arrivesAfter) test::put(place / "real.pdf", "%PDF");
    });
    cloud.downloadPlaceholder(folder / "missing");
    cloud.downloadPlaceholder(place);
    EXPECT_EQ(waits, 0);
    test::put(place / ".real.pdf.icloud", "");
    cloud.downloadPlaceholder(place);
    EXPECT_EQ(waits, 3);
    fs::remove(place / "real.pdf");
    waits = 0;
    arrivesAfter = -1;
    cloud.downloadPlaceholder(place);
    EXPECT_EQ(waits, 120);
    EXPECT_TRUE(log->contains("download should be done!"));
}

TEST_F(Files, PlaceholderIsNoFile) {
    const auto uuid = Uuid::random();
    fs::create_directories(documentFiles().documentFolder(uuid));
    test::put(documentFiles().documentFolder(uuid) / ".a.pdf.icloud", "");
    EXPECT_FALSE(documentFiles().existingDocumentFile(uuid));
}

} // namespace
} // namespace ledgerfinch
