// SPDX-License-Identifier: GPL-3.0-or-later
#include "system/DownloadSettingsView.h"

#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QVariantMap>

namespace ledgerfinch::test {
namespace {

using ::testing::ElementsAre;

class DownloadSettings : public ::testing::Test {
protected:
    DownloadSettings() {
        world.server().clear();
        world.server().add("saved_views", support::Json{{"name", "Taxes"}, {"owner", 3}});
        world.server().add("saved_views", support::Json{{"name", "Bills"}, {"owner", 3}});
        for (int number = 0; number < 3; ++number)
            world.server().addDocument(support::Json{{"title", "Paper"}, {"content", "text"}});
        EXPECT_EQ(device.sync(), SyncOutcome::Finished);
        view = std::make_unique<DownloadSettingsView>(device.services(), device.core(), device.api(),
                                                      device.driver().downloads());
        QObject::connect(view.get(), &DownloadSettingsView::downloadsFinished, view.get(), [this] { ++finished; });
        view->appeared();
    }
    /// "title" of each row, with what stands above it and its check mark.
    std::vector<std::string> rows() {
        std::vector<std::string> lines;
        for (const auto& entry : view->rows()) {
            const auto row = entry.toMap();
            lines.push_back(row["header"].toString().toStdString() + "|" + row["title"].toString().toStdString() +
                            (row["active"].toBool() ? " ✓" : ""));
        }
        return lines;
    }
    bool counted(const QString& text) {
        return waitUntil([&] { return view->documentsDownloaded() == text; });
    }

    SyncWorld world{1};
    Device& device = world.device();
    std::unique_ptr<DownloadSettingsView> view;
    int finished = 0;
};

TEST_F(DownloadSettings, ChoosingAllDocumentsFetchesThemAtOnce) {
    EXPECT_THAT(rows(),
                ElementsAre("|Download all documents", "Download all documents in saved view: |Bills", "|Taxes"));
    ASSERT_TRUE(counted(QStringLiteral("Documents downloaded: 0")));
    EXPECT_EQ(view->totalSize(), QStringLiteral("Total size: Zero KB"));

    view->chooseAllDocuments();
    EXPECT_EQ(rows().front(), "|Download all documents ✓");
    ASSERT_TRUE(waitUntil([&] { return finished == 1; }));
    EXPECT_TRUE(counted(QStringLiteral("Documents downloaded: 3")));
    EXPECT_NE(view->totalSize(), QStringLiteral("Total size: Zero KB"));
    EXPECT_EQ(view->progressText(), QString());
}

TEST_F(DownloadSettings, ChoosingASavedViewReplacesTheOtherChoice) {
    view->chooseAllDocuments();
    ASSERT_TRUE(waitUntil([&] { return finished == 1; }));
    const auto bills = view->rows().at(1).toMap()["savedView"].toLongLong();
    view->chooseSavedView(bills);
    EXPECT_THAT(rows(),
                ElementsAre("|Download all documents", "Download all documents in saved view: |Bills ✓", "|Taxes"));
    EXPECT_FALSE(device.settings().boolean("download_all").value_or(true));
    EXPECT_EQ(device.settings().integer("download_saved_view"), bills);
    view->chooseAllDocuments();
    EXPECT_EQ(device.settings().integer("download_saved_view"), 0);
    EXPECT_TRUE(device.settings().boolean("download_all").value_or(false));
}

TEST_F(DownloadSettings, RemovingAllLeavesPreviewsAndDocuments) {
    view->chooseAllDocuments();
    ASSERT_TRUE(waitUntil([&] { return finished == 1; }) && counted(QStringLiteral("Documents downloaded: 3")));
    EXPECT_EQ(view->removeAllQuestion(), QStringLiteral("Do you really want to delete all downloaded documents?"));
    const auto preview = device.services().paths.container / "previews" / "x" / "thumb.png";
    ASSERT_TRUE(device.services().files->createDirectories(preview.parent_path()));
    ASSERT_TRUE(device.services().files->write(preview, "png"));
    view->removeAllDownloads();
    EXPECT_TRUE(counted(QStringLiteral("Documents downloaded: 0")));
    EXPECT_TRUE(device.services().files->exists(preview));
    EXPECT_EQ(device.ids("CD_Document").size(), 3U);
}

TEST_F(DownloadSettings, TheDocumentInHandDoesNotComeBackAfterTheRemoval) {
    world.server().faults().onPath("/download/", support::Fault::stall());
    view->chooseAllDocuments();
    ASSERT_TRUE(waitUntil([&] { return world.server().faults().stalled() == 1; }));
    int counts = 0;
    QObject::connect(view.get(), &DownloadSettingsView::statisticsChanged, view.get(), [&] { ++counts; });
    view->removeAllDownloads();
    EXPECT_TRUE(waitUntil([&] { return counts > 0; })) << "and nobody waits for the server";
    world.server().faults().clear();
    offMain([&] {
        device.driver().downloads().wait();
        return 0;
    });
    EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files, 0);
}

TEST_F(DownloadSettings, AChoiceAfterASwitchIsActedOnWithTheNewServer) {
    support::PaperlessServer other;
    other.generate(2);
    other.start();
    auto api = device.api();
    DownloadSettingsView following(
        device.services(), device.core(), [&api] { return api; }, device.driver().downloads());
    int ended = 0;
    QObject::connect(&following, &DownloadSettingsView::downloadsFinished, &following, [&] { ++ended; });

    const auto entry = registerInstance(device.settings(), other.url());
    ASSERT_TRUE(entry);
    (void)device.settings().set("server", other.url());
    ASSERT_TRUE(device.core().moveToStore(entry->store));
    api = offMain([&] { return ApiHandler::withToken(device.services(), device.core(), other.url(), other.token()); });
    offMain([&] { return device.driver().runSync(api, {}).outcome; });
    following.chooseAllDocuments();
    ASSERT_TRUE(waitUntil([&] { return ended == 1; }));
    EXPECT_EQ(device.core().documentFiles().downloadedFileStatistics().files, 2);
}

TEST_F(DownloadSettings, InOfflineModeAChoiceIsKeptAndNobodyAsked) {
    (void)device.settings().set("offlineMode", true);
    world.requested();
    view->chooseAllDocuments();
    view->setDownloadOriginalFiles(true);
    EXPECT_TRUE(device.settings().boolean("download_all").value_or(false));
    EXPECT_TRUE(device.settings().boolean("downloadOriginalFiles").value_or(false));
    EXPECT_TRUE(counted(QStringLiteral("Documents downloaded: 0")));
    EXPECT_TRUE(world.requested().empty());
}

} // namespace
} // namespace ledgerfinch::test
