// SPDX-License-Identifier: GPL-3.0-or-later
// The sample server as tests use it: made-up records, edits from outside, failures on purpose, the program.
#include "support/PaperlessServer.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace ledgerfinch::support {
namespace {

class ServerTest : public testing::Test {
protected:
    void SetUp() override {
        m_server.generate(120, {.textBytes = 300});
        m_server.start();
    }

    httplib::Headers headers() const {
        return {{"Authorization", "Token " + m_server.token()},
                {"Accept", "application/json; version=2"},
                {"Accept-Encoding", "identity"}};
    }

    httplib::Result get(const std::string& path) const {
        httplib::Client client("127.0.0.1", m_server.port());
        client.set_read_timeout(std::chrono::seconds(5));
        return client.Get(path, headers());
    }

    Json getJson(const std::string& path) const {
        auto answer = get(path);
        return answer ? Json::parse(answer->body, nullptr, false) : Json(Json::value_t::discarded);
    }

    PaperlessServer m_server;
};

TEST_F(ServerTest, PagesHoldEveryGeneratedDocumentOnce) {
    std::vector<Id> ids;
    std::string path = "/api/documents/?full_perms=true&ordering=-id&page_size=50";
    while (!path.empty()) {
        auto page = getJson(path);
        ASSERT_TRUE(page.is_object());
        for (const auto& record : page["results"])
            ids.push_back(record["id"].get<Id>());
        path = page["next"].is_string() ? page["next"].get<std::string>().substr(m_server.url().size()) : "";
    }
    auto expected = m_server.documentIds();
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(ids, expected);
}

TEST_F(ServerTest, TheSameSeedMakesTheSameDocuments) {
    PaperlessServer other;
    other.generate(120, {.textBytes = 300});
    EXPECT_EQ(m_server.documents(), other.documents());
    EXPECT_EQ(m_server.records("custom_fields"), other.records("custom_fields"));
}

TEST_F(ServerTest, ChangesFromOutsideShowAtOnceAndMoveModified) {
    auto before = m_server.document(7).value();
    auto since = "/api/documents/?fields=id&modified__gt=" + utcTimeText(clockNow());
    EXPECT_EQ(getJson(since)["count"], 0);
    ASSERT_TRUE(m_server.editDocument(7, {{"title", "Anders"}, {"tags", {2}}}));
    auto added = m_server.addDocument({{"content", "neu"}});
    m_server.removeDocument(3);
    EXPECT_EQ(getJson(since)["all"].get<std::set<Id>>(), (std::set<Id>{7, added}));
    auto shown = getJson("/api/documents/7/?full_perms=true");
    EXPECT_EQ(shown, m_server.document(7).value());
    EXPECT_EQ(shown["title"], "Anders");
    EXPECT_NE(shown["modified"], before["modified"]);
    EXPECT_EQ(get("/api/documents/3/")->status, 404);
}

TEST_F(ServerTest, DeletedAttributesLeaveTheirDocuments) {
    auto document = m_server.addDocument({{"tags", {1, 2}}, {"correspondent", 5}});
    ASSERT_TRUE(m_server.remove("tags", 2));
    ASSERT_TRUE(m_server.remove("correspondents", 5));
    auto shown = getJson("/api/documents/" + std::to_string(document) + "/");
    EXPECT_EQ(shown["tags"], Json::array({1}));
    EXPECT_TRUE(shown["correspondent"].is_null());
    EXPECT_THROW(m_server.remove("nothing", 1), std::invalid_argument);
}

TEST_F(ServerTest, ModifiedMovesForDocumentChangesAndNotForAttributeChanges) {
    m_server.editDocument(1, {{"tags", {2}},
                              {"correspondent", 5},
                              {"document_type", 6},
                              {"owner", 4},
                              {"custom_fields", {{{"field", 1}, {"value", "x"}}}}});
    httplib::Client client("127.0.0.1", m_server.port());
    struct Step {
        std::string method, path, body;
        bool moves;
    };
    const std::vector<Step> steps{
        {"PATCH", "/api/documents/1/", "{}", true},
        {"POST", "/api/documents/1/notes/", R"({"note":"n"})", true},
        {"POST", "/api/documents/bulk_edit/", R"({"documents":[1],"method":"add_tag","parameters":{"tag":3}})", true},
        {"POST", "/api/documents/bulk_edit/",
         R"({"documents":[1],"method":"set_permissions","parameters":{"owner":4,"merge":false}})", false},
        {"POST", "/api/share_links/", R"({"document":1})", false},
        {"PATCH", "/api/correspondents/5/", R"({"name":"anders"})", false},
        {"DELETE", "/api/correspondents/5/", "", false},
        {"DELETE", "/api/document_types/6/", "", false},
        {"DELETE", "/api/tags/2/", "", false},
        {"DELETE", "/api/custom_fields/1/", "", false},
        {"DELETE", "/api/users/4/", "", false},
        {"DELETE", "/api/documents/1/", "", true},
        {"POST", "/api/trash/", R"({"documents":[1],"action":"restore"})", true},
    };
    auto modified = [&] {
        return m_server.withState([](State& state) { return state.documents.at(1).modified; });
    };
    for (const auto& step : steps) {
        auto before = modified();
        httplib::Request request;
        request.method = step.method;
        request.path = step.path;
        request.headers = headers();
        request.headers.emplace("Content-Type", "application/json");
        request.body = step.body;
        auto answer = client.send(request);
        ASSERT_TRUE(answer && answer->status < 300) << step.method << " " << step.path << " " << answer->body;
        EXPECT_EQ(modified() != before, step.moves) << step.method << " " << step.path << " " << step.body;
    }
}

TEST_F(ServerTest, UploadsBecomeDocumentsAsTheTaskIsWatched) {
    httplib::Client client("127.0.0.1", m_server.port());
    httplib::MultipartFormDataItems parts{{"title", "Hochgeladen", "", ""},
                                          {"tags", "2", "", ""},
                                          {"tags", "3", "", ""},
                                          {"document", "Ein Text", "brief.txt", "text/plain"}};
    auto accepted = client.Post("/api/documents/post_document/", headers(), parts);
    ASSERT_TRUE(accepted);
    ASSERT_EQ(accepted->status, 200);
    auto task = "/api/tasks/?task_id=" + Json::parse(accepted->body).get<std::string>();
    std::vector<std::string> states;
    for (int look = 0; look < 3; ++look)
        states.push_back(getJson(task)[0]["status"]);
    EXPECT_EQ(states, (std::vector<std::string>{"PENDING", "STARTED", "SUCCESS"}));
    auto created = m_server.document(std::stoll(getJson(task)[0]["related_document"].get<std::string>())).value();
    EXPECT_EQ(created["title"], "Hochgeladen");
    EXPECT_EQ(created["content"], "Ein Text");
    auto tags = created["tags"].get<std::set<Id>>();
    EXPECT_TRUE(tags.contains(2) && tags.contains(3));
    EXPECT_EQ(m_server.requests("POST /api/documents/post_document/").at(0).request.parts.size(), 4U);
}

TEST_F(ServerTest, FilesAreOfTheirKind) {
    EXPECT_TRUE(get("/api/documents/1/thumb/")->body.starts_with("\x89PNG"));
    EXPECT_TRUE(get("/api/documents/1/download/?original=true")->body.starts_with("%PDF-"));
    m_server.withState([](State& state) { state.thumbnailsAreWebp = true; });
    EXPECT_EQ(get("/api/documents/1/thumb/")->body.substr(8, 8), "WEBPVP8L");
}

TEST_F(ServerTest, CompressesWhenAsked) {
    httplib::Client client("127.0.0.1", m_server.port());
    auto asked = headers();
    asked.erase("Accept-Encoding");
    asked.emplace("Accept-Encoding", "gzip");
    auto answer = client.Get("/api/tags/?page_size=1000", asked);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->get_header_value("Content-Encoding"), "gzip");
    EXPECT_EQ(Json::parse(answer->body), getJson("/api/tags/?page_size=1000"));
}

TEST_F(ServerTest, TheVersionIsWhatTheTestSays) {
    m_server.setVersion("1.7.2");
    EXPECT_EQ(get("/api/tags/")->get_header_value("x-version"), "1.7.2");
    m_server.faults().onPath("GET /api/tags/", Fault::missingVersion());
    EXPECT_FALSE(get("/api/tags/")->has_header("x-version"));
}

TEST_F(ServerTest, FailsAtTheChosenRequestOnly) {
    auto rule = m_server.faults().onRequest(2, Fault::answer(503, "{\"detail\":\"later\"}"));
    EXPECT_EQ(get("/api/tags/")->status, 200);
    EXPECT_EQ(get("/api/tags/")->status, 503);
    EXPECT_EQ(get("/api/tags/")->status, 200);
    EXPECT_EQ(m_server.faults().fired(rule), 1U);
}

TEST_F(ServerTest, BodiesCanBeWrong) {
    auto with = [&](Fault fault) {
        m_server.faults().clear();
        m_server.faults().onPath("GET /api/tags/", std::move(fault));
        return get("/api/tags/?page_size=2");
    };
    EXPECT_TRUE(with(Fault::htmlPage())->get_header_value("Content-Type").starts_with("text/html"));
    EXPECT_TRUE(Json::parse(with(Fault::truncatedJson())->body, nullptr, false).is_discarded());
    EXPECT_EQ(with(Fault::redirect("http://elsewhere.example/"))->get_header_value("Location"),
              "http://elsewhere.example/");
    EXPECT_EQ(Json::parse(with(Fault::nextIs("http://elsewhere.example/x"))->body)["next"],
              "http://elsewhere.example/x");
    EXPECT_EQ(Json::parse(with(Fault::nextIsSelf())->body)["next"], m_server.url() + "/api/tags/?page_size=2");
    auto huge = with(Fault::hugePage(3'000'000));
    EXPECT_EQ(huge->body.size(), 3'000'000U);
    EXPECT_EQ(Json::parse(huge->body)["count"], 20);
    EXPECT_EQ(Json::parse(with(Fault::drip(200, std::chrono::milliseconds(1)))->body)["count"], 20);
}

TEST_F(ServerTest, ConnectionsCanBreak) {
    auto& faults = m_server.faults();
    faults.onPath("GET /api/tags/", Fault::cutBody(100), 1);
    EXPECT_FALSE(get("/api/tags/"));
    faults.onPath("GET /api/tags/", Fault::garbage(), 1);
    EXPECT_FALSE(get("/api/tags/"));
    faults.onPath("GET /api/tags/", Fault::dropConnection(), 1);
    EXPECT_FALSE(get("/api/tags/"));
    EXPECT_TRUE(get("/api/tags/"));
}

TEST_F(ServerTest, ALostAnswerMayHaveTakenEffect) {
    httplib::Client client("127.0.0.1", m_server.port());
    m_server.faults().onPath("PATCH", Fault::dropConnection(false), 1);
    EXPECT_FALSE(client.Patch("/api/documents/1/", headers(), "{\"title\":\"eins\"}", "application/json"));
    EXPECT_NE(m_server.document(1).value()["title"], "eins");
    m_server.faults().onPath("PATCH", Fault::dropConnection(true), 1);
    EXPECT_FALSE(client.Patch("/api/documents/1/", headers(), "{\"title\":\"zwei\"}", "application/json"));
    EXPECT_EQ(m_server.document(1).value()["title"], "zwei");
}

TEST_F(ServerTest, AStalledAnswerGoesOnWhenReleasedAndEndsWithTheServer) {
    m_server.faults().onPath("GET /api/tags/", Fault::stall(50));
    auto status = -1;
    auto ask = [&] {
        auto answer = get("/api/tags/");
        status = answer ? answer->status : 0;
    };
    std::thread reader(ask);
    while (m_server.faults().stalled() == 0)
        std::this_thread::yield();
    m_server.faults().release();
    reader.join();
    EXPECT_EQ(status, 200);

    std::thread cutOff(ask);
    while (m_server.faults().stalled() == 0)
        std::this_thread::yield();
    m_server.stop();
    cutOff.join();
    EXPECT_EQ(status, 0);
}

TEST_F(ServerTest, StartsAgainOnTheSamePortWithItsRecords) {
    auto port = m_server.port();
    m_server.addDocument({{"title", "bleibt"}});
    m_server.stop();
    EXPECT_FALSE(get("/api/tags/"));
    m_server.start(port);
    EXPECT_EQ(getJson("/api/documents/?fields=id")["count"], 121);
}

TEST(SampleServerProgram, WritesItsPortAndEndsOnSignal) {
    auto folder = std::filesystem::temp_directory_path() / ("sample-server-" + std::to_string(getpid()));
    std::filesystem::create_directories(folder);
    auto file = (folder / "port").string();
    auto child = fork();
    if (child == 0) {
        auto* silence = std::freopen("/dev/null", "w", stdout);
        execl(SAMPLE_SERVER, SAMPLE_SERVER, "--documents", "5", "--port-file", file.c_str(), nullptr);
        _exit(silence == nullptr ? 126 : 127);
    }
    while (!std::filesystem::exists(file) && waitpid(child, nullptr, WNOHANG) == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    int port = 0;
    std::ifstream(file) >> port;
    httplib::Client client("127.0.0.1", port);
    auto answer =
        client.Post("/api/token/", "{\"username\":\"admin\",\"password\":\"admin-pass\"}", "application/json");
    EXPECT_TRUE(answer && answer->status == 200);
    kill(child, SIGTERM);
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::filesystem::remove_all(folder);
}

} // namespace
} // namespace ledgerfinch::support
