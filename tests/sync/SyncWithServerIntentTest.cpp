// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/SyncWithServerIntent.h"

#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace ledgerfinch::test {
namespace {

using support::Fault;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

Result<SyncResult> perform(Device& device, const std::optional<std::string>& server = std::nullopt) {
    return offMain([&] {
        SyncWithServerIntent intent(device.services(), device.core());
        auto outcome = intent.perform(server);
        intent.waitForDownloads();
        return outcome;
    });
}

TEST(SyncWithServerIntent, BringsTheMirrorUpToTheServerAndFetchesFiles) {
    SyncWorld world(5);
    auto& device = world.device();
    (void)device.settings().set("server_version", "2.20.15");
    (void)device.settings().set("download_all", true);
    const auto outcome = perform(device, world.address().url + "/");
    ASSERT_TRUE(outcome) << outcome.error().message;
    EXPECT_EQ(*outcome, SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");
    EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files, 5);
    EXPECT_EQ(device.idle().disabled(), 1);
    EXPECT_EQ(device.idle().enabled(), 1);
}

TEST(SyncWithServerIntent, AnUnknownVersionOpensNoGate) {
    SyncWorld world(3);
    auto& device = world.device();
    ASSERT_TRUE(perform(device));
    const auto asked = world.requested();
    EXPECT_THAT(asked, Not(Contains(HasSubstr("/api/storage_paths/"))));
    EXPECT_THAT(asked, Not(Contains(HasSubstr("/api/custom_fields/"))));
    // Now the version is known; what came too early is linked.
    ASSERT_TRUE(perform(device));
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");
}

TEST(SyncWithServerIntent, TheFirstAnswerEndsNothing) {
    SyncWorld world(3);
    auto& device = world.device();
    world.server().faults().onPath("/api/groups/", Fault::dropConnection());
    const auto outcome = perform(device);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(*outcome, SyncOutcome::Incomplete);
    EXPECT_EQ(device.ids("CD_Document").size(), 3U);
}

TEST(SyncWithServerIntent, LeavesOfflineModeAlone) {
    SyncWorld world(3);
    auto& device = world.device();
    (void)device.settings().set("offlineMode", true);
    EXPECT_EQ(*perform(device), SyncOutcome::Offline);
    EXPECT_TRUE(device.settings().boolean("offlineMode").value_or(false));
    EXPECT_THAT(world.requested(), IsEmpty());
}

TEST(SyncWithServerIntent, SaysWhyItCanNotSync) {
    SyncWorld world(3);
    auto& device = world.device();
    const auto other = perform(device, "https://other.example");
    ASSERT_FALSE(other);
    EXPECT_THAT(other.error().message, HasSubstr("https://other.example"));
    EXPECT_THAT(world.requested(), IsEmpty()) << "its documents have no place in the open store";

    world.server().faults().onPath("/api/", Fault::answer(401));
    EXPECT_EQ(perform(device).error().code, 401);
    offMain([&] { KeychainHandler(device.services()).removeToken(world.address().url); });
    EXPECT_EQ(perform(device).error().message, "No token found");
}

} // namespace
} // namespace ledgerfinch::test
