// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/DispatchQueue.h"
#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace ledgerfinch::test {
namespace {

using support::Fault;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// A device that has synced and holds no file yet.
class DocumentDownloading : public ::testing::Test {
protected:
    DocumentDownloading() {
        EXPECT_EQ(device.sync(), SyncOutcome::Finished);
        device.heard().stages.clear();
        device.heard().information.clear();
        world.requested();
    }

    void download() { run(device.driver().downloads()); }
    void run(DocumentDownloads& downloads) {
        offMain([&] {
            downloads.downloadSelectedDocuments(device.api(), device.heard().observer());
            downloads.wait();
        });
    }
    std::size_t filesOnDisk() {
        return static_cast<std::size_t>(device.core().documentFiles().downloadedFileStatistics().files);
    }
    std::size_t asked(std::string_view path) {
        const auto requests = world.requested();
        return static_cast<std::size_t>(
            std::count_if(requests.begin(), requests.end(),
                          [&](const std::string& request) { return request.find(path) != std::string::npos; }));
    }

    SyncWorld world{4};
    Device& device = world.device();
};

TEST_F(DocumentDownloading, FetchesAllDocumentsWhenAskedToAndOnlyOnce) {
    (void)device.settings().set("download_all", true);
    download();
    EXPECT_THAT(device.heard().texts(), ElementsAre("Downloading Document 1 of 4", "Downloading Document 2 of 4",
                                                    "Downloading Document 3 of 4", "Downloading Document 4 of 4"));
    EXPECT_THAT(device.heard().stages, ElementsAre(loadingData::downloading, loadingData::finished));
    EXPECT_EQ(filesOnDisk(), 4U);
    EXPECT_EQ(asked("/download/"), 4U);

    (void)device.settings().set("downloadOriginalFiles", true);
    download();
    EXPECT_EQ(asked("/download/"), 0U) << "what is there is not refreshed";
}

TEST_F(DocumentDownloading, FollowsASync) {
    (void)device.settings().set("download_all", true);
    EXPECT_EQ(device.sync(), SyncOutcome::Finished);
    EXPECT_EQ(filesOnDisk(), 4U);
    const auto& stages = device.heard().stages;
    EXPECT_THAT((std::vector(stages.end() - 3, stages.end())),
                ElementsAre(loadingData::finished, loadingData::downloading, loadingData::finished));
}

TEST_F(DocumentDownloading, NothingIsChosenAtFirst) {
    download();
    EXPECT_THAT(device.heard().stages, ElementsAre(loadingData::downloading, loadingData::finished));
    EXPECT_EQ(filesOnDisk(), 0U);
}

TEST_F(DocumentDownloading, ASavedViewsDocumentsComeFromWhoeverKnowsIts) {
    (void)device.settings().set("download_saved_view", std::int64_t{2});
    download();
    EXPECT_EQ(filesOnDisk(), 0U);
    EXPECT_TRUE(device.log().contains("nothing is downloaded"));

    std::int64_t askedFor = 0;
    DocumentDownloads downloads(device.services(), device.core(),
                                [&](PersistentContainer& container, std::int64_t view) {
                                    askedFor = view;
                                    FetchRequest request;
                                    request.entity = CD_Document::kEntityName;
                                    request.limit = 2;
                                    return std::optional(container.fetchIDs(request).value());
                                });
    run(downloads);
    EXPECT_EQ(askedFor, 2);
    EXPECT_EQ(filesOnDisk(), 2U);
}

TEST_F(DocumentDownloading, AFileThatFailsIsPassedOver) {
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/documents/2/download/", Fault::answer(500));
    world.server().faults().onPath("/documents/3/download/", Fault::cutBody(100));
    download();
    EXPECT_EQ(filesOnDisk(), 2U) << "half a file is none";
    world.server().faults().clear();
    download();
    EXPECT_EQ(filesOnDisk(), 4U);
}

TEST_F(DocumentDownloading, EndsWithARefusedToken) {
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/documents/", Fault::answer(401));
    download();
    EXPECT_LE(asked("/documents/"), 2U) << "the first document's questions only";
    EXPECT_EQ(device.heard().stages.back(), loadingData::finished);
}

TEST_F(DocumentDownloading, EndsWhenTheServerIsAway) {
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/documents/", Fault::dropConnection());
    download();
    EXPECT_EQ(device.heard().texts().back(), "Downloading Document 3 of 4");
}

TEST_F(DocumentDownloading, CancellingEndsItAfterTheDocumentInHand) {
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/download/", Fault::stall(), 1);
    auto& downloads = device.driver().downloads();
    downloads.downloadSelectedDocuments(device.api(), device.heard().observer());
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    downloads.cancel();
    EXPECT_EQ(device.heard().stages.back(), loadingData::finished);
    const auto told = device.heard().information.size();
    world.server().faults().clear();
    offMain([&] { downloads.wait(); });
    EXPECT_EQ(filesOnDisk(), 1U);
    EXPECT_EQ(device.heard().information.size(), told) << "nothing more is heard of it";
}

TEST_F(DocumentDownloading, ANewRunTakesThePlaceOfTheOneUnderWay) {
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/download/", Fault::stall(), 1);
    auto& downloads = device.driver().downloads();
    downloads.downloadSelectedDocuments(device.api(), device.heard().observer());
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    HeardScreen second;
    downloads.downloadSelectedDocuments(device.api(), second.observer());
    world.server().faults().clear();
    offMain([&] { downloads.wait(); });
    EXPECT_EQ(filesOnDisk(), 4U);
    EXPECT_THAT(second.stages, ElementsAre(loadingData::downloading, loadingData::finished));
    EXPECT_THAT(device.heard().stages, ElementsAre(loadingData::downloading, loadingData::finished));
}

TEST_F(DocumentDownloading, StopsForAnotherStore) {
    (void)device.settings().set("download_all", true);
    world.server().faults().onPath("/download/", Fault::stall(), 1);
    auto& downloads = device.driver().downloads();
    downloads.downloadSelectedDocuments(device.api(), device.heard().observer());
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    ASSERT_TRUE(device.core().moveToStore("other"));
    world.server().faults().clear();
    offMain([&] { downloads.wait(); });
    EXPECT_EQ(asked("/download/"), 1U);
}

} // namespace
} // namespace ledgerfinch::test
