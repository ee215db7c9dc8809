// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/endpoints/Files.h"
#include "connection/endpoints/Notes.h"
#include "connection/endpoints/ShareLinks.h"
#include "connection/endpoints/Tasks.h"

namespace ledgerfinch::test {
namespace {

class SingleThings : public ConnectionTest {
protected:
    void SetUp() override {
        server.generate(3);
        handler = handlerFor();
    }
    void originalIs(const std::string& body) { server.faults().onPath("/metadata/", Fault::answer(200, body), 1); }
    std::shared_ptr<ApiHandler> handler;
};

TEST_F(SingleThings, TheOriginalIsAskedForOnlyWhereItCanBeShown) {
    struct Case {
        bool wanted;
        std::string metadata;
        std::string target;
    };
    for (const auto& each :
         std::vector<Case>{{true, R"({"original_mime_type":"image/png"})", "/api/documents/2/download/?original=true"},
                           {true, R"({"original_mime_type":"image/heic"})", "/api/documents/2/download/"},
                           {true, "{}", "/api/documents/2/download/"},
                           {true, "<html>", "/api/documents/2/download/"},
                           {false, R"({"original_mime_type":"image/png"})", "/api/documents/2/download/"}}) {
        server.clearRequests();
        (void)services.defaults->set("downloadOriginalFiles", each.wanted);
        originalIs(each.metadata);
        std::int64_t seen = 0;
        const auto file = downloadDocumentData(*handler, 2, [&](std::int64_t bytes, std::int64_t) { seen = bytes; });
        ASSERT_TRUE(file.ok()) << each.metadata;
        EXPECT_EQ(onlyRequest("GET /api/documents/2/download/").request.target, each.target);
        EXPECT_GT(seen, 0);
        EXPECT_EQ(file.value().mimeType.find(';'), std::string::npos);
    }
    EXPECT_TRUE(log->contains("Found unsupported mime type, downloading archived PDF..."));
    EXPECT_TRUE(log->contains("Encountered an error while decoding document metadata."));
}

TEST_F(SingleThings, ARefusedDownloadLeavesNoFileAndIsNotTriedOtherwise) {
    (void)services.defaults->set("downloadOriginalFiles", true);
    const auto refusal = server.faults().onPath("/download/", Fault::answer(404));
    const auto uuid = Uuid::random();
    EXPECT_EQ(getDocumentFile(*handler, uuid, 2).error().code, 404);
    EXPECT_EQ(server.faults().fired(refusal), 1U);
    EXPECT_TRUE(log->contains("Received invalid data while downloading document."));
    server.faults().clear();
    server.faults().onPath("/download/", Fault::cutBody(10), 1);
    EXPECT_FALSE(getDocumentFile(*handler, uuid, 2).ok());
    EXPECT_FALSE(core->documentFiles().existingDocumentFile(uuid));

    const auto file = getDocumentFile(*handler, uuid, 2);
    ASSERT_TRUE(file.ok());
    server.clearRequests();
    EXPECT_EQ(getDocumentFile(*handler, uuid, 2).value(), file.value());
    EXPECT_EQ(server.requestCount(), 0U);
}

TEST_F(SingleThings, AThumbnailMustBeAnImage) {
    const auto uuid = Uuid::random();
    EXPECT_TRUE(getDocumentPreview(*handler, uuid, 1).ok());
    EXPECT_TRUE(core->documentFiles().existingPreview(uuid));
    EXPECT_EQ(onlyRequest("GET /api/documents/1/thumb/").request.target, "/api/documents/1/thumb/");
    server.faults().onPath("/thumb/", Fault::htmlPage());
    EXPECT_FALSE(getDocumentPreview(*handler, Uuid::random(), 1).ok());
    EXPECT_TRUE(log->contains("Received invalid data for preview image..."));
}

TEST_F(SingleThings, TasksAndSuggestionsAreReadOrAbsent) {
    EXPECT_EQ(fetchTasks(*handler).status, 200);
    EXPECT_EQ(onlyRequest("GET /api/tasks/").request.header("accept"), "application/json; version=2");
    server.faults().onPath("GET /api/tasks/", Fault::answer(500));
    EXPECT_TRUE(fetchTasks(*handler).tasks.empty());
    EXPECT_TRUE(log->contains("received unexpected response from server while fetching saved views: 500"));
    EXPECT_TRUE(fetchSuggestions(*handler, 1));
    server.faults().onPath("suggestions", Fault::answer(200, R"({"tags":[1]})"));
    EXPECT_FALSE(fetchSuggestions(*handler, 1));
    EXPECT_TRUE(log->contains("enountered an error while decoding suggestions: "));
}

TEST_F(SingleThings, ShareLinksOfOneDocumentThatStillOpen) {
    clock->time = *dates::parseWholeSecond("2026-11-22T12:00:00Z");
    const auto week = clock->time + std::chrono::hours(24 * 7);
    const auto lasting = createShareLink(*handler, 1, std::nullopt, FileVersion::original);
    EXPECT_EQ(lasting.status, 201);
    EXPECT_EQ(onlyRequest("POST /api/share_links/").request.body,
              R"({"expiration":null,"document":1,"file_version":"original"})");
    server.clearRequests();
    const auto timed = createShareLink(*handler, 1, week, FileVersion::archive);
    EXPECT_EQ(onlyRequest("POST /api/share_links/").request.body,
              R"({"expiration":"2026-11-29T12:00:00Z","document":1,"file_version":"archive"})");
    ASSERT_TRUE(timed.link);
    EXPECT_EQ(timed.url, server.url() + "/share/" + timed.link->slug);
    (void)createShareLink(*handler, 2, std::nullopt, FileVersion::original);
    EXPECT_EQ(fetchShareLinks(*handler, 1).links.size(), 2U);
    clock->time = week + std::chrono::seconds(1);
    EXPECT_EQ(fetchShareLinks(*handler, 1).links.size(), 1U);
    EXPECT_EQ(deleteShareLink(*handler, timed.link->id), 204);
    EXPECT_EQ(deleteShareLink(*handler, timed.link->id), 404);
    EXPECT_TRUE(log->contains("Error deleting share link "));
}

TEST_F(SingleThings, NotesComeBackAfterAddingAndRemoving) {
    const auto added = addNote(*handler, 1, "A \"note\"\nin two lines");
    ASSERT_EQ(added.status, 200);
    EXPECT_EQ(Json::parse(onlyRequest("POST /api/documents/1/notes/").request.body),
              Json({{"note", "A \"note\"\nin two lines"}}));
    ASSERT_TRUE(added.notes);
    const auto id = added.notes->front().id;
    EXPECT_EQ(removeNote(*handler, 1, id).status, 200);
    const auto asked = onlyRequest("DELETE ").request;
    EXPECT_EQ(asked.target, "/api/documents/1/notes/?id=" + std::to_string(id));
    EXPECT_EQ(asked.header("accept"), "application/json; version=2");
}

} // namespace
} // namespace ledgerfinch::test
