// SPDX-License-Identifier: GPL-3.0-or-later
#include "browse/DocumentsView.h"

#include "connection/Instances.h"
#include "connection/screens/ManageInstancesView.h"
#include "sync/ChildProcess.h"
#include "sync/OffMain.h"
#include "sync/SyncLock.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace ledgerfinch::test {
namespace {

using support::Fault;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The screen over one device, counting what it tells.
class DocumentsViewTest : public ::testing::Test {
protected:
    DocumentsViewTest() { open(); }

    void open() {
        view = std::make_unique<DocumentsView>(device.services(), device.core(), device.api());
        QObject::connect(view.get(), &DocumentsView::syncEnded, view.get(),
                         [this](SyncOutcome outcome) { outcomes.push_back(outcome); });
        QObject::connect(view.get(), &DocumentsView::loadingFromServerChanged, view.get(),
                         [this] { texts.push_back(view->loadingText().toStdString()); });
    }
    /// Until so many passes have ended and the list is as long as this.
    bool synced(std::size_t passes, int count) {
        return waitUntil([&] { return outcomes.size() == passes && view->count() == count && !view->loading(); });
    }
    std::size_t countOf(support::PaperlessServer& server, std::string_view start) { return server.requestCount(start); }
    std::size_t storeMoves() {
        const auto records = device.log().records();
        return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [](const LogRecord& record) {
            return record.message.starts_with("Moved to store");
        }));
    }

    SyncWorld world{120};
    Device& device = world.device();
    std::unique_ptr<DocumentsView> view;
    std::vector<SyncOutcome> outcomes;
    std::vector<std::string> texts;
};

TEST_F(DocumentsViewTest, FirstAppearanceAfterAStartSyncsOnce) {
    EXPECT_TRUE(view->justLaunched());
    view->appeared();
    EXPECT_FALSE(view->justLaunched());
    ASSERT_TRUE(synced(1, 120));
    EXPECT_THAT(outcomes, ElementsAre(SyncOutcome::Finished));
    EXPECT_EQ(texts.front(), "Fetching users from server");
    EXPECT_EQ(view->loadingText().toStdString(), "finished");
    EXPECT_EQ(view->additionalText().toStdString(), "Received 120 documents");
    world.requested();
    view->appeared();
    ASSERT_TRUE(waitUntil([&] { return view->count() == 120; }));
    EXPECT_THAT(world.requested(), IsEmpty());
}

TEST_F(DocumentsViewTest, SkippingTheSyncAtStartStillReadsTheList) {
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    world.requested();
    (void)device.settings().set("skipSyncOnStartup", true);
    view->appeared();
    ASSERT_TRUE(waitUntil([&] { return view->count() == 120; }));
    EXPECT_FALSE(view->justLaunched());
    EXPECT_THAT(world.requested(), IsEmpty());
    EXPECT_THAT(texts, IsEmpty());
}

TEST_F(DocumentsViewTest, OfflineModeOnlyReadsTheList) {
    (void)device.settings().set("offlineMode", true);
    view->appeared();
    EXPECT_TRUE(view->justLaunched());
    view->setRefreshNow(true);
    ASSERT_TRUE(waitUntil([&] { return !view->refreshNow(); }));
    EXPECT_THAT(outcomes, ElementsAre(SyncOutcome::Offline));
    EXPECT_THAT(world.requested(), IsEmpty());
}

TEST_F(DocumentsViewTest, RefreshSyncsAndEndsByItself) {
    view->setRefreshNow(true);
    EXPECT_TRUE(view->refreshNow());
    ASSERT_TRUE(synced(1, 120));
    ASSERT_TRUE(waitUntil([&] { return !view->refreshNow(); }));
    EXPECT_TRUE(device.log().contains("Starting refresh"));
}

TEST_F(DocumentsViewTest, TheListFillsWhileTheSyncRuns) {
    world.server().faults().onPath("documents/.*page=2", Fault::stall(), 1);
    view->appeared();
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1 && view->count() == 100; }));
    EXPECT_EQ(view->loadingText().toStdString(), "Fetching documents from server");
    world.server().faults().clear();
    ASSERT_TRUE(synced(1, 120));
}

TEST_F(DocumentsViewTest, TheListIsOrderedAsTheSettingsSay) {
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    (void)device.settings().set("defaultOrderByKey", "id");
    (void)device.settings().set("defaultOrderAscending", true);
    view->reloadList();
    ASSERT_TRUE(waitUntil([&] { return view->count() == 120; }));
    std::vector<std::int64_t> ids;
    for (const auto& id : view->documents())
        ids.push_back(std::get<std::int64_t>(device.core().viewContext()->object(id)->value("id")));
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
}

TEST_F(DocumentsViewTest, ARefusedTokenLeadsBackToTheLogin) {
    view->setLoggedIn(true);
    world.server().faults().onPath("/api/", Fault::answer(401));
    view->appeared();
    ASSERT_TRUE(waitUntil([&] { return !view->loggedIn() && outcomes.size() == 1; }));
    EXPECT_EQ(view->error().toStdString(), "The server didn't accept the stored token. Please log in again.");
}

TEST_F(DocumentsViewTest, ClosingTheScreenEndsItsSync) {
    world.server().faults().onPath("documents/.*page=2", Fault::stall(), 1);
    view->appeared();
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    auto release = std::async(std::launch::async, [&] { world.server().faults().clear(); });
    view.reset();
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "");
    EXPECT_THAT(outcomes, IsEmpty()) << "nobody is left to hear of it";
}

TEST_F(DocumentsViewTest, WhatAnotherProcessSyncsAppears) {
    view->appeared();
    ASSERT_TRUE(synced(1, 120));
    world.server().addDocument(support::Json{{"title", "New"}});
    ChildProcess child(SYNC_CHILD,
                       {device.services().paths.container.parent_path(), world.address().url, world.address().token});
    EXPECT_TRUE(waitUntil([&] { return view->count() == 121; }));
    EXPECT_EQ(outcomes.size(), 1U) << "a reload, not a sync";
}

TEST_F(DocumentsViewTest, ARefreshDuringAnotherProcessesSyncFollowsIt) {
    auto held = SyncLock::tryLock(device.services().paths, device.core().persistenceContainer()->file());
    ASSERT_TRUE(held);
    view->setRefreshNow(true);
    ASSERT_TRUE(waitUntil([&] { return device.log().contains("Another sync of this store is running"); }));
    EXPECT_TRUE(view->refreshNow());
    EXPECT_THAT(world.requested(), IsEmpty());
    held = Error{"let go"};
    ASSERT_TRUE(synced(1, 120));
    EXPECT_THAT(outcomes, ElementsAre(SyncOutcome::Finished));
}

/// With a second connected server.
class DocumentsViewSwitching : public DocumentsViewTest {
protected:
    DocumentsViewSwitching() {
        other.generate(7);
        other.start();
        EXPECT_TRUE(registerInstance(device.settings(), other.url()));
        keepToken(other.token());
        EXPECT_TRUE(updateInstance(device.settings(), other.url(), "", "2.1.0"));
        view->appeared();
        EXPECT_TRUE(synced(1, 120));
        world.requested();
        other.clearRequests();
        texts.clear();
    }
    void keepToken(const std::string& token) {
        EXPECT_TRUE(offMain([&] { return KeychainHandler(device.services()).saveToken(token, other.url()).ok(); }));
    }
    std::string mirrorDifferencesOf(const support::PaperlessServer& server) {
        return offMain([&] {
            return mirrorDifferences(*device.core().persistenceContainer(), *device.services().http,
                                     {server.url(), server.token()});
        });
    }

    support::PaperlessServer other;
};

TEST_F(DocumentsViewSwitching, ChangesStoreSettingsAndListInOneGoAndSyncsOnce) {
    const auto date = device.setting("lastSuccessfulSync");
    std::vector<int> counts;
    QObject::connect(view.get(), &DocumentsView::listReloaded, view.get(), [&] { counts.push_back(view->count()); });
    const auto oldApi = view->apiHandler();
    view->switchToInstance(QString::fromStdString(other.url()));
    ASSERT_TRUE(synced(2, 7));
    // A reload that was queued before the switch may still show the old list; after it was emptied nothing does.
    const auto emptied = std::find(counts.begin(), counts.end(), 0);
    ASSERT_NE(emptied, counts.end()) << "emptied before anything else";
    EXPECT_EQ(std::count(emptied, counts.end(), 120), 0);
    EXPECT_EQ(device.setting("server"), other.url());
    EXPECT_FALSE(view->loggedIn());
    EXPECT_NE(view->apiHandler(), oldApi);
    EXPECT_EQ(storeMoves(), 1U);
    EXPECT_EQ(countOf(other, "GET /api/groups/"), 1U);
    EXPECT_THAT(world.requested(), IsEmpty());
    // Back again: the first server's list and date are as they were.
    view->switchToInstance(QString::fromStdString(world.address().url));
    ASSERT_TRUE(synced(3, 120));
    EXPECT_EQ(device.setting("lastSuccessfulSync"), date);
    EXPECT_EQ(world.server().requestCount("GET /api/documents/?modified__gt=" + date), 1U);
}

TEST_F(DocumentsViewSwitching, DuringASyncEndsThatSyncAndMixesNothing) {
    world.server().faults().onPath("documents/", Fault::stall(), 1);
    view->setRefreshNow(true);
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    bool made = false;
    QObject::connect(view.get(), &DocumentsView::instanceSwitched, view.get(), [&](bool switched) { made = switched; });
    view->switchToInstance(QString::fromStdString(other.url()));
    ASSERT_TRUE(waitUntil([&] { return made; })) << "does not wait for the sync";
    world.server().faults().clear();
    ASSERT_TRUE(synced(3, 7));
    EXPECT_THAT(outcomes, ElementsAre(SyncOutcome::Finished, SyncOutcome::Stopped, SyncOutcome::Finished));
    EXPECT_EQ(mirrorDifferencesOf(other), "");
}

TEST_F(DocumentsViewSwitching, TheNewServersSyncDoesNotWaitForAnAnswerOfTheOldOne) {
    world.server().faults().onPath("documents/", Fault::stall());
    view->setRefreshNow(true);
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    view->switchToInstance(QString::fromStdString(other.url()));
    ASSERT_TRUE(synced(3, 7)) << "and nobody releases the answer";
    EXPECT_THAT(outcomes, ElementsAre(SyncOutcome::Finished, SyncOutcome::Stopped, SyncOutcome::Finished));
}

TEST_F(DocumentsViewSwitching, DisconnectingTheServerThatWasLeftTakesItsStoreAlong) {
    const auto fileOf = [&](const std::string& server) {
        const auto store = ConnectedInstances::load(device.settings()).find(server)->second.store;
        return device.services().paths.container / (store + ".sqlite");
    };
    const auto left = fileOf(other.url());
    view->switchToInstance(QString::fromStdString(other.url()));
    ASSERT_TRUE(synced(2, 7));
    view->switchToInstance(QString::fromStdString(world.address().url));
    ASSERT_TRUE(synced(3, 120));
    ASSERT_TRUE(std::filesystem::exists(left));
    ManageInstancesView manage(device.services(), device.core());
    manage.askToDisconnect(QString::fromStdString(other.url()));
    manage.disconnectInstance();
    ASSERT_TRUE(waitUntil([&] { return !manage.isRemoving(); }));
    EXPECT_FALSE(std::filesystem::exists(left));
    EXPECT_TRUE(std::filesystem::exists(fileOf(world.address().url)));
    EXPECT_EQ(view->count(), 120);
}

TEST_F(DocumentsViewSwitching, WithoutATokenOrAnEntryNothingHappens) {
    offMain([&] { KeychainHandler(device.services()).removeToken(other.url()); });
    std::vector<bool> made;
    QObject::connect(view.get(), &DocumentsView::instanceSwitched, view.get(),
                     [&](bool switched) { made.push_back(switched); });
    view->switchToInstance(QString::fromStdString(other.url()));
    view->switchToInstance(QStringLiteral("https://unknown.example"));
    keepToken("0000000000000000000000000000000000000000");
    view->switchToInstance(QString::fromStdString(other.url()));
    ASSERT_TRUE(waitUntil([&] { return made.size() == 3; }));
    EXPECT_THAT(made, ElementsAre(false, false, false));
    EXPECT_EQ(device.setting("server"), world.address().url);
    EXPECT_EQ(storeMoves(), 0U);
    EXPECT_EQ(view->count(), 120);
    EXPECT_EQ(outcomes.size(), 1U);
}

TEST_F(DocumentsViewSwitching, AServerThatChangesElsewhereIsFollowedOnce) {
    (void)device.settings().set("lastSuccessfulSync", "");
    (void)device.settings().set("server", other.url());
    ASSERT_TRUE(synced(2, 7));
    EXPECT_EQ(storeMoves(), 1U);
    EXPECT_EQ(countOf(other, "GET /api/groups/"), 1U);
    EXPECT_EQ(mirrorDifferencesOf(other), "");
}

} // namespace
} // namespace ledgerfinch::test
