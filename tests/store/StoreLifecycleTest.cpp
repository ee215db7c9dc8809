// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreFixture.h"

#include <thread>

namespace ledgerfinch {
namespace {

using testing::IsEmpty;
using testing::IsNull;
using testing::NotNull;

class StoreLifecycle : public test::StoreTest {
protected:
    std::filesystem::path storeFile(const std::string& name) { return services.paths.container / (name + ".sqlite"); }
    bool exists(const std::string& name) { return std::filesystem::exists(storeFile(name)); }
    void connect(const std::string& instances, const std::string& server) {
        ASSERT_TRUE(services.defaults->set("connectedInstances", instances));
        ASSERT_TRUE(services.defaults->set("server", server));
    }
    /// The text with which the program would end.
    std::string endOfProgram() {
        try {
            store();
        } catch (const test::ProgramEnded& ended) {
            return ended.what();
        }
        return {};
    }
    void addTag() { store().saveTag(tags(R"([{"id":1,"name":"a"}])").front()); }
};

constexpr const char* kTwo = R"({"https://a.example":{"store":"httpsa.example","serverVersion":""},
    "https://b.example/":{"store":"httpsb.example","serverVersion":""}})";

TEST_F(StoreLifecycle, OpensTheStoreOfTheActiveInstance) {
    EXPECT_EQ(store().storeName(), "Ledgerfinch");
    EXPECT_TRUE(store().isOfflineStore());
    EXPECT_TRUE(exists("Ledgerfinch"));
    struct Case {
        const char *server, *name;
    };
    for (const auto& [server, name] :
         {Case{"https://a.example", "httpsa.example"}, Case{"https://a.example/", "httpsa.example"},
          Case{"https://b.example", "httpsb.example"}, Case{"https://unknown.example", "httpsunknown.example"},
          Case{"", "Ledgerfinch"}}) {
        connect(kTwo, server);
        handler.reset();
        EXPECT_EQ(store().storeName(), name) << server;
        EXPECT_TRUE(exists(name));
    }
    connect("not json", "https://a.example");
    handler.reset();
    EXPECT_EQ(store().storeName(), "httpsa.example") << "never the papers of offline mode";
}

TEST_F(StoreLifecycle, EntryThatNamesTheOfflineStoreEndsNoStartAndReachesNoPapers) {
    for (const char* name : {"Ledgerfinch", "ledgerFINCH"}) {
        connect(R"({"https://a.example":{"store":")" + std::string(name) + R"("}})", "https://a.example");
        handler.reset();
        EXPECT_EQ(store().storeName(), "httpsa.example");
        EXPECT_FALSE(store().moveToStore(name));
        EXPECT_FALSE(store().isOfflineStore());
    }
    EXPECT_FALSE(exists("Ledgerfinch"));
}

TEST_F(StoreLifecycle, MissingContainerEndsTheProgram) {
    std::filesystem::remove_all(services.paths.container);
    EXPECT_EQ(endOfProgram(), "Shared file container could not be created.");
}

TEST_F(StoreLifecycle, HostileStoreNamesAreNeverOpened) {
    test::put(folder / "outside.sqlite", "");
    for (const char* name : {"../outside", "/tmp/outside", ".hidden", "a/b", ""}) {
        connect(R"({"https://a.example":{"store":")" + std::string(name) + R"("}})", "https://a.example");
        EXPECT_THAT(endOfProgram(), testing::StartsWith("Core Data Store failed ")) << name;
    }
    EXPECT_TRUE(log->contains("Error during core data initialisation: "));
    EXPECT_EQ(test::contentOf(folder / "outside.sqlite"), "");
    EXPECT_EQ(test::entriesIn(services.paths.container), 0);

    connect("{}", "");
    EXPECT_FALSE(store().moveToStore("../outside"));
    EXPECT_EQ(store().storeName(), "Ledgerfinch");
}

TEST_F(StoreLifecycle, DamagedStoreEndsTheProgramAndStaysAsItIs) {
    const std::string damaged = "this is no store, but somebody's papers" + std::string(5000, '.');
    test::put(storeFile("Ledgerfinch"), damaged);
    EXPECT_THAT(endOfProgram(), testing::StartsWith("Core Data Store failed "));
    EXPECT_EQ(test::contentOf(storeFile("Ledgerfinch")), damaged);
}

TEST_F(StoreLifecycle, MovingKeepsTheStoresApart) {
    addTag();
    const auto old = view();
    const auto staleId = store().getTag(1)->objectID();
    ASSERT_TRUE(store().moveToStore("httpsa.example"));
    EXPECT_FALSE(store().isOfflineStore());
    EXPECT_NE(view(), old);
    EXPECT_THAT(store().getTag(1), IsNull());
    EXPECT_THAT(view()->object(staleId), IsNull()) << "an id of another store finds nothing";
    EXPECT_EQ(store().getTag(1, old)->name(), "a") << "whoever holds the old context stays with its store";
    EXPECT_TRUE(log->contains("Moved to store httpsa.example"));

    ASSERT_TRUE(store().moveToLocalStore());
    EXPECT_THAT(store().getTag(1), NotNull());
    const auto same = view();
    ASSERT_TRUE(store().moveToStore("Ledgerfinch"));
    EXPECT_EQ(view(), same) << "moving to where one is moves nothing";
}

TEST_F(StoreLifecycle, FailedMoveKeepsTheOldStore) {
    addTag();
    test::put(storeFile("broken"), "this is no store" + std::string(5000, '.'));
    EXPECT_FALSE(store().moveToStore("broken"));
    EXPECT_EQ(store().storeName(), "Ledgerfinch");
    EXPECT_THAT(store().getTag(1), NotNull());
}

TEST_F(StoreLifecycle, CloudSettingNeedsAFolder) {
    ASSERT_TRUE(services.defaults->set("useiCloud", true));
    EXPECT_FALSE(store().isMirrored());
    EXPECT_TRUE(log->contains("No iCloud token found, user likely disabled iCloud"));
    EXPECT_EQ(services.defaults->boolean("useiCloud"), false);

    std::filesystem::create_directories(folder / "cloud");
    ASSERT_TRUE(services.defaults->set("cloudFolder", (folder / "cloud").string()));
    ASSERT_TRUE(services.defaults->set("useiCloud", true));
    handler.reset();
    EXPECT_TRUE(store().isMirrored());
    EXPECT_EQ(services.defaults->boolean("useiCloud"), true);
}

TEST_F(StoreLifecycle, CloudMovesNeverOpenTheOfflineStoreForAServer) {
    connect(kTwo, "https://a.example");
    ASSERT_TRUE(store().moveToCloudStore());
    EXPECT_EQ(store().storeName(), "httpsa.example");
    EXPECT_TRUE(store().isMirrored());
    EXPECT_TRUE(log->contains("Moved to iCloud CoreData store"));
    ASSERT_TRUE(store().moveToLocalStore());
    EXPECT_EQ(store().storeName(), "httpsa.example");
    EXPECT_FALSE(store().isMirrored());
    EXPECT_FALSE(exists("Ledgerfinch"));
}

TEST_F(StoreLifecycle, ResetEmptiesEveryEntityAndLeavesFiles) {
    addTag();
    store().saveDocument(document(R"({"id":1,"title":"t","content":"c","tags":[1],"correspondent":9,
        "notes":[{"id":1,"note":"n"}]})"));
    store().saveSavedViews(savedViews(R"([{"id":1,"name":"v","filter_rules":[{"rule_type":6,"value":"1"}]}])"),
                           Delivery::Complete);
    const auto file = store().documentFiles().storeFile("documents", *store().getDocument(1)->uuid(), "a.pdf", "x");
    ASSERT_TRUE(file);
    store().resetStore();
    for (const auto& entity : store().persistenceContainer()->model().entities()) {
        FetchRequest request;
        request.entity = entity.name;
        EXPECT_THAT(store().persistenceContainer()->fetchIDs(request).value(), IsEmpty()) << entity.name;
    }
    EXPECT_TRUE(std::filesystem::exists(*file));
    EXPECT_THAT(store().getTags(), IsEmpty());
}

TEST_F(StoreLifecycle, FailedSaveOfTheViewRollsBack) {
    addTag();
    store().getTag(1)->setName("edited");
    execute("CREATE TRIGGER refuse BEFORE UPDATE ON CD_Tag BEGIN SELECT RAISE(ABORT, 'full'); END");
    EXPECT_FALSE(store().saveViewContext());
    EXPECT_TRUE(log->contains("Encountered an error while updating core data: "));
    EXPECT_EQ(store().getTag(1)->name(), "a");
    execute("DROP TRIGGER refuse");
}

TEST_F(StoreLifecycle, TheViewSeesWhatASyncMergesAndItsEditsWin) {
    addTag();
    const auto seen = store().getTag(1);
    EXPECT_EQ(seen->name(), "a");
    std::thread sync([this, context = background()] {
        store().saveTag(tags(R"([{"id":1,"name":"from the server"},{"id":2}])").front(), context);
    });
    sync.join();
    view()->performAndWait([] {});
    EXPECT_EQ(store().getTag(1)->name(), "from the server");

    seen->setName("edited here");
    store().saveTag(tags(R"([{"id":1,"name":"again"}])").front(), background());
    ASSERT_TRUE(store().saveViewContext());
    background()->performAndWait([&] { EXPECT_EQ(store().getTag(1, background())->name(), "edited here"); });
}

TEST(Models, NameEveryEntityOnce) {
    EXPECT_EQ(ledgerfinchModel().entities().size(), 15U);
    EXPECT_EQ(queryModel().entities().size(), 2U);
    EXPECT_EQ(makeLedgerfinchModel(nullptr)->hash(), ledgerfinchModel().hash());
}

} // namespace
} // namespace ledgerfinch
