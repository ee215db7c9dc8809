// SPDX-License-Identifier: GPL-3.0-or-later
// What a pass does when the store beneath it is full, was lost, or is written by others meanwhile.
#include "connection/endpoints/Removals.h"
#include "faultvfs/FaultVfs.h"
#include "store/RepairList.h"
#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <sqlite3.h>

namespace ledgerfinch::test {
namespace {

using ledgerfinch::testing::FaultVfs;
using support::Fault;
using support::Json;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

/// Stores opened while it lives lie on a disk that can be made to fail.
class FailingDisk {
public:
    FailingDisk() {
        FaultVfs::install();
        sqlite3_vfs_register(sqlite3_vfs_find(FaultVfs::kName), 1);
    }
    ~FailingDisk() {
        FaultVfs::clear();
        sqlite3_vfs_register(m_usual, 1);
    }
    FailingDisk(const FailingDisk&) = delete;
    FailingDisk& operator=(const FailingDisk&) = delete;
    static void isFull() { FaultVfs::failAt(FaultVfs::Write, 1, SQLITE_FULL, FaultVfs::Lasting::Yes); }

private:
    sqlite3_vfs* m_usual = sqlite3_vfs_find(nullptr);
};

TEST(SyncedStore, AFullDiskEndsThePassAndIsNamed) {
    const FailingDisk disk;
    SyncWorld world(1200);
    auto& device = world.device();
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("page=2", Fault::stall(), 1);
    auto running = std::async(std::launch::async,
                              [&] { return device.driver().runSync(device.api(), device.heard().observer()); });
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    disk.isFull();
    world.server().faults().clear();
    const auto result = offMain([&] { return running.get(); });
    EXPECT_EQ(result.outcome, SyncOutcome::Incomplete);
    ASSERT_TRUE(result.storeFailure);
    EXPECT_THAT(*result.storeFailure, HasSubstr("database or disk is full"));
    EXPECT_THAT(device.heard().texts(), Contains(HasSubstr("database or disk is full")));
    EXPECT_TRUE(device.log().contains("database or disk is full")) << "not private in the log";
    EXPECT_LE(device.linesWith("Failed to save document"), 2U);
    EXPECT_LE(world.server().requestCount("GET /api/documents/?"), 4U) << "12 pages wait";
    EXPECT_EQ(world.server().requestCount("GET /api/documents/1/"), 0U) << "nor are files fetched";
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "");

    FaultVfs::clear();
    (void)device.settings().set("download_all", false);
    EXPECT_FALSE(offMain([&] { return device.driver().runSync(device.api(), {}).storeFailure; }));
    EXPECT_EQ(device.differencesFromServer(), "");
    EXPECT_NE(device.setting("lastSuccessfulSync"), "");
}

TEST(SyncedStore, AFullDiskBeforeTheDocumentsAsksForNone) {
    const FailingDisk disk;
    SyncWorld world(120);
    auto& device = world.device();
    disk.isFull();
    const auto result = device.sync();
    EXPECT_EQ(result.outcome, SyncOutcome::Incomplete);
    EXPECT_TRUE(result.storeFailure);
    EXPECT_EQ(world.server().requestCount("GET /api/documents/"), 0U);
}

TEST(SyncedStore, FilesThatCanNotBeWrittenEndTheDownloads) {
    SyncWorld world(12);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    (void)device.settings().set("download_all", true);
    device.files().failFrom(0);
    offMain([&] {
        device.driver().downloads().downloadSelectedDocuments(device.api(), {});
        device.driver().downloads().wait();
        return 0;
    });
    EXPECT_LE(world.server().requestCount("GET /api/documents/") - world.server().requestCount("GET /api/documents/?"),
              6U);
    ASSERT_TRUE(device.driver().downloads().writeFailure());
    device.files().failFrom(-1);
    device.sync();
    EXPECT_FALSE(device.driver().downloads().writeFailure());
    EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files, 12);
}

/// A server that names no ids: what a store lacks doesn't show there.
Fault withoutIds() {
    Fault fault;
    fault.rewrite = [](const std::string& body, const std::string&) {
        auto page = Json::parse(body, nullptr, false);
        if (page.is_object()) page.erase("all");
        return page.dump();
    };
    return fault;
}

TEST(SyncedStore, ALostStoreIsFilledAgainByAFullPassThoughADateIsRemembered) {
    SyncWorld world(120);
    const TemporaryFolder folder;
    std::filesystem::path file;
    {
        Device device(folder.path(), world.address());
        ASSERT_EQ(device.sync(), SyncOutcome::Finished);
        file = device.core().persistenceContainer()->file();
    }
    for (const bool empty : {true, false}) {
        SCOPED_TRACE(empty ? "empty file" : "no file");
        for (const auto* suffix : {"", "-wal", "-shm"})
            std::filesystem::remove(file.string() + suffix);
        if (empty) std::ofstream(file).flush();
        Device device(folder.path(), world.address());
        ASSERT_NE(device.setting("lastSuccessfulSync"), "");
        EXPECT_EQ(device.log().contains("is an empty file"), empty);
        // Cut off in the middle, it must not count as synced either.
        world.server().faults().onPath("page=2", Fault::answer(500), 1);
        world.server().faults().onPath("/api/documents/", withoutIds());
        EXPECT_EQ(device.sync(), SyncOutcome::Incomplete);
        EXPECT_EQ(device.ids("CD_Document").size(), 100U);
        EXPECT_EQ(device.sync(), SyncOutcome::Finished);
        EXPECT_EQ(device.differencesFromServer(), "");
        world.server().faults().clear();
    }
}

TEST(SyncedStore, ADocumentStoredWhileTheListOfIdsIsOnItsWayStays) {
    SyncWorld world(5);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    for (const bool full : {false, true}) {
        world.server().removeDocument(full ? 2 : 1);
        std::optional<Json> added;
        Fault fault;
        // The list is made; before it arrives another thread stores what was uploaded since.
        fault.rewrite = [&](const std::string& body, const std::string&) {
            Document document;
            document.id = full ? 901 : 900;
            document.title = "Uploaded";
            document.raw = "{}";
            device.core().saveDocument(document, device.core().persistenceContainer()->newBackgroundContext());
            return body;
        };
        world.server().faults().onPath(full ? "full_perms=true&order" : "truncate_content", fault, 1);
        const auto outcome = offMain([&] {
            return device.driver()
                .runSync(device.api(), {}, {full ? SyncExtent::Everything : SyncExtent::WhatChanged})
                .outcome;
        });
        EXPECT_EQ(outcome, SyncOutcome::Finished);
        EXPECT_THAT(device.ids("CD_Document"), Contains(full ? 901 : 900));
        EXPECT_THAT(device.ids("CD_Document"), Not(Contains(full ? 2 : 1)));
    }
    device.sync();
    EXPECT_THAT(device.ids("CD_Document"), Not(Contains(900))) << "known before this list, and not on it";
}

TEST(SyncedStore, ARefusedDeletionIsNotedInTheStoreOfItsServer) {
    SyncWorld world(5);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    const auto entries = [&] {
        return RepairList(device.core()).entries(RepairList::kRefused, device.core().backgroundContext());
    };
    const auto name = device.core().storeName();
    const auto tag = device.ids("CD_Tag").front();
    // The screen that asks for it still has the old server's handler.
    ASSERT_TRUE(device.core().moveToStore("other"));
    world.server().faults().onPath("DELETE", Fault::answer(500));
    EXPECT_EQ(offMain([&] { return deleteTag(*device.api(), tag); }), 500);
    EXPECT_THAT(entries(), ::testing::IsEmpty());
    ASSERT_TRUE(device.core().moveToStore(name));
    EXPECT_THAT(entries(), Contains(RepairItem{"CD_Tag", tag, "refused"}));
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_THAT(entries(), ::testing::IsEmpty());
    EXPECT_EQ(device.differencesFromServer(), "");
}

TEST(SyncedStore, ARecordThatCanNotBeReadIsNamedInASentence) {
    SyncWorld world(250);
    auto& device = world.device();
    Fault wrong;
    wrong.rewrite = [](const std::string& body, const std::string&) {
        auto page = Json::parse(body, nullptr, false);
        page["results"][4]["title"] = 7;
        return page.dump();
    };
    world.server().faults().onPath("page=2", wrong);
    EXPECT_EQ(device.sync(), SyncOutcome::Incomplete);
    const auto told = device.heard().texts().back();
    EXPECT_THAT(told, HasSubstr("page 2"));
    EXPECT_THAT(told, Not(HasSubstr("byte"))) << "no parser's talk";
    EXPECT_TRUE(device.log().contains("results[4].title")) << "the log keeps the detail";
}

TEST(SyncedStore, OwnersAndFieldsThatCameTooEarlyAreLinkedByTheNextPass) {
    SyncWorld world(6);
    world.removeNotes();
    auto& device = world.device();
    // A user and a field that are made between their list and the documents.
    for (const std::string path : {"/api/users/", "/api/custom_fields/"}) {
        Fault without;
        without.rewrite = [](const std::string& body, const std::string&) {
            auto page = Json::parse(body, nullptr, false);
            auto& results = page["results"];
            results.erase(results.begin());
            page["count"] = results.size();
            if (page.contains("all")) page["all"].erase(page["all"].begin());
            return page.dump();
        };
        world.server().faults().onPath(path, without);
    }
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    ASSERT_NE(device.differencesFromServer(), "");
    world.server().faults().clear();
    device.pretendSynced("2099-01-01");
    world.requested();
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_THAT(world.requested(), Not(Contains(HasSubstr("documents/?full_perms")))) << "no document came again";
    EXPECT_THAT(RepairList(device.core()).entries({}, device.core().backgroundContext()), ::testing::IsEmpty());
    // Rights aren't linked one by one; owners and fields are.
    const auto context = device.core().persistenceContainer()->newBackgroundContext();
    context->performAndWait([&] {
        for (const auto& record : world.server().documents()) {
            const auto document = device.core().getDocument(record["id"].get<std::int64_t>(), context);
            ASSERT_TRUE(document);
            EXPECT_EQ(document->owner() != nullptr, !record["owner"].is_null());
            EXPECT_EQ(document->custom_field_values().size(), record["custom_fields"].size());
        }
    });
}

} // namespace
} // namespace ledgerfinch::test
