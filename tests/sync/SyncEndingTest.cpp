// SPDX-License-Identifier: GPL-3.0-or-later
// Passes that are ended while they wait: for an answer, or for another pass of the same store.
#include "sync/OffMain.h"
#include "sync/SyncLock.h"
#include "sync/SyncWithServerIntent.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

namespace ledgerfinch::test {
namespace {

using support::Fault;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::Not;

template <class T>
bool isReady(std::future<T>& result) {
    return waitUntil([&] { return result.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
}

class SyncEnding : public ::testing::Test {
protected:
    /// A pass on a thread of its own.
    std::future<SyncResult> begin(SyncRequest request = {}) {
        return std::async(std::launch::async, [this, request] {
            return device.driver().runSync(device.api(), device.heard().observer(), request);
        });
    }
    bool stalls(std::size_t count = 1) {
        return waitUntil([&] { return world.server().faults().stalled() == count; });
    }

    SyncWorld world{120};
    Device& device = world.device();
};

TEST_F(SyncEnding, StopDoesNotWaitForAnAnswerThatNeverComes) {
    for (const std::string path : {"/api/groups/", "/api/tags/", "full_perms=true&order", "page=2"}) {
        SCOPED_TRACE(path);
        SyncDriver driver(device.services(), device.core());
        world.server().faults().onPath(path, Fault::stall());
        auto result = std::async(std::launch::async, [&] { return driver.runSync(device.api(), {}).outcome; });
        ASSERT_TRUE(stalls());
        driver.stop();
        ASSERT_TRUE(isReady(result)) << "and nobody releases the answer";
        EXPECT_EQ(result.get(), SyncOutcome::Stopped);
        world.server().faults().clear();
        ASSERT_TRUE(stalls(0));
    }
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "");
    EXPECT_EQ(device.idle().disabled(), device.idle().enabled());
    EXPECT_EQ(device.sync(), SyncOutcome::Finished) << "other drivers are not stopped";
    EXPECT_EQ(device.differencesFromServer(), "");
}

TEST_F(SyncEnding, StopDuringAPartialPassRemovesNothingAndKeepsTheDate) {
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    device.pretendSynced("2024-05-06");
    world.server().removeDocument(7);
    world.server().faults().onPath("truncate_content", Fault::stall());
    auto result = begin();
    ASSERT_TRUE(stalls());
    device.driver().stop();
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get().outcome, SyncOutcome::Stopped);
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "2024-05-06");
    EXPECT_THAT(device.ids("CD_Document"), Contains(7));
}

TEST_F(SyncEnding, AStoppedPassSaysNothingAboutTheServer) {
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    world.server().faults().onPath("/api/users/", Fault::stall());
    auto result = begin();
    ASSERT_TRUE(stalls());
    device.driver().cancelPass();
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get().outcome, SyncOutcome::Stopped);
    world.server().faults().clear();
    world.requested();
    EXPECT_EQ(device.sync(), SyncOutcome::Finished) << "only that pass was ended";
    for (const auto& asked : world.requested())
        EXPECT_FALSE(asked.starts_with("GET /api/documents/?full_perms")) << "the list of users isn't missing";
}

TEST_F(SyncEnding, StopEndsADownloadAndNoneBeginsAfterIt) {
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/download/", Fault::stall());
    auto& downloads = device.driver().downloads();
    downloads.downloadSelectedDocuments(device.api(), device.heard().observer());
    ASSERT_TRUE(stalls());
    device.driver().stop();
    auto ended = std::async(std::launch::async, [&] { downloads.wait(); });
    ASSERT_TRUE(isReady(ended));
    EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files, 0);
    EXPECT_EQ(device.heard().stages.back(), loadingData::finished);

    world.server().faults().clear();
    device.heard().stages.clear();
    downloads.downloadSelectedDocuments(device.api(), device.heard().observer());
    downloads.wait();
    EXPECT_THAT(device.heard().stages, IsEmpty());
}

TEST_F(SyncEnding, StopBetweenThePassAndItsDownloadsStartsNoDownload) {
    (void)device.settings().set("download_all", true);
    auto observer = device.heard().observer();
    observer.stage = [&](loadingData stage) {
        if (stage == loadingData::finished) device.driver().stop();
        EXPECT_NE(stage, loadingData::downloading);
    };
    offMain([&] {
        (void)device.driver().runSync(device.api(), observer);
        device.driver().downloads().wait();
        return 0;
    });
    EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files, 0);
}

TEST_F(SyncEnding, AnIntentIsStoppedWhileItWaitsForItsFirstAnswer) {
    world.server().faults().onPath("/api/", Fault::stall());
    SyncWithServerIntent intent(device.services(), device.core());
    auto result = std::async(std::launch::async, [&] { return intent.perform(); });
    ASSERT_TRUE(stalls());
    intent.stop();
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get()->outcome, SyncOutcome::Stopped);
}

// Another pass has the store.

class SyncOfABusyStore : public SyncEnding {
protected:
    void takeStore() {
        auto lock = SyncLock::tryLock(device.services().paths, device.core().persistenceContainer()->file());
        ASSERT_TRUE(lock);
        held.emplace(std::move(lock).value());
    }
    /// For the so-many-th time.
    bool waitsForStore(std::size_t time = 1) {
        return waitUntil([&] { return device.linesWith("Another sync of this store is running") == time; });
    }

    std::optional<FileLock> held;
};

TEST_F(SyncOfABusyStore, BeginsWhenTheOtherPassHasEnded) {
    takeStore();
    auto result = begin({SyncExtent::WhatChanged, WhenBusy::Wait});
    ASSERT_TRUE(waitsForStore());
    EXPECT_THAT(world.requested(), IsEmpty());
    held.reset();
    ASSERT_TRUE(isReady(result));
    EXPECT_EQ(result.get().outcome, SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");
}

TEST_F(SyncOfABusyStore, WaitsNoLongerOnceItIsStoppedOrTheStoreIsAnother) {
    takeStore();
    auto first = begin({SyncExtent::WhatChanged, WhenBusy::Wait});
    ASSERT_TRUE(waitsForStore());
    ASSERT_TRUE(device.core().moveToStore("other"));
    ASSERT_TRUE(isReady(first));
    EXPECT_EQ(first.get().outcome, SyncOutcome::Stopped);

    ASSERT_TRUE(device.core().moveToLocalStore());
    auto second = begin({SyncExtent::WhatChanged, WhenBusy::Wait});
    ASSERT_TRUE(waitsForStore(2));
    device.driver().stop();
    ASSERT_TRUE(isReady(second));
    EXPECT_EQ(second.get().outcome, SyncOutcome::Stopped);
    EXPECT_THAT(world.requested(), IsEmpty());
}

TEST_F(SyncOfABusyStore, ALockThatCanNotBeMadeIsNoOtherPass) {
    std::filesystem::remove_all(device.services().paths.state);
    const auto result = begin().get();
    EXPECT_EQ(result.outcome, SyncOutcome::Incomplete);
    ASSERT_TRUE(result.storeFailure);
    EXPECT_THAT(*result.storeFailure, ::testing::HasSubstr("No such file or directory"));
    EXPECT_THAT(world.requested(), IsEmpty());
}

// A full pass that was asked for.

TEST_F(SyncEnding, AFullPassThatIsCutOffLosesNoDate) {
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    device.pretendSynced("2024-05-06");
    world.requested();
    world.server().faults().onPath("page=2", Fault::stall());
    auto result = begin({SyncExtent::Everything});
    ASSERT_TRUE(stalls());
    EXPECT_THAT(world.requested(), Not(Contains(::testing::HasSubstr("modified__gt"))));
    device.driver().cancelPass();
    ASSERT_TRUE(isReady(result));
    world.server().faults().clear();
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "2024-05-06");
    EXPECT_EQ(offMain([&] { return device.driver().runSync(device.api(), {}, {SyncExtent::Everything}).outcome; }),
              SyncOutcome::Finished);
    EXPECT_NE(device.setting("lastSuccessfulSync"), "2024-05-06");
}

} // namespace
} // namespace ledgerfinch::test
