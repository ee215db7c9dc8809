// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/Cancellation.h"
#include "connection/KeychainHandler.h"
#include "connection/Status.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Documents.h"
#include "connection/endpoints/Files.h"
#include "connection/endpoints/ShareLinks.h"
#include "connection/endpoints/Tasks.h"
#include "store/RepairList.h"

#include <thread>

namespace ledgerfinch::test {
namespace {

/// A server that takes a request, has it cancelled, and never answers it.
class CancelledFetch : public ConnectionTest {
protected:
    void SetUp() override {
        server.generate(120, {.textBytes = 100});
        handler = handlerFor();
    }
    void stallOn(const std::string& expression, Cancellation& cancellation, std::size_t afterBytes = 0) {
        Fault fault = Fault::stall(afterBytes);
        fault.rewrite = [&cancellation, afterBytes](const std::string& body, const std::string&) {
            if (afterBytes == 0) cancellation.cancel();
            return body;
        };
        server.faults().clear();
        server.faults().onPath(expression, fault);
    }
    FetchOptions cancelledBy(Cancellation& cancellation) {
        auto watched = options();
        watched.cancellation = &cancellation;
        return watched;
    }
    std::shared_ptr<ApiHandler> handler;
};

TEST_F(CancelledFetch, EveryWaitEndsAtOnceWithAStatusOfItsOwn) {
    struct Operation {
        std::string name;
        std::string stalled;
        std::function<int(Cancellation&)> run;
    };
    const std::vector<Operation> operations{
        {"a list", "GET /api/tags/",
         [&](auto& c) {
             return fetchTags(*handler, cancelledBy(c));
         }},
        {"the first page", "GET /api/documents/",
         [&](auto& c) {
             return fetchAllDocuments(*handler, cancelledBy(c));
         }},
        {"the second page", "[?&]page=2",
         [&](auto& c) {
             return fetchAllDocuments(*handler, cancelledBy(c));
         }},
        {"what changed", "modified__gt",
         [&](auto& c) {
             return fetchChangedDocuments(*handler, "2020-01-01", cancelledBy(c));
         }},
        {"the number", "page_size=1$",
         [&](auto& c) {
             return removeOutdatedDocuments(*handler, cancelledBy(c));
         }},
        {"one document", "/7/",
         [&](auto& c) {
             return fetchDocument(*handler, 7, core->backgroundContext(), &c);
         }},
        {"the type of a file", "/metadata/",
         [&](auto& c) {
             return downloadDocumentData(*handler, 7, {}, &c).error().code;
         }},
        {"a file", "/download/",
         [&](auto& c) {
             return getDocumentFile(*handler, Uuid::random(), 7, {}, &c).error().code;
         }},
        {"a preview", "/thumb/",
         [&](auto& c) {
             return getDocumentPreview(*handler, Uuid::random(), 7, &c).error().code;
         }},
        {"the tasks", "GET /api/tasks/",
         [&](auto& c) {
             return fetchTasks(*handler, &c).status;
         }},
        {"share links", "GET /api/share_links/",
         [&](auto& c) {
             return fetchShareLinks(*handler, 7, &c).status;
         }},
        {"the user", "GET /api/ui_settings/",
         [&](auto& c) {
             return fetchUserSettings(*handler, &c);
         }},
    };
    for (const auto& each : operations) {
        Cancellation cancellation;
        stallOn(each.stalled, cancellation);
        EXPECT_EQ(each.run(cancellation), status::kCancelled) << each.name;
    }
    EXPECT_FALSE(log->contains("Enountered an error while fetching documents:"));
}

TEST_F(CancelledFetch, AFileThatHasBegunIsGivenUp) {
    Cancellation cancellation;
    stallOn("/download/", cancellation, 20);
    const auto uuid = Uuid::random();
    const auto file = getDocumentFile(
        *handler, uuid, 7, [&](std::int64_t, std::int64_t) { cancellation.cancel(); }, &cancellation);
    ASSERT_FALSE(file.ok());
    EXPECT_EQ(file.error().code, status::kCancelled);
    EXPECT_FALSE(core->documentFiles().existingDocumentFile(uuid));
}

TEST_F(CancelledFetch, RepairsStayOnTheirList) {
    RepairList list(*core);
    const auto context = core->backgroundContext();
    ASSERT_TRUE(list.add(CD_Document::kEntityName, 7, RepairList::kRefused, context).ok());
    ASSERT_TRUE(list.add(CD_Tag::kEntityName, 1, RepairList::kRefused, context).ok());
    for (const auto* stalled : {"GET /api/documents/7/", "GET /api/tags/1/"}) {
        Cancellation cancellation;
        stallOn(stalled, cancellation);
        EXPECT_EQ(runRepairs(*handler, cancelledBy(cancellation)), status::kCancelled) << stalled;
    }
    EXPECT_FALSE(list.entries(RepairList::kRefused, context).empty());
}

TEST_F(CancelledFetch, ARestoredLoginThatIsNotWaitedForChangesNothing) {
    ASSERT_TRUE(KeychainHandler(services).saveToken(server.token(), server.url()).ok());
    (void)services.defaults->set("offlineMode", true);
    Cancellation cancellation;
    stallOn("GET /api/documents/", cancellation);
    const auto restored =
        ApiHandler::restore(services, *core, server.url(), ApiHandler::Activation::Now, &cancellation);
    EXPECT_TRUE(std::holds_alternative<ApiHandler::Cancelled>(restored));
    EXPECT_EQ(services.defaults->boolean("offlineMode"), true);
}

TEST_F(CancelledFetch, OneCancellationEndsAllThatWaitWithIt) {
    Cancellation cancellation;
    std::atomic<int> arrived{0};
    Fault fault = Fault::stall();
    fault.rewrite = [&](const std::string& body, const std::string&) {
        if (++arrived == 2) cancellation.cancel();
        return body;
    };
    server.faults().onPath("GET ", fault);
    int first = 0;
    int second = 0;
    std::thread one([&] { first = fetchTasks(*handler, &cancellation).status; });
    std::thread two([&] { second = fetchTasks(*handler, &cancellation).status; });
    one.join();
    two.join();
    EXPECT_EQ(first, status::kCancelled);
    EXPECT_EQ(second, status::kCancelled);
    // What comes later doesn't begin to wait.
    EXPECT_EQ(fetchTasks(*handler, &cancellation).status, status::kCancelled);
}

} // namespace
} // namespace ledgerfinch::test
