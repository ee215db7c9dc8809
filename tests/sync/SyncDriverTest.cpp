// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/Instances.h"
#include "store/RepairList.h"
#include "sync/OffMain.h"
#include "sync/SyncLock.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace ledgerfinch::test {
namespace {

using support::Fault;
using support::Json;
using ::testing::Contains;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::IsSupersetOf;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;

constexpr auto kFullSync = "GET /api/documents/?full_perms=true&order=descending&ordering=-id&page_size=100";
constexpr auto kAllIds = "GET /api/documents/?truncate_content=True&page_size=1";

const std::vector<loadingData> kAllStages{
    loadingData::users,          loadingData::users,         loadingData::tags,          loadingData::document_types,
    loadingData::correspondents, loadingData::storage_paths, loadingData::custom_fields, loadingData::custom_views,
    loadingData::documents,      loadingData::finished,      loadingData::downloading,   loadingData::finished};

std::string today() {
    return dates::formatDateOnly(Clock().now());
}

const Instance* entryOf(const ConnectedInstances& instances, const std::string& server) {
    const auto* entry = instances.find(server);
    return entry ? &entry->second : nullptr;
}

TEST(SyncDriver, FirstSyncMakesTheMirrorEqualToTheServer) {
    SyncWorld world(250);
    auto& device = world.device();
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");

    EXPECT_EQ(device.heard().stages, kAllStages);
    EXPECT_THAT(device.heard().texts(),
                ElementsAre("Received 250 documents", "Received 250 documents", "Received 250 documents"));
    EXPECT_EQ(device.heard().reloads, 4) << "after every page and at the end";
    EXPECT_EQ(device.setting("lastSuccessfulSync"), today());
    const auto instances = ConnectedInstances::load(device.settings());
    ASSERT_TRUE(entryOf(instances, world.address().url));
    EXPECT_EQ(entryOf(instances, world.address().url)->lastSuccessfulSync, today());
    EXPECT_EQ(entryOf(instances, world.address().url)->serverVersion, "2.20.15");
    EXPECT_EQ(device.idle().disabled(), 1);
    EXPECT_EQ(device.idle().enabled(), 1);
}

TEST(SyncDriver, AsksInTheOrderInWhichRecordsReferToEachOther) {
    SyncWorld world(3);
    world.device().sync();
    auto asked = world.requested();
    for (auto& request : asked)
        request = request.substr(0, request.find('?'));
    EXPECT_THAT(asked, ElementsAre("GET /api/groups/", "GET /api/users/", "GET /api/tags/", "GET /api/document_types/",
                                   "GET /api/correspondents/", "GET /api/storage_paths/", "GET /api/custom_fields/",
                                   "GET /api/saved_views/", "GET /api/documents/"));
}

TEST(SyncDriver, LaterSyncsBringOnlyWhatChangedAndTheMirrorStaysEqual) {
    SyncWorld world(120);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    auto& server = world.server();
    world.requested();

    const auto tag = server.add("tags", Json{{"name", "Fresh"}, {"color", "#123456"}, {"is_inbox_tag", true}});
    const auto added = server.addDocument(Json{{"title", "Neue Rechnung"}, {"content", "Text"}, {"tags", {tag}}});
    server.editDocument(1, Json{{"title", "Edited"}, {"tags", Json::array({tag, 1})}, {"owner", 4}});
    server.editDocument(2, Json{{"archive_serial_number", 4711}, {"correspondent", 2}, {"document_type", 3}});
    server.removeDocument(3);
    server.edit("correspondents", 1, Json{{"name", "Renamed"}});
    server.remove("tags", 2);
    server.remove("correspondents", 3);
    server.remove("document_types", 4);
    server.remove("storage_paths", 1);
    server.remove("custom_fields", 5);
    server.remove("saved_views", 1);

    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");
    EXPECT_THAT(device.ids("CD_Document"), Contains(added));
    const auto asked = world.requested();
    EXPECT_THAT(asked, Contains("GET /api/documents/?modified__gt=" + today() +
                                "&full_perms=true&order=descending&ordering=-id&page_size=100"));
    EXPECT_THAT(asked, Contains(kAllIds));
    EXPECT_THAT(asked, Not(Contains(kFullSync)));
}

TEST(SyncDriver, SyncingAnUnchangedServerWritesNothing) {
    SyncWorld world(120);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    const auto written = device.rowsWritten();
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.rowsWritten(), written) << "partial";
    device.pretendSynced("");
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.rowsWritten(), written) << "full";
}

TEST(SyncDriver, TheDateIsThatOfTheBeginning) {
    SyncWorld world(3);
    auto& device = world.device();
    device.clock().set(*dates::parseDateTime("2024-03-31T22:30:00Z"));
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "2024-04-01") << "the device's time zone counts";
}

// Documents that don't come whole.

struct DocumentFault {
    std::string name;
    std::string path;
    Fault fault;
};

class SyncWithFailingDocuments : public ::testing::TestWithParam<DocumentFault> {};

TEST_P(SyncWithFailingDocuments, KeepsTheDateAndDeletesNothing) {
    SyncWorld world(250);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    world.server().removeDocument(10);
    world.server().editDocument(20, Json{{"title", "Edited"}});
    for (const std::string date : {"", "2020-01-01"}) {
        device.pretendSynced(date);
        const auto rule = world.server().faults().onPath(GetParam().path, GetParam().fault);
        EXPECT_EQ(device.sync(), SyncOutcome::Incomplete) << date;
        EXPECT_GE(world.server().faults().fired(rule), 1U);
        world.server().faults().clear();
        EXPECT_EQ(device.setting("lastSuccessfulSync"), date);
        EXPECT_EQ(device.ids("CD_Document").size(), 250U) << date;
    }
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");
}

INSTANTIATE_TEST_SUITE_P(Faults, SyncWithFailingDocuments,
                         ::testing::Values(DocumentFault{"Status", "page=2", Fault::answer(500)},
                                           DocumentFault{"Cut", "page=2", Fault::cutBody(1000)},
                                           DocumentFault{"Html", "page=2", Fault::htmlPage()},
                                           DocumentFault{"Truncated", "page=2", Fault::truncatedJson()},
                                           DocumentFault{"Gone", "page=3", Fault::dropConnection()},
                                           DocumentFault{"Loop", "page=2", Fault::nextIsSelf()},
                                           DocumentFault{"Elsewhere", "page=2",
                                                         Fault::nextIs("http://127.0.0.2:1/api/documents/?page=3")}),
                         [](const auto& test) { return test.param.name; });

TEST(SyncDriver, AnAnswerWithoutTheListOfIdsDeletesNothingThatTheServerHas) {
    SyncWorld world(120);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    Fault withoutAll;
    withoutAll.rewrite = [](const std::string& body, const std::string&) {
        auto page = Json::parse(body, nullptr, false);
        if (page.is_object()) page.erase("all");
        return page.dump();
    };
    world.server().faults().onPath("/api/documents/", withoutAll);
    for (const std::string date : {"2020-01-01", ""}) {
        device.pretendSynced(date);
        device.sync();
        EXPECT_EQ(device.differencesFromServer(), "") << date;
    }
}

TEST(SyncDriver, WithoutAnAnswerItEndsAfterTheFirstRequest) {
    SyncWorld world(3);
    auto& device = world.device();
    device.pretendSynced("2024-01-02");
    world.server().faults().onPath("/api/", Fault::dropConnection());
    EXPECT_EQ(device.sync(), SyncOutcome::NoAnswer);
    EXPECT_THAT(device.heard().stages, ElementsAre(loadingData::users, loadingData::finished));
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "2024-01-02");
    EXPECT_THAT(device.heard().errors, IsEmpty());
    EXPECT_TRUE(device.log().contains("Connection to server timed out. Skipping other tasks..."));
    EXPECT_EQ(device.idle().disabled(), device.idle().enabled());
    EXPECT_EQ(device.heard().reloads, 1);
}

TEST(SyncDriver, ARefusedTokenRunsThroughAllStagesAndThenLogsOut) {
    SyncWorld world(3);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    const auto before = device.dump();
    device.heard().stages.clear();
    world.server().faults().onPath("/api/", Fault::answer(401, R"({"detail":"Invalid token."})"));
    EXPECT_EQ(device.sync(), SyncOutcome::TokenRefused);
    EXPECT_THAT(device.heard().errors, ElementsAre("The server didn't accept the stored token. Please log in again."));
    EXPECT_EQ(device.heard().loggedOut, 1);
    EXPECT_EQ(device.heard().stages, kAllStages);
    EXPECT_EQ(differences(before, device.dump()), "");
    const auto token = offMain([&] { return KeychainHandler(device.services()).readToken(world.address().url); });
    EXPECT_EQ(token.state, SecretState::Missing) << "nothing may restore the refused token";
}

// Which server gets which questions.

struct Gate {
    std::string version;
    bool storagePaths;
    bool customFields;
    bool partial;
};

class SyncOfVersion : public ::testing::TestWithParam<Gate> {};

TEST_P(SyncOfVersion, AsksForWhatTheServerHas) {
    SyncWorld world(3);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished) << "an empty store asks for everything, whatever the date";
    world.requested();
    (void)device.settings().set("server_version", GetParam().version);
    device.pretendSynced("2024-01-02");
    device.sync();
    const auto asked = world.requested();
    const auto has = [&](std::string_view start) {
        return std::any_of(asked.begin(), asked.end(),
                           [&](const std::string& request) { return request.starts_with(start); });
    };
    EXPECT_EQ(has("GET /api/storage_paths/"), GetParam().storagePaths);
    EXPECT_EQ(has("GET /api/custom_fields/"), GetParam().customFields);
    EXPECT_EQ(has("GET /api/documents/?modified__gt=2024-01-02&"), GetParam().partial);
    EXPECT_EQ(has(kFullSync), !GetParam().partial);
}

INSTANTIATE_TEST_SUITE_P(Gates, SyncOfVersion,
                         ::testing::Values(Gate{"1.7.2", false, false, false}, Gate{"1.8.0", true, false, false},
                                           Gate{"1.9.0", true, false, false}, Gate{"1.14.4", true, false, false},
                                           Gate{"1.14.5", true, false, true}, Gate{"2.0.0", true, true, true},
                                           Gate{"1.0.0", true, true, false}, Gate{"", true, true, false}));

TEST(SyncDriver, ADateThatIsNoneAsksForEverything) {
    SyncWorld world(3);
    auto& device = world.device();
    (void)device.settings().set("server_version", "2.20.15");
    device.pretendSynced("2024-13-40&x=1");
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_THAT(world.requested(), Contains(kFullSync));
}

TEST(SyncDriver, OfflineModeAsksNobody) {
    SyncWorld world(3);
    auto& device = world.device();
    (void)device.settings().set("offlineMode", true);
    EXPECT_EQ(device.sync(), SyncOutcome::Offline);
    EXPECT_THAT(world.requested(), IsEmpty());
    EXPECT_THAT(device.heard().stages, IsEmpty());
    EXPECT_EQ(device.heard().reloads, 1);
    EXPECT_EQ(device.idle().disabled(), 1);
    EXPECT_EQ(device.idle().enabled(), 1);
}

// One pass, one server, one store.

TEST(SyncDriver, StopsWhenAnotherStoreBecomesTheActiveOne) {
    SyncWorld world(250);
    auto& device = world.device();
    device.pretendSynced("");
    world.server().faults().onPath("documents/.*page=2", Fault::stall(), 1);
    auto outcome = std::async(std::launch::async,
                              [&] { return device.driver().runSync(device.api(), device.heard().observer()); });
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    const auto first = device.core().persistenceContainer();
    (void)device.settings().set("server", "https://other.example");
    ASSERT_TRUE(device.core().moveToStore("other"));
    (void)device.settings().set("lastSuccessfulSync", "2024-05-06");
    world.server().faults().clear();
    ASSERT_TRUE(waitUntil([&] { return outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_EQ(outcome.get(), SyncOutcome::Stopped);
    EXPECT_THAT(dumpStore(*device.core().persistenceContainer()), IsEmpty())
        << "nothing of one server in another's store";
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "2024-05-06");
    EXPECT_EQ(device.heard().stages.back(), loadingData::finished);
    EXPECT_EQ(device.idle().disabled(), device.idle().enabled());
    // The old handler has no business with the new store.
    EXPECT_EQ(device.sync(), SyncOutcome::Stopped);
    EXPECT_THAT(device.ids("CD_Document"), IsEmpty());
}

TEST(SyncDriver, ADateThatIsNotTheServersOwnIsNotTrusted) {
    SyncWorld world(3);
    auto& device = world.device();
    // A switch that was killed between its steps: this server was never synced, the date is the former server's.
    (void)device.settings().set("lastSuccessfulSync", "2099-01-01");
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_THAT(device.ids("CD_Document"), SizeIs(3));
}

TEST(SyncDriver, WhatTheStoreLacksIsFetchedThoughItDidNotChange) {
    for (const std::int64_t lost : {2, 119}) { // one by one, and in pages
        SyncWorld world(120);
        auto& device = world.device();
        ASSERT_EQ(device.sync(), SyncOutcome::Finished);
        const auto before = device.ids("CD_Document");
        for (std::int64_t id = 1; id <= lost; ++id)
            device.core().deleteDocument(device.core().getDocument(id));
        world.requested();
        EXPECT_EQ(device.sync(), SyncOutcome::Finished);
        EXPECT_EQ(device.ids("CD_Document"), before);
        EXPECT_THAT(world.requested(), Contains(kAllIds));
    }
}

TEST(SyncDriver, AListShorterThanItSaysRemovesNothing) {
    SyncWorld world(3);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    const auto tags = device.ids("CD_Tag");
    world.server().faults().onPath("/api/tags/", Fault::answer(200, R"({"count":20,"next":null,"results":[]})"), 1);
    EXPECT_EQ(device.sync(), SyncOutcome::Incomplete);
    EXPECT_EQ(device.ids("CD_Tag"), tags);
}

TEST(SyncDriver, NeverSyncsIntoTheStoreOfAnotherServer) {
    SyncWorld world(3);
    auto& device = world.device();
    world.requested();
    ASSERT_TRUE(device.core().moveToStore("other"));
    EXPECT_EQ(device.sync(), SyncOutcome::Stopped) << "the entry names another store";
    ASSERT_TRUE(device.core().moveToStore(CoreDataHandler::kContainerName));
    EXPECT_EQ(device.sync(), SyncOutcome::Stopped) << "the store of offline mode";
    EXPECT_THAT(world.requested(), IsEmpty());
}

TEST(SyncDriver, OneSyncOfAStoreAtATime) {
    SyncWorld world(3);
    auto& device = world.device();
    world.requested();
    {
        const auto held = SyncLock::tryLock(device.services().paths, device.core().persistenceContainer()->file());
        ASSERT_TRUE(held);
        EXPECT_EQ(device.sync(), SyncOutcome::AlreadyRunning);
        EXPECT_THAT(world.requested(), IsEmpty());
        EXPECT_EQ(device.heard().reloads, 1);
    }
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
}

TEST(SyncDriver, StopEndsAPassForGood) {
    SyncWorld world(250);
    auto& device = world.device();
    world.server().faults().onPath("documents/.*page=2", Fault::stall(), 1);
    auto outcome = std::async(std::launch::async, [&] { return device.driver().runSync(device.api(), {}); });
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    device.driver().stop();
    world.server().faults().clear();
    ASSERT_TRUE(waitUntil([&] { return outcome.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    EXPECT_EQ(outcome.get(), SyncOutcome::Stopped);
    EXPECT_EQ(device.setting("lastSuccessfulSync"), "");
    EXPECT_EQ(device.sync(), SyncOutcome::Stopped);
}

// What a pass puts right.

TEST(SyncDriver, RelationsThatCameTooEarlyAreLinkedByTheNextSync) {
    SyncWorld world(120);
    auto& device = world.device();
    for (const auto* path : {"/api/tags/", "/api/correspondents/", "/api/document_types/", "/api/storage_paths/"})
        world.server().faults().onPath(path, Fault::answer(500), 1);
    EXPECT_EQ(device.sync(), SyncOutcome::Incomplete) << "a list is missing";
    EXPECT_EQ(device.setting("lastSuccessfulSync"), today()) << "the documents themselves came whole";
    EXPECT_THAT(device.ids("CD_Tag"), IsEmpty());
    // Nothing of the documents changes on the server meanwhile, so nothing of them is delivered again.
    device.pretendSynced("2099-01-01");
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(device.differencesFromServer(), "");
    EXPECT_THAT(RepairList(device.core()).entries({}, device.core().backgroundContext()), IsEmpty());
}

TEST(SyncDriver, WhatDocumentsLackOfAListThatFailedComesOnceTheListIsThere) {
    for (const std::string path : {"/api/groups/", "/api/users/", "/api/custom_fields/"})
        for (const Fault& fault : {Fault::answer(500), Fault::answer(403), Fault::truncatedJson()}) {
            SCOPED_TRACE(path);
            SyncWorld world(12);
            world.removeNotes();
            auto& device = world.device();
            world.server().faults().onPath(path, fault);
            const auto outcome = device.sync();
            EXPECT_TRUE(outcome == SyncOutcome::Incomplete || outcome == SyncOutcome::Finished);
            EXPECT_EQ(outcome == SyncOutcome::Finished, fault.canned && fault.canned->status == 403)
                << "some accounts may not list users; every other failure is said";
            EXPECT_EQ(device.setting("lastSuccessfulSync"), today()) << "the documents themselves came whole";
            device.pretendSynced("2099-01-01");
            world.requested();
            device.sync();
            EXPECT_THAT(world.requested(), Not(Contains(kFullSync))) << "no use before the list is there";
            world.server().faults().clear();
            device.pretendSynced("2099-01-01");
            EXPECT_EQ(device.sync(), SyncOutcome::Finished);
            EXPECT_EQ(device.differencesFromServer(), "");
            world.requested();
            device.sync();
            EXPECT_THAT(world.requested(), Not(Contains(kFullSync))) << "once is enough";
        }
}

TEST(SyncDriver, RecordsInDoubtAreFetchedAgainAsSoonAsTheServerAnswers) {
    SyncWorld world(10);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    const auto context = device.core().backgroundContext();
    context->performAndWait([&] {
        const auto document = device.core().getDocument(5, context);
        ASSERT_TRUE(document);
        document->setTitle("Refused by the server");
        document->setArchive_serial_number(99);
        ASSERT_TRUE(context->save());
    });
    ASSERT_TRUE(RepairList(device.core()).add("CD_Document", 5, RepairList::kRefused, context));
    device.pretendSynced("2099-01-01");

    world.server().faults().onPath("/api/", Fault::answer(503));
    device.sync();
    EXPECT_THAT(RepairList(device.core()).entries({}, context), Not(IsEmpty())) << "not answered yet";
    world.server().faults().clear();
    device.sync();
    EXPECT_EQ(device.differencesFromServer(), "");
    EXPECT_THAT(RepairList(device.core()).entries({}, context), IsEmpty());
}

TEST(SyncDriver, AListOfAttributesThatDoesNotComeWholeStaysAsItWas) {
    SyncWorld world(10);
    auto& device = world.device();
    ASSERT_EQ(device.sync(), SyncOutcome::Finished);
    const auto before = device.dump();
    std::size_t cases = 0;
    for (const auto* path : {"groups", "users", "tags", "document_types", "correspondents", "storage_paths",
                             "custom_fields", "saved_views"})
        for (const Fault& fault : {Fault::answer(500), Fault::htmlPage(), Fault::truncatedJson(), Fault::cutBody(20),
                                   Fault::answer(200, R"({"count":0,"next":null})")}) {
            const auto rule = world.server().faults().onPath("/api/" + std::string(path) + "/", fault, 1);
            device.sync();
            EXPECT_EQ(world.server().faults().fired(rule), 1U) << path;
            EXPECT_EQ(differences(before, device.dump()), "") << path << ++cases;
        }
}

} // namespace
} // namespace ledgerfinch::test
