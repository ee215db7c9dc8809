// SPDX-License-Identifier: GPL-3.0-or-later
// Servers, proxies and portals that answer something else than what was asked for.
#include "connection/ConnectionFixture.h"

#include "connection/KeychainHandler.h"
#include "connection/Status.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Documents.h"
#include "connection/endpoints/Files.h"
#include "connection/endpoints/ShareLinks.h"
#include "connection/endpoints/Tasks.h"

#include <gmock/gmock.h>

namespace ledgerfinch::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

class Failures : public ConnectionTest {
protected:
    void SetUp() override {
        server.generate(3);
        handler = handlerFor();
    }
    static Fault redirect(int status, const std::string& target) {
        auto fault = Fault::redirect(target);
        fault.canned->status = status;
        return fault;
    }
    /// The same address with another scheme and port.
    [[nodiscard]] static std::string secureAddress() { return "https://127.0.0.1:8443"; }
    std::shared_ptr<ApiHandler> handler;
};

TEST_F(Failures, EachKindOfWrongAnswerHasAStatusAndAReasonOfItsOwn) {
    struct Case {
        std::string what;
        Fault fault;
        int status;
        std::string reason;
    };
    const std::string page = "<!DOCTYPE html><html><body>Bad gateway</body></html>";
    for (const auto& each : std::vector<Case>{
             {"a page", Fault::htmlPage(), status::kWebPage, "a web page in place of data"},
             {"a page that calls itself JSON", Fault::answer(200, "\n " + page), status::kWebPage, "a web page"},
             {"text", Fault::answer(200, "It works!", "text/plain"), status::kUnreadable, "damaged"},
             {"truncated JSON", Fault::truncatedJson(), status::kUnreadable, "damaged"},
             {"an empty body", Fault::answer(200, ""), status::kUnreadable, "damaged"},
             {"no HTTP", Fault::garbage(), status::kNoAnswer, "without an answer"},
             {"a closed connection", Fault::dropConnection(), status::kNoAnswer, "closed the connection"},
             {"a proxy without a server", Fault::answer(502, page, "text/html"), 502, "isn't ready (502)"},
             {"a server that starts", Fault::answer(503, page, "text/html"), 503, "isn't ready (503)"},
             {"a broken server", Fault::answer(500, page, "text/html"), 500, "an error of its own (500)"},
             {"a refusal in a word", Fault::answer(403, "Forbidden", "text/plain"), 403, "Check the rights"},
             {"another host", redirect(301, "http://user:pw@elsewhere.example/hidden?token=1"), status::kRedirected,
              "http://elsewhere.example."},
             {"a secure place on the same host", redirect(308, secureAddress() + "/api/x"), status::kNeedsHttps,
              secureAddress()},
             {"no usable address", redirect(302, "gopher:"), status::kRedirected, "no usable address"}}) {
        server.faults().clear();
        server.faults().onPath("GET ", each.fault);
        const auto isAsExpected = [&](int status, const std::string& operation) {
            EXPECT_EQ(status, each.status) << each.what << ", " << operation;
            EXPECT_THAT(handler->reasonFor(status),
                        AllOf(HasSubstr(each.reason), Not(HasSubstr("hidden")), Not(HasSubstr("pw@"))))
                << each.what << ", " << operation;
        };
        isAsExpected(fetchTags(*handler, options()), "a list");
        isAsExpected(fetchAllDocuments(*handler, options()), "the documents");
        isAsExpected(fetchDocumentCount(*handler).status, "their number");
        isAsExpected(fetchDocument(*handler, 1, core->backgroundContext()), "one document");
        isAsExpected(fetchUserSettings(*handler), "the user");
        isAsExpected(fetchTasks(*handler).status, "the tasks");
        isAsExpected(fetchShareLinks(*handler, 1).status, "share links");
    }
    EXPECT_EQ(handler->Token(), server.token());
    EXPECT_EQ(everythingWritten().find("hidden"), std::string::npos);
}

TEST_F(Failures, ALoginPageInPlaceOfDataIsToldAsSuch) {
    server.faults().onPath("accounts/login", Fault::htmlPage());
    server.faults().onPath("GET /api/", Fault::redirect("/accounts/login/?next=/api/"));
    EXPECT_EQ(fetchTags(*handler, options()), status::kWebPage);
    // A request that writes isn't sent on at all.
    server.faults().onPath("POST ", Fault::redirect("/accounts/login/?next=/api/token/"));
    const auto login = ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
    ASSERT_TRUE(login->failure());
    EXPECT_THAT(login->failure()->reason(), AllOf(HasSubstr("login page of " + server.url()), Not(HasSubstr("next"))));
}

TEST_F(Failures, ADownloadTellsWhatCameInstead) {
    struct Case {
        Fault fault;
        int code;
        std::string reason;
    };
    for (const auto& each : std::vector<Case>{
             {redirect(302, "https://elsewhere.example/x?y=z"), status::kRedirected, "https://elsewhere.example."},
             {redirect(301, secureAddress()), status::kNeedsHttps, secureAddress()},
             {Fault::htmlPage(), status::kWebPage, "web page"},
             {Fault::answer(503, "<html>", "text/html"), 503, "isn't ready"},
             {Fault::answer(404), 404, "doesn't have this"},
             {Fault::answer(200, "", "application/pdf"), 200, "nothing"},
             {Fault::dropConnection(), status::kNoAnswer, "closed the connection"}}) {
        server.faults().clear();
        server.faults().onPath("/download/", each.fault);
        const auto file = downloadDocumentData(*handler, 1);
        ASSERT_FALSE(file.ok()) << each.reason;
        EXPECT_EQ(file.error().code, each.code);
        EXPECT_THAT(file.error().message, AllOf(HasSubstr(each.reason), Not(HasSubstr("y=z"))));
    }
}

/// A body that ends with its connection, too early. To whom reads it that looks whole, as a chunked one may when its
/// last chunk is missing.
Fault endsUnnoticed(const std::string& type, const std::string& body) {
    return Fault::garbage("HTTP/1.1 200 OK\r\nContent-Type: " + type + "\r\nConnection: close\r\n\r\n" + body);
}

TEST_F(Failures, ABodyThatEndsUnnoticedIsNoFile) {
    const auto file = downloadDocumentData(*handler, 1);
    const auto image = downloadThumbnail(*handler, 1);
    ASSERT_TRUE(file.ok() && image.ok());
    const auto& bytes = file.value().bytes;
    const auto& thumbnail = image.value();

    server.faults().onPath("/download/", endsUnnoticed("application/pdf", bytes.substr(0, bytes.size() - 1)));
    server.faults().onPath("/thumb/", endsUnnoticed("image/webp", thumbnail.substr(0, thumbnail.size() - 1)));
    server.faults().onPath("/tags/", endsUnnoticed("application/json", R"({"next":null,"results":[{"id":1}])"));
    EXPECT_EQ(downloadDocumentData(*handler, 1).error().code, status::kNoAnswer);
    EXPECT_EQ(downloadThumbnail(*handler, 1).error().code, status::kNoAnswer);
    EXPECT_EQ(fetchTags(*handler, options()), status::kUnreadable);

    server.faults().clear();
    server.faults().onPath("/download/", endsUnnoticed("application/pdf", bytes));
    server.faults().onPath("/thumb/", endsUnnoticed("image/webp", thumbnail));
    EXPECT_TRUE(downloadDocumentData(*handler, 1).ok());
    EXPECT_TRUE(downloadThumbnail(*handler, 1).ok());
}

TEST_F(Failures, ALoginKeepsItsDocumentedTextAndKnowsTheReason) {
    struct Case {
        Fault fault;
        std::string text;
        ApiError::Case kind;
        std::string reason;
    };
    using Kind = ApiError::Case;
    std::vector<Case> cases{
        {Fault::answer(400, R"({"non_field_errors":["no"]})"), "Server responded: 400", Kind::invalidCredentials,
         "Invalid credentials"},
        {Fault::answer(404, "<html>", "text/html"), "Server responded: 404", Kind::unexpectedResponse,
         "no document server at this address"},
        {Fault::answer(502, "<html>", "text/html"), "Server responded: 502", Kind::unexpectedResponse, "isn't ready"},
        {Fault::answer(403, "no", "text/plain"), "Server responded: 403", Kind::unexpectedResponse, "(403)"},
        {Fault::htmlPage(), "Couldn't connect to server", Kind::unexpectedResponse, "web page"},
        {Fault::answer(200, "{\"tok"), "Couldn't connect to server", Kind::unexpectedResponse, "damaged"},
    };
    for (const int status : {301, 302, 307, 308}) {
        const auto text = "Server responded: " + std::to_string(status);
        cases.push_back({redirect(status, "https://other.example/login?next=secret"), text, Kind::unexpectedResponse,
                         "https://other.example."});
        cases.push_back({redirect(status, secureAddress() + "/api/token/"), text, Kind::unexpectedResponse,
                         "Give its address as " + secureAddress()});
    }
    for (const auto& each : cases) {
        server.faults().clear();
        server.faults().onPath("POST /api/token/", each.fault);
        const auto login = ApiHandler::login(services, *core, server.url(), "alice", "alice-pass");
        EXPECT_EQ(login->Error(), each.text);
        ASSERT_TRUE(login->failure()) << each.text;
        EXPECT_EQ(login->failure()->kind, each.kind) << each.text;
        EXPECT_THAT(login->failure()->reason(), AllOf(HasSubstr(each.reason), Not(HasSubstr("secret"))));
    }
    EXPECT_FALSE(services.defaults->string(ConnectedInstances::kKey));
}

} // namespace
} // namespace ledgerfinch::test
