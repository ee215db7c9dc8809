// SPDX-License-Identifier: GPL-3.0-or-later
// Asks the sample server everything that a real server was asked, in the same order, and compares the answers.
#include "replay/Comparison.h"
#include "replay/Exchange.h"
#include "support/PaperlessServer.h"

#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <cstdlib>
#include <set>

namespace ledgerfinch::replay {
namespace {

using support::PaperlessServer;

const std::string& dataFolder() {
    static const auto folder = (PaperlessServer::dataFolder() / "paperless").string();
    return folder;
}

/// Headers that carry meaning for a client. The rest is the same on every answer.
const std::vector<std::string> comparedHeaders{"content-type",     "vary",          "allow",
                                               "x-api-version",    "x-version",     "content-language",
                                               "www-authenticate", "location",      "content-disposition",
                                               "cache-control",    "last-modified", "content-encoding"};

std::string renamedText(std::string text, const Renamings& renamings) {
    for (const auto& [from, to] : renamings) {
        for (auto at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size()))
            text.replace(at, from.size(), to);
    }
    return text;
}

/// How far the recording's worker had got with a task.
int progressOf(const Json& task) {
    auto status = task.value("status", "");
    return status == "PENDING" ? 0 : status == "STARTED" ? 1 : 2;
}

class ReplayTest : public testing::Test {
protected:
    void SetUp() override {
        m_exceptions = readExceptions(dataFolder() + "/exceptions.tsv");
        m_server.setTaskPace(support::TaskPace::Manual);
    }

    void startAt(const char* time) {
        m_now = *support::parseTime(time);
        m_server.setTime(m_now);
        m_server.start();
    }

    void replay(const std::string& phase) {
        std::size_t count = 0;
        for (const auto& exchange : readExchanges(dataFolder() + "/exchanges.jsonl")) {
            if (exchange.phase != phase) continue;
            ++count;
            replayOne(exchange);
        }
        ASSERT_GT(count, 0U);
    }

    PaperlessServer m_server;

private:
    void replayOne(const Exchange& exchange) {
        if (exchange.phase == "uploads") letWorkerCatchUp(exchange.json);
        auto answer = ask(exchange);
        auto found = m_exceptions.find(exchange.name);
        auto excused = found == m_exceptions.end() ? std::string() : found->second.part;
        if (!answer) {
            ADD_FAILURE() << exchange.name << ": no answer";
            return;
        }
        auto differences = differencesOf(exchange, *answer);
        std::string unexcused;
        auto isExcused = false;
        for (const auto& [part, text] : differences) {
            if (excused == "all" || excused.find(part) != std::string::npos) {
                isExcused = true;
            } else {
                unexcused += "\n  " + part + ": " + text;
            }
        }
        if (!unexcused.empty()) ADD_FAILURE() << exchange.name << unexcused;
        if (!excused.empty() && !isExcused)
            ADD_FAILURE() << exchange.name << " is excused from " << excused << " but matches: remove the exception";
    }

    void letWorkerCatchUp(const Json& expected) {
        auto tasks = expected.is_array() ? expected : Json::array();
        for (const auto& task : tasks) {
            if (!task.is_object() || !task.contains("task_id")) continue;
            auto id = task["id"].get<support::Id>();
            auto reached = m_server.withState([&](support::State& state) { return int(state.tasks.at(id).state); });
            for (; reached < progressOf(task); ++reached)
                m_server.advanceTask(id);
        }
    }

    std::optional<httplib::Response> ask(const Exchange& exchange) {
        httplib::Client client("127.0.0.1", m_server.port());
        client.set_url_encode(false);
        httplib::Request request;
        request.method = exchange.method;
        request.path = renamedText(exchange.path, m_renamings);
        request.headers.emplace("Host", "127.0.0.1:8000");
        for (const auto& [name, value] : exchange.headers) {
            if (name == "Host") request.headers.erase(name);
            request.headers.emplace(name, renamedText(value, m_renamings));
        }
        if (!request.has_header("Accept-Encoding")) request.headers.emplace("Accept-Encoding", "identity");
        request.body = exchange.body;
        auto result = client.send(request);
        if (!result) return std::nullopt;
        return result.value();
    }

    using Difference = std::pair<std::string, std::string>;

    std::vector<Difference> differencesOf(const Exchange& exchange, const httplib::Response& answer) {
        std::vector<Difference> list;
        if (exchange.status != answer.status) {
            list.emplace_back("status", "expected " + std::to_string(exchange.status) + ", got " +
                                            std::to_string(answer.status) + " " + answer.body.substr(0, 200));
            return list;
        }
        for (const auto& name : comparedHeaders) {
            auto found = exchange.answerHeaders.find(name);
            auto expected = found == exchange.answerHeaders.end() ? std::string("(none)") : found->second;
            auto actual = answer.has_header(name) ? answer.get_header_value(name) : std::string("(none)");
            // The client library unescapes header values.
            if (name == "content-disposition" || name == "location") expected = support::unescapeUrl(expected, false);
            if (expected != actual && !isLaterTime(expected, actual))
                list.emplace_back("headers", name + " expected " + expected + ", got " + actual);
        }
        if (exchange.answerHeaders.contains("etag") != answer.has_header("etag"))
            list.emplace_back("headers", "etag is there on one side only");
        if (exchange.text && *exchange.text != answer.body)
            list.emplace_back("body", "expected " + *exchange.text + ", got " + answer.body.substr(0, 300));
        if (exchange.json.is_discarded()) return list;
        auto json = Json::parse(answer.body, nullptr, false);
        if (json.is_discarded()) {
            list.emplace_back("body", "not JSON: " + answer.body.substr(0, 200));
            return list;
        }
        auto isSearch = exchange.path.find("?query=") != std::string::npos ||
                        exchange.path.find("more_like_id=") != std::string::npos;
        Comparison comparison{m_now, &m_renamings, isSearch && exchange.path.starts_with("/api/documents/"), {}};
        comparison.compare(exchange.json, json, "");
        for (auto& text : comparison.differences)
            list.emplace_back("body", std::move(text));
        return list;
    }

    /// HTTP dates of files and records that were changed during the replay.
    bool isLaterTime(const std::string& expected, const std::string& actual) const {
        auto wanted = support::parseHttpDate(expected), got = support::parseHttpDate(actual);
        return wanted && got && *wanted >= m_now && *got >= m_now;
    }

    std::map<std::string, Exception> m_exceptions;
    Renamings m_renamings;
    support::Micros m_now = 0;
};

TEST_F(ReplayTest, UploadsAndTheirTasksAnswerAsRecorded) {
    m_server.seedFromRecordings(support::RecordedMoment::BeforeUploads);
    startAt("2026-11-22T19:58:36Z");
    replay("uploads");
}

TEST_F(ReplayTest, ReadingAndWritingAnswerAsRecorded) {
    m_server.seedFromRecordings(support::RecordedMoment::AfterUploads);
    startAt("2026-11-22T19:59:20Z");
    replay("main");
    // The author of a note was deleted between these recordings.
    m_server.withState([](support::State& state) {
        for (auto& note : state.documents.at(4).notes)
            note.user.reset();
    });
    replay("note-author");
}

TEST_F(ReplayTest, ChangesThatMoveModifiedAnswerAsRecorded) {
    m_server.seedFromRecordings(support::RecordedMoment::BeforeUploads);
    startAt("2026-11-22T20:06:00Z");
    replay("sync");
}

TEST_F(ReplayTest, EveryExceptionNamesARecordedExchange) {
    std::set<std::string> names;
    for (const auto& exchange : readExchanges(dataFolder() + "/exchanges.jsonl"))
        names.insert(exchange.name);
    for (const auto& [name, exception] : readExceptions(dataFolder() + "/exceptions.tsv"))
        EXPECT_TRUE(names.contains(name)) << name;
}

} // namespace
} // namespace ledgerfinch::replay
