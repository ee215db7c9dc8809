// SPDX-License-Identifier: GPL-3.0-or-later
// Whatever fails during a sync, the next one reaches the state of one that was never disturbed, and nothing was deleted
// meanwhile that the server still has.
#include "faultvfs/FaultVfs.h"
#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <iterator>
#include <sqlite3.h>

namespace ledgerfinch::test {
namespace {

using support::Fault;
using support::Json;

/// A well-formed answer in which one record has a text for an id.
Fault wrongTypeRecord() {
    Fault fault;
    fault.rewrite = [](const std::string& body, const std::string&) {
        auto page = Json::parse(body, nullptr, false);
        if (page.is_object() && page.contains("results") && !page["results"].empty()) page["results"][0]["id"] = "one";
        return page.dump();
    };
    return fault;
}

std::array<Fault, 5> faultsInTurn() {
    return {Fault::answer(500), Fault::dropConnection(), Fault::htmlPage(), Fault::truncatedJson(), wrongTypeRecord()};
}

/// What happened on the server since the last sync.
void changeTheServer(support::PaperlessServer& server) {
    const auto tag = server.add("tags", Json{{"name", "Later"}, {"color", "#00ff00"}});
    server.addDocument(
        Json{{"title", "Late"}, {"content", "late"}, {"tags", Json::array({tag})}, {"correspondent", 1}});
    server.editDocument(1, Json{{"title", "Edited"}, {"tags", Json::array({tag})}});
    server.removeDocument(2);
    server.remove("correspondents", 4);
    server.remove("tags", 3);
}

void expectNothingLost(Device& device, support::PaperlessServer& server, const std::vector<std::int64_t>& before) {
    const auto kept = device.ids("CD_Document");
    for (const auto id : server.documentIds()) {
        const bool wasThere = std::binary_search(before.begin(), before.end(), id);
        EXPECT_TRUE(!wasThere || std::binary_search(kept.begin(), kept.end(), id)) << "document " << id << " is gone";
    }
}

/// Two devices with the same past: nothing yet, or a mirror that the server has since left behind. One syncs without
/// trouble, the other is disturbed.
struct Twins {
    Twins(std::size_t documents, bool mirrored)
        : world(documents), undisturbed(world.newDevice()), disturbed(world.newDevice()) {
        world.removeNotes();
        if (mirrored) {
            EXPECT_EQ(undisturbed->sync(), SyncOutcome::Finished);
            EXPECT_EQ(disturbed->sync(), SyncOutcome::Finished);
            changeTheServer(world.server());
        }
        before = disturbed->ids("CD_Document");
    }

    /// The next sync reaches what the twin has.
    void expectRecovery() {
        expectNothingLost(*disturbed, world.server(), before);
        EXPECT_EQ(disturbed->sync(), SyncOutcome::Finished);
        EXPECT_EQ(disturbed->differencesFromServer(), "");
        EXPECT_EQ(undisturbed->sync(), SyncOutcome::Finished);
        EXPECT_EQ(differences(undisturbed->dump(), disturbed->dump()), "");
        const auto verified = disturbed->core().persistenceContainer()->verify();
        EXPECT_TRUE(verified.ok());
    }

    SyncWorld world;
    std::unique_ptr<Device> undisturbed;
    std::unique_ptr<Device> disturbed;
    std::vector<std::int64_t> before;
};

class DisturbedSync : public ::testing::TestWithParam<bool> {};

TEST_P(DisturbedSync, RecoversFromTheFailureOfAnyRequest) {
    bool untouched = false;
    for (std::size_t request = 1; !untouched && !HasFailure(); ++request) {
        ASSERT_LT(request, 60U);
        for (const Fault& fault : faultsInTurn()) {
            SCOPED_TRACE("request " + std::to_string(request));
            Twins twins(110, GetParam());
            auto& faults = twins.world.server().faults();
            const auto rule = faults.onRequest(request, fault);
            const auto outcome = twins.disturbed->sync();
            untouched = faults.fired(rule) == 0;
            faults.clear();
            twins.expectRecovery();
            if (untouched) {
                EXPECT_EQ(outcome, SyncOutcome::Finished);
                break;
            }
        }
    }
}

TEST_P(DisturbedSync, RecoversFromTheFailureOfAnyFileOperation) {
    bool untouched = false;
    for (std::int64_t operation = 0; !untouched && !HasFailure(); ++operation) {
        ASSERT_LT(operation, 200);
        SCOPED_TRACE("operation " + std::to_string(operation));
        Twins twins(6, GetParam());
        auto& device = *twins.disturbed;
        (void)device.settings().set("download_all", true);
        device.files().failAt(operation);
        device.sync();
        untouched = device.files().count() <= operation;
        device.files().failAt(-1);
        twins.expectRecovery();
        EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files,
                  static_cast<std::int64_t>(twins.world.server().documentIds().size()));
    }
}

TEST_P(DisturbedSync, RecoversFromTheFailureOfAnyOperationOfTheStore) {
    ledgerfinch::testing::FaultVfs::install();
    // Every store from here on lies on the failing disk.
    auto* const usual = sqlite3_vfs_find(nullptr);
    ASSERT_EQ(sqlite3_vfs_register(sqlite3_vfs_find(ledgerfinch::testing::FaultVfs::kName), 1), SQLITE_OK);
    using ledgerfinch::testing::FaultVfs;
    bool untouched = false;
    // Every one of the first operations; later on, where pass after pass of the same kind follows, with growing steps.
    for (int operation = 1; !untouched && !HasFailure(); operation += 1 + operation / 25) {
        const bool full = operation % 2 == 0;
        SCOPED_TRACE("operation " + std::to_string(operation) + (full ? ", disk full from there on" : ", once"));
        Twins twins(4, GetParam());
        FaultVfs::failAt(FaultVfs::Write | FaultVfs::Sync | FaultVfs::Lock | FaultVfs::Truncate, operation,
                         full ? SQLITE_FULL : SQLITE_IOERR, full ? FaultVfs::Lasting::Yes : FaultVfs::Lasting::No);
        twins.disturbed->sync();
        untouched = !FaultVfs::hasStruck();
        FaultVfs::clear();
        twins.expectRecovery();
    }
    sqlite3_vfs_register(usual, 1);
}

INSTANTIATE_TEST_SUITE_P(Devices, DisturbedSync, ::testing::Values(false, true),
                         [](const auto& test) { return test.param ? "Mirrored" : "Empty"; });

} // namespace
} // namespace ledgerfinch::test
