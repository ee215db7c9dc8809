// SPDX-License-Identifier: GPL-3.0-or-later
// The sample server as one release or another: which API versions it takes, and one state in every shape.
#include "support/PaperlessServer.h"

#include <gtest/gtest.h>
#include <httplib.h>

namespace ledgerfinch::support {
namespace {

class ModesTest : public testing::Test {
protected:
    void SetUp() override {
        m_server.generate(30, {.textBytes = 100});
        m_server.start();
    }

    httplib::Headers headers(int version) const {
        return {{"Authorization", "Token " + m_server.token()},
                {"Accept", "application/json; version=" + std::to_string(version)}};
    }
    httplib::Result get(const std::string& path, int version) const {
        return httplib::Client("127.0.0.1", m_server.port()).Get(path, headers(version));
    }
    Json getJson(const std::string& path, int version) const {
        auto answer = get(path, version);
        return answer ? Json::parse(answer->body, nullptr, false) : Json();
    }
    int patch(const std::string& path, int version, const Json& body) const {
        auto answer = httplib::Client("127.0.0.1", m_server.port())
                          .Patch(path, headers(version), body.dump(), "application/json");
        return answer ? answer->status : 0;
    }

    PaperlessServer m_server;
};

TEST_F(ModesTest, TakesTheApiVersionsOfTheRelease) {
    struct Case {
        ServerMode mode;
        int lowest, highest;
        const char* version;
    };
    for (const auto& [mode, lowest, highest, name] : {Case{ServerMode::V2_7, 1, 5, "2.7.2"},
                                                      {ServerMode::V2_20, 1, 9, "2.20.15"},
                                                      {ServerMode::V3, 9, 10, "3.0.5"}}) {
        m_server.setMode(mode);
        for (int version = 1; version <= 11; ++version) {
            auto answer = get("/api/tags/", version);
            auto isTaken = version >= lowest && version <= highest;
            ASSERT_EQ(answer->status, isTaken ? 200 : 406) << name << " " << version;
            EXPECT_EQ(answer->get_header_value("x-version"), isTaken ? name : "");
            EXPECT_EQ(answer->get_header_value("x-api-version"), isTaken ? std::to_string(highest) : "");
        }
    }
}

TEST_F(ModesTest, ARefusedVersionHasNoEffectAndComesBeforeTheLogin) {
    m_server.setMode(ServerMode::V3);
    EXPECT_EQ(patch("/api/documents/1/", 2, {{"title", "anders"}}), 406);
    EXPECT_NE(m_server.document(1).value()["title"], "anders");
    httplib::Client client("127.0.0.1", m_server.port());
    httplib::Headers old{{"Accept", "application/json; version=2"}};
    for (const char* path : {"/api/documents/1/thumb/", "/api/documents/99999/", "/api/ui_settings/"}) {
        auto answer = client.Get(path, old);
        EXPECT_EQ(answer->status, 406) << path;
        EXPECT_EQ(answer->body, R"({"detail":"Invalid version in \"Accept\" header."})") << path;
    }
    EXPECT_EQ(client.Post("/api/token/", old, "{}", "application/json")->status, 406);
}

TEST_F(ModesTest, OneStateShowsInEveryShape) {
    auto field = m_server.add(
        "custom_fields",
        {{"name", "Stand"}, {"data_type", "select"}, {"extra_data", {{"select_options", {"offen", "zu"}}}}});
    auto options = getJson("/api/custom_fields/" + std::to_string(field) + "/", 9)["extra_data"]["select_options"];
    ASSERT_EQ(options[1]["label"], "zu");
    EXPECT_EQ(patch("/api/documents/1/", 2, {{"custom_fields", {{{"field", field}, {"value", 1}}}}}), 200);
    auto value = [&](int version) {
        return getJson("/api/documents/1/", version)["custom_fields"][0]["value"];
    };
    EXPECT_EQ(value(2), 1);
    EXPECT_EQ(value(9), options[1]["id"]);
    m_server.setMode(ServerMode::V3);
    EXPECT_EQ(value(10), options[1]["id"]);
    EXPECT_EQ(patch("/api/documents/1/", 9, {{"custom_fields", {{{"field", field}, {"value", options[0]["id"]}}}}}),
              200);
    m_server.setMode(ServerMode::V2_20);
    EXPECT_EQ(value(2), 0);
    EXPECT_EQ(getJson("/api/documents/1/", 9)["created"], getJson("/api/documents/1/", 2)["created_date"]);
}

TEST_F(ModesTest, OnlyTheOlderVersionsListAllIds) {
    m_server.setMode(ServerMode::V3);
    EXPECT_TRUE(getJson("/api/documents/", 9).contains("all"));
    EXPECT_FALSE(getJson("/api/documents/", 10).contains("all"));
    EXPECT_EQ(getJson("/api/tags/", 9)["display_count"], getJson("/api/tags/", 9)["count"]);
    EXPECT_TRUE(getJson("/api/documents/1/", 9)["versions"].is_array());
}

TEST_F(ModesTest, IsUpgradedBetweenTwoRequests) {
    m_server.setModeAfter(2, ServerMode::V3, "GET /api/documents/");
    EXPECT_EQ(get("/api/documents/?page=1", 2)->status, 200);
    EXPECT_EQ(get("/api/tags/", 2)->status, 200);
    EXPECT_EQ(get("/api/documents/?page=2", 2)->status, 200);
    EXPECT_EQ(get("/api/tags/", 2)->status, 406);
    EXPECT_EQ(get("/api/documents/?page=2", 9)->status, 200);
    m_server.setMode(ServerMode::V2_20);
    EXPECT_EQ(get("/api/tags/", 2)->status, 200);
}

} // namespace
} // namespace ledgerfinch::support
