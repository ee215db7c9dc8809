// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/StoreRemoval.h"
#include "store/StoreFixture.h"

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

/// Stores beside the open one, of servers that were or are connected.
class StoreRemoval : public test::StoreTest {
protected:
    StoreRemoval() { store(); }

    fs::path fileOf(const std::string& name) { return services.paths.container / (name + ".sqlite"); }
    bool exists(const std::string& name) { return fs::exists(fileOf(name)); }
    /// A store that was in use; with its files and its lock.
    void make(const std::string& name, bool withDocument = false) {
        const auto container = PersistentContainer::open(ledgerfinchModel(), {fileOf(name), Durability::Normal, {}},
                                                         services.logger("test"));
        ASSERT_TRUE(container);
        if (withDocument) {
            const auto context = (*container)->newBackgroundContext();
            context->performAndWait([&] {
                context->insert<CD_Document>()->setId(1);
                ASSERT_TRUE(context->save());
            });
        }
        ASSERT_TRUE(FileLock::tryLock(syncLockFile(services.paths, fileOf(name))));
    }
    void connect(const std::string& instances) { ASSERT_TRUE(services.defaults->set("connectedInstances", instances)); }
};

TEST_F(StoreRemoval, TakesEverythingOfAnEmptiedStoreAndNothingElse) {
    make("httpsgone");
    make("httpsgone-2");
    test::put(fileOf("httpsgone").string() + "-wal", "");
    const auto before = test::entriesIn(services.paths.container);
    const auto removed = removeStoreFiles(services, "httpsgone");
    ASSERT_TRUE(removed) << removed.error().message;
    for (const auto* suffix : {"", "-wal", "-shm"})
        EXPECT_FALSE(fs::exists(fileOf("httpsgone").string() + suffix)) << suffix;
    EXPECT_FALSE(fs::exists(syncLockFile(services.paths, fileOf("httpsgone"))));
    EXPECT_TRUE(exists("httpsgone-2"));
    EXPECT_TRUE(fs::exists(syncLockFile(services.paths, fileOf("httpsgone-2"))));
    EXPECT_LT(test::entriesIn(services.paths.container), before);
}

TEST_F(StoreRemoval, NeverTakesAStoreThatIsOrMayBeSomebodys) {
    make("httpsA");
    make("full", true);
    make("Ledgerfinch-queries");
    test::put(fileOf("cut"), "");
    connect(R"({"https://a":{"store":"HTTPSa"}})");
    EXPECT_FALSE(removeStoreFiles(services, "httpsA")) << "an entry's, on a disk without case";
    EXPECT_FALSE(removeStoreFiles(services, "Ledgerfinch")) << "that of offline mode";
    EXPECT_FALSE(removeStoreFiles(services, "full")) << "holds a paper";
    EXPECT_FALSE(removeStoreFiles(services, "cut")) << "nobody knows what it held";
    EXPECT_FALSE(removeStoreFiles(services, "../config"));
    EXPECT_FALSE(removeStoreFiles(services, "absent"));
    connect("{}");
    ASSERT_TRUE(services.defaults->set("server", "httpsA"));
    EXPECT_FALSE(removeStoreFiles(services, "httpsA")) << "that of the active server, which has no entry";
    ASSERT_TRUE(services.defaults->set("server", ""));
    for (const char* broken : {"not json", R"({"https://b":{"store":7}})", R"({"https://b":"?"})"}) {
        connect(broken);
        EXPECT_FALSE(removeStoreFiles(services, "httpsA")) << broken;
    }
    connect("{}");
    EXPECT_TRUE(removeStoreFiles(services, "httpsA"));
    for (const auto* name : {"Ledgerfinch", "full", "cut"})
        EXPECT_TRUE(exists(name)) << name;
}

TEST_F(StoreRemoval, WaitsForWhoeverHasItOpenOrSyncsIt) {
    make("httpsgone");
    {
        const auto open = PersistentContainer::open(ledgerfinchModel(), {fileOf("httpsgone"), Durability::Normal, {}},
                                                    services.logger("test"))
                              .value();
        EXPECT_FALSE(removeStoreFiles(services, "httpsgone"));
        EXPECT_TRUE(open->verify());
    }
    {
        const auto syncing = FileLock::tryLock(syncLockFile(services.paths, fileOf("httpsgone")));
        ASSERT_TRUE(syncing);
        EXPECT_FALSE(removeStoreFiles(services, "httpsgone"));
    }
    // What was refused is a store like before.
    EXPECT_TRUE(PersistentContainer::open(ledgerfinchModel(), {fileOf("httpsgone"), Durability::Normal, {}},
                                          services.logger("test")));
    EXPECT_TRUE(removeStoreFiles(services, "httpsgone"));
}

TEST_F(StoreRemoval, TheSweepEndsRemovalsThatWereCutOff) {
    make("httpsgone");
    make("full", true);
    handler.reset();
    store();
    EXPECT_EQ(store().documentFiles().sweepStrays(), 0U) << "younger than a day";
    clock->advance(std::chrono::hours(25));
    EXPECT_EQ(store().documentFiles().sweepStrays(), 1U);
    EXPECT_FALSE(exists("httpsgone"));
    EXPECT_TRUE(exists("full"));
    EXPECT_TRUE(exists("Ledgerfinch"));
}

} // namespace
} // namespace ledgerfinch
