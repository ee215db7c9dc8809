// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/Status.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Documents.h"
#include "connection/endpoints/Files.h"
#include "connection/endpoints/Pages.h"
#include "connection/endpoints/ShareLinks.h"

#include <algorithm>

namespace ledgerfinch::test {
namespace {

using Fetch = ConnectionTest;

constexpr std::string_view kVersion2 = "application/json; version=2";

struct Family {
    std::string name;
    std::string target; ///< of the first page
    bool acceptOnNextPages;
    int (*fetch)(ApiHandler&, const FetchOptions&);
    std::string record; ///< the smallest one
};

int fetchLinks(ApiHandler& api, const FetchOptions&) {
    return fetchShareLinks(api, 1).status;
}

const std::vector<Family>& families() {
    static const std::vector<Family> list{
        {"groups", "/api/groups/", false, fetchGroups, R"({"id":1})"},
        {"users", "/api/users/?page_size=1000", false, fetchUsers, R"({"id":1})"},
        {"tags", "/api/tags/?full_perms=true&page_size=1000", true, fetchTags, R"({"id":1})"},
        {"document types", "/api/document_types/?full_perms=true&page_size=1000", true, fetchDocumentTypes,
         R"({"id":1})"},
        {"correspondents", "/api/correspondents/?full_perms=true&page_size=1000", true, fetchCorrespondents,
         R"({"id":1})"},
        {"storage paths", "/api/storage_paths/?full_perms=true&page_size=1000", true, fetchStoragePaths, R"({"id":1})"},
        {"custom fields", "/api/custom_fields/?page_size=1000", true, fetchCustomFields,
         R"({"id":1,"name":"n","data_type":"string"})"},
        {"saved views", "/api/saved_views/?full_perms=true&page_size=1000", false, fetchSavedViews,
         R"({"id":1,"name":"n","filter_rules":[]})"},
        {"share links", "/api/share_links/", true, fetchLinks,
         R"({"id":1,"created":"2026-01-01T00:00:00Z","slug":"s","document":1,"file_version":"original"})"},
    };
    return list;
}

std::string escaped(const std::string& target) {
    std::string pattern;
    for (const char c : target) {
        if (c == '?' || c == '.') pattern += '\\';
        pattern += c;
    }
    return "GET " + pattern + "$";
}

/// The server does its work and notes it, but sends this.
Fault bodyIs(std::string body) {
    Fault fault;
    fault.rewrite = [body = std::move(body)](const std::string&, const std::string&) {
        return body;
    };
    return fault;
}

TEST_F(Fetch, EachFamilyAsksAsAgreedAndFollowsItsPages) {
    for (const auto& family : families()) {
        server.clearRequests();
        server.faults().clear();
        const auto path = family.target.substr(0, family.target.find('?'));
        const auto next = server.url() + path + "?second=page";
        server.faults().onPath(escaped(family.target),
                               bodyIs(R"({"next":")" + next + R"(","results":[)" + family.record + "]}"));
        server.faults().onPath("second=page$", bodyIs(R"({"next":null,"results":[]})"));
        EXPECT_EQ(family.fetch(*handlerFor(), options()), 200) << family.name;
        ASSERT_TRUE(server.waitForRequests(2)) << family.name;
        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), 2U) << family.name;
        EXPECT_EQ(requests[0].request.target, family.target);
        EXPECT_EQ(requests[0].request.header("accept"), kVersion2) << family.name;
        EXPECT_EQ(requests[1].request.header("accept") == kVersion2, family.acceptOnNextPages) << family.name;
        EXPECT_EQ(requests[1].request.header("authorization"), "Token " + server.token());
    }
}

TEST_F(Fetch, EachFamilyNamesItselfWhenTheAnswerIsUnexpected) {
    for (const auto& family : families()) {
        server.faults().clear();
        server.faults().onPath("GET ", Fault::answer(403));
        EXPECT_EQ(family.fetch(*handlerFor(), options()), 403);
        EXPECT_TRUE(log->contains("received unexpected response from server while fetching " + family.name + ": 403"));
    }
    server.stop();
    for (const auto& family : families())
        EXPECT_EQ(family.fetch(*handlerFor(), options()), status::kNoAnswer) << family.name;
}

TEST_F(Fetch, RemovesRecordsOnlyWhenTheWholeListCame) {
    server.generate(0);
    const auto handler = handlerFor();
    ASSERT_EQ(fetchTags(*handler, options()), 200);
    const auto before = localIds<CD_Tag>();
    ASSERT_GT(before.size(), 2U);

    const auto next = server.url() + "/api/tags/?page=2";
    const auto firstPage = Fault::answer(200, R"({"next":")" + next + R"(","results":[{"id":1,"name":"one"}]})");
    struct Case {
        std::string what;
        Fault second;
        int status;
    };
    for (const auto& each : std::vector<Case>{
             {"a refusal", Fault::answer(500), 500},
             {"a page that is no page", Fault::htmlPage(), status::kWebPage},
             {"a page without results", Fault::answer(200, "{}"), 200},
             {"half a page", Fault::answer(200, R"({"next":null,"results":[{"id":2,)"), status::kUnreadable},
             {"a wrong record", Fault::answer(200, R"({"results":[{"id":"two"}]})"), 200},
             {"a cut connection", Fault::cutBody(4), status::kNoAnswer},
             {"a next page elsewhere",
              Fault::answer(200, R"({"next":"http://127.0.0.1:9/api/tags/?page=3","results":[]})"),
              status::kBadNextPage},
             {"the same page again", Fault::answer(200, R"({"next":")" + next + R"(","results":[]})"),
              status::kBadNextPage}}) {
        server.faults().clear();
        server.faults().onPath("GET /api/tags/\\?full", firstPage);
        server.faults().onPath("page=2", each.second);
        EXPECT_EQ(fetchTags(*handler, options()), each.status) << each.what;
        EXPECT_EQ(localIds<CD_Tag>(), before) << each.what;
    }
    server.faults().clear();
    server.faults().onPath("GET /api/tags/\\?full", firstPage);
    server.faults().onPath("page=2", Fault::answer(200, R"({"next":null,"results":[{"id":2,"name":"two"}]})"));
    EXPECT_EQ(fetchTags(*handler, options()), 200);
    EXPECT_EQ(localIds<CD_Tag>(), (std::vector<std::int64_t>{1, 2}));
}

class DocumentFetch : public ConnectionTest {
protected:
    void SetUp() override {
        server.generate(250, {.textBytes = 100});
        handler = handlerFor();
    }
    std::vector<std::int64_t> sortedLocalIds() {
        auto ids = localIds<CD_Document>();
        std::sort(ids.begin(), ids.end());
        return ids;
    }
    std::shared_ptr<ApiHandler> handler;
};

TEST_F(DocumentFetch, AFullPassMergesPageByPageAndRemovesWhatIsGone) {
    std::vector<std::string> reports;
    auto watched = options();
    watched.progress = [&](const additionalLoadingInfo& info) {
        if (const auto* success = std::get_if<additionalLoadingInfo::Success>(&info.value))
            reports.push_back(success->text);
    };
    ASSERT_EQ(fetchAllDocuments(*handler, watched), 200);
    ASSERT_TRUE(server.waitForRequests(3));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3U);
    EXPECT_EQ(requests[0].request.target,
              "/api/documents/?full_perms=true&order=descending&ordering=-id&page_size=100");
    for (const auto& each : requests)
        EXPECT_EQ(each.request.header("accept"), kVersion2);
    EXPECT_EQ(reports, std::vector<std::string>(3, "Received 250 documents"));
    EXPECT_EQ(services.defaults->string("server_version"), "2.20.15");
    EXPECT_EQ(sortedLocalIds(), server.documentIds());

    server.removeDocument(17);
    server.removeDocument(230);
    ASSERT_EQ(fetchAllDocuments(*handler, options()), 200);
    EXPECT_EQ(sortedLocalIds(), server.documentIds());
}

TEST_F(DocumentFetch, NothingIsRemovedAfterAPassThatDidNotGoThrough) {
    ASSERT_EQ(fetchAllDocuments(*handler, options()), 200);
    const auto before = sortedLocalIds();
    server.removeDocument(17);
    server.editDocument(250, {{"title", "Renamed on the server"}});
    struct Case {
        std::string what;
        Fault second;
        int status;
    };
    for (const auto& each : std::vector<Case>{
             {"a refusal", Fault::answer(500), 500},
             {"a refused token", Fault::answer(401), 401},
             {"truncated JSON", Fault::truncatedJson(), status::kUnreadable},
             {"a portal's page", Fault::htmlPage(), status::kWebPage},
             {"a cut connection", Fault::cutBody(1000), status::kNoAnswer},
             {"a next page elsewhere", Fault::nextIs("http://localhost:9/api/documents/"), status::kBadNextPage},
             {"itself as next page", Fault::nextIsSelf(), status::kBadNextPage}}) {
        server.faults().clear();
        server.faults().onPath("GET /api/documents/.*[?&]page=2", each.second);
        EXPECT_EQ(fetchAllDocuments(*handler, options()), each.status) << each.what;
        EXPECT_EQ(sortedLocalIds(), before) << each.what;
    }
    inStore([](ManagedObjectContext& context) {
        EXPECT_EQ(context.firstWithID<CD_Document>(250)->title(), "Renamed on the server") << "page one is merged";
    });
    EXPECT_EQ(fetchAllDocuments(*handler, options()), status::kBadNextPage);
    server.faults().clear();
    EXPECT_EQ(fetchAllDocuments(*handler, options()), 200);
    EXPECT_EQ(sortedLocalIds(), server.documentIds());
}

TEST_F(DocumentFetch, IdsThatDisagreeWithTheirNumberProveNothing) {
    ASSERT_EQ(fetchAllDocuments(*handler, options()), 200);
    const auto before = sortedLocalIds();
    server.faults().onPath("page_size=1$", Fault::answer(200, R"({"count":250,"next":null,"all":[],"results":[]})"), 1);
    EXPECT_EQ(removeOutdatedDocuments(*handler, options()), 200);
    EXPECT_EQ(sortedLocalIds(), before);
    server.faults().onPath("page_size=1$", Fault::answer(200, R"({"count":250,"results":[]})"), 1);
    EXPECT_EQ(removeOutdatedDocuments(*handler, options()), 200);
    EXPECT_EQ(sortedLocalIds(), before);
}

TEST_F(DocumentFetch, APartialPassFetchesTheChangedAndRemovesByTheIds) {
    ASSERT_EQ(fetchAllDocuments(*handler, options()), 200);
    server.removeDocument(17);
    server.editDocument(5, {{"title", "Changed"}, {"modified", "2026-11-22T10:00:00+01:00"}});
    server.clearRequests();
    EXPECT_EQ(fetchChangedDocuments(*handler, "2026-11-21", options()), 200);
    ASSERT_TRUE(server.waitForRequests(1));
    EXPECT_EQ(server.requests().front().request.target,
              "/api/documents/"
              "?modified__gt=2026-11-21&full_perms=true&order=descending&ordering=-id&page_size=100");
    EXPECT_EQ(sortedLocalIds().size(), 250U);
    inStore([](ManagedObjectContext& context) { EXPECT_EQ(context.firstWithID<CD_Document>(5)->title(), "Changed"); });
    EXPECT_EQ(removeOutdatedDocuments(*handler, options()), 200);
    (void)onlyRequest("GET /api/documents/?truncate_content=True&page_size=1");
    EXPECT_EQ(sortedLocalIds(), server.documentIds());
}

TEST_F(DocumentFetch, TheNextPageIsAskedForBeforeTheLastOneIsMerged) {
    auto watched = options();
    std::vector<bool> underWay;
    watched.progress = [&](const additionalLoadingInfo&) {
        const auto page = underWay.size() + 2;
        underWay.push_back(page > 3 || server.waitForRequests(page, "GET /api/documents/"));
    };
    EXPECT_EQ(fetchAllDocuments(*handler, watched), 200);
    EXPECT_EQ(underWay, std::vector<bool>(3, true));
}

TEST_F(DocumentFetch, StopsWhereTheCallerSaysSo) {
    auto stopping = options();
    int asked = 0;
    stopping.shouldStop = [&] {
        return ++asked > 2;
    };
    EXPECT_EQ(fetchAllDocuments(*handler, stopping), status::kStopped);
    EXPECT_LT(localIds<CD_Document>().size(), 250U);
}

TEST_F(DocumentFetch, AHugePageIsRead) {
    server.faults().onPath("GET /api/documents/\\?full", Fault::hugePage(50'000'000));
    EXPECT_EQ(fetchAllDocuments(*handler, options()), 200);
    EXPECT_EQ(localIds<CD_Document>().size(), 250U);
}

TEST_F(DocumentFetch, TheVersionIsKeptOnlyWhenToldWithSuccess) {
    (void)services.defaults->set("server_version", "1.2.3");
    server.faults().onPath("GET /api/documents/", Fault::missingVersion());
    EXPECT_EQ(fetchAllDocuments(*handler, options()), 200);
    EXPECT_EQ(services.defaults->string("server_version"), "1.2.3");
    server.faults().clear();
    EXPECT_EQ(fetchDocument(*handler, 9999, nullptr), 404);
    EXPECT_EQ(services.defaults->string("server_version"), "1.2.3");
}

TEST_F(DocumentFetch, OneDocumentIsMergedAndNothingElse) {
    EXPECT_EQ(fetchDocument(*handler, 7, core->backgroundContext()), 200);
    EXPECT_EQ(onlyRequest("GET /api/documents/").request.target, "/api/documents/7/?full_perms=true");
    EXPECT_EQ(localIds<CD_Document>(), std::vector<std::int64_t>{7});
    // An answer about something else.
    server.faults().onPath("/8/", Fault::answer(200, R"({"id":9,"title":"wrong"})"));
    EXPECT_EQ(fetchDocument(*handler, 8, core->backgroundContext()), status::kUnreadable);
    EXPECT_EQ(localIds<CD_Document>(), std::vector<std::int64_t>{7});
}

TEST_F(DocumentFetch, ARedirectToAnotherHostNeverGetsTheToken) {
    PaperlessServer other;
    other.generate(3);
    other.start();
    server.faults().onPath("GET /api/documents/", Fault::redirect(other.url() + "/api/documents/"));
    EXPECT_EQ(fetchAllDocuments(*handler, options()), status::kRedirected);
    server.faults().clear();
    server.faults().onPath("GET /api/documents/", Fault::nextIs(other.url() + "/api/documents/?page=2"));
    EXPECT_EQ(fetchAllDocuments(*handler, options()), status::kBadNextPage);
    EXPECT_EQ(other.requestCount(), 0U);
}

TEST_F(DocumentFetch, AWalkStaysWithTheStoreThatWasOpenWhenItBegan) {
    const auto before = core->viewContext();
    Fault switching;
    switching.rewrite = [this](const std::string& body, const std::string&) {
        mainQueue::sync([this] { EXPECT_TRUE(core->moveToStore("other").ok()); });
        return body;
    };
    server.faults().onPath("GET ", switching, 1);
    EXPECT_EQ(fetchTags(*handler, {}), 200);
    EXPECT_TRUE(localIds<CD_Tag>().empty());
    before->performAndWait([&] { EXPECT_TRUE(before->firstWithID<CD_Tag>(1)); });
}

TEST_F(DocumentFetch, AListIsNotMergedOnceTheCallerSaidStop) {
    auto stopping = options();
    int asked = 0;
    stopping.shouldStop = [&] {
        return ++asked > 2;
    };
    EXPECT_EQ(fetchTags(*handler, stopping), status::kStopped);
    EXPECT_TRUE(localIds<CD_Tag>().empty());
}

TEST_F(DocumentFetch, TheVersionOfAServerThatIsNotActiveAnyMoreIsNotKept) {
    (void)services.defaults->set("server", "https://another");
    (void)services.defaults->set("server_version", "1.2.3");
    EXPECT_EQ(fetchDocument(*handler, 7, core->backgroundContext()), 200);
    EXPECT_EQ(services.defaults->string("server_version"), "1.2.3");
}

TEST_F(DocumentFetch, TheLogNamesThePageThatFailedAndNothingPrivate) {
    server.faults().onPath("[?&]page=2", Fault::dropConnection());
    EXPECT_EQ(fetchAllDocuments(*handler, options()), status::kNoAnswer);
    EXPECT_TRUE(log->contains("page=2"));
    EXPECT_EQ(loggableUrl("https://a/api/?query=tax&page=2"), "https://a/api/?query=<private>&page=2");
}

TEST_F(DocumentFetch, ALoginPageIsNoDocument) {
    server.faults().onPath("/download/", Fault::htmlPage());
    EXPECT_FALSE(downloadDocumentData(*handler, 7).ok());
    EXPECT_TRUE(log->contains("Received invalid data while downloading document."));
}

} // namespace
} // namespace ledgerfinch::test
