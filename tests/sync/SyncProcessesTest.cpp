// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/ChildProcess.h"
#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <set>

namespace ledgerfinch::test {
namespace {

using support::Fault;

std::string outcomeLine(SyncOutcome outcome) {
    return "outcome " + std::to_string(static_cast<int>(outcome));
}

/// Everything the child tells from here on; the last line is its outcome.
std::string lastLine(ChildProcess& child) {
    std::string last;
    while (auto line = child.readLine())
        last = *line;
    return last;
}

class SyncProcesses : public ::testing::Test {
protected:
    ChildProcess newChild() {
        return ChildProcess(SYNC_CHILD, {folder.path(), world.address().url, world.address().token});
    }
    std::unique_ptr<Device> reopen() { return std::make_unique<Device>(folder.path(), world.address()); }

    SyncWorld world{120};
    TemporaryFolder folder;
};

TEST_F(SyncProcesses, OnlyOneOfTwoSyncsAStore) {
    world.server().faults().onPath("documents/.*page=2", Fault::stall(), 1);
    auto first = newChild();
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    auto second = newChild();
    EXPECT_EQ(lastLine(second), outcomeLine(SyncOutcome::AlreadyRunning));
    EXPECT_EQ(second.wait(), 0);
    world.server().faults().clear();
    EXPECT_EQ(lastLine(first), outcomeLine(SyncOutcome::Finished));
    EXPECT_EQ(reopen()->differencesFromServer(), "");
}

TEST_F(SyncProcesses, WhatOneSyncsTheOtherSees) {
    auto device = reopen();
    const auto container = device->core().persistenceContainer();
    int noticed = 0;
    const auto subscription = container->onRemoteChange([&] { ++noticed; });
    auto child = newChild();
    EXPECT_EQ(lastLine(child), outcomeLine(SyncOutcome::Finished));
    container->processRemoteChanges();
    EXPECT_GT(noticed, 0);
    EXPECT_EQ(device->differencesFromServer(), "");
    EXPECT_EQ(device->setting("lastSuccessfulSync"), dates::formatDateOnly(Clock().now()));
}

TEST_F(SyncProcesses, AKilledSyncLosesNothingAndTheNextOneCompletesIt) {
    // So many lines the child tells of an undisturbed sync, about.
    constexpr int kLines = 130;
    std::mt19937 random(20261122);
    std::uniform_int_distribution<int> moments(0, kLines);
    int killedInTheMiddle = 0;
    for (int round = 0; round < 25 && !HasFailure(); ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        const TemporaryFolder own;
        ChildProcess child(SYNC_CHILD, {own.path(), world.address().url, world.address().token});
        std::set<std::int64_t> saved;
        const auto note = [&](const std::string& line) {
            if (line.starts_with("saved ")) saved.insert(std::stoll(line.substr(6)));
        };
        for (int lines = moments(random); lines > 0; --lines) {
            const auto line = child.readLine();
            if (!line) break;
            note(*line);
        }
        child.kill();
        while (const auto line = child.readLine()) // told before it died
            note(*line);
        if (child.wait() == -SIGKILL) ++killedInTheMiddle;

        Device device(own.path(), world.address());
        const auto container = device.core().persistenceContainer();
        const auto verified = container->verify();
        EXPECT_TRUE(verified.ok()) << verified.error().message;
        FetchRequest all;
        all.entity = CD_Document::kEntityName;
        std::set<std::int64_t> kept;
        const auto found = container->fetchIDs(all);
        ASSERT_TRUE(found);
        for (const auto& id : *found)
            kept.insert(id.row);
        for (const auto row : saved)
            EXPECT_TRUE(kept.contains(row)) << "the document in row " << row << " was acknowledged and is gone";
        EXPECT_EQ(device.sync(), SyncOutcome::Finished);
        EXPECT_EQ(device.differencesFromServer(), "");
    }
    EXPECT_GE(killedInTheMiddle, 10);
}

} // namespace
} // namespace ledgerfinch::test
