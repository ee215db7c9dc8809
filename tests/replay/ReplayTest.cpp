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

std::filesystem::path dataFile(const std::string& name) {
    return PaperlessServer::dataFolder() / "paperless" / name;
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
    auto status = support::lowerAscii(task.value("status", ""));
    return status == "pending" ? 0 : status == "started" ? 1 : 2;
}

/// The tasks in an answer, bare, in a page, or one alone.
Json tasksIn(const Json& json) {
    if (json.is_array()) return json;
    if (!json.is_object()) return Json::array();
    if (json.contains("task_id") && json.contains("id")) return Json::array({json});
    return json.value("results", Json::array());
}

/// One server as it was recorded: which release, from which records on, at what time.
struct Recording {
    std::string server; ///< names the files of exchanges and exceptions
    support::ServerMode mode = support::ServerMode::V2_20;
    std::string records;
    support::RecordedMoment moment = support::RecordedMoment::BeforeUploads;
    const char* time = "";
};

class ReplayTest : public testing::Test {
protected:
    void SetUp() override { m_server.setTaskPace(support::TaskPace::Manual); }

    void start(const Recording& recording) {
        m_exchanges = readExchanges(dataFile(recording.server + ".jsonl"));
        m_exceptions = readExceptions(dataFile(recording.server + ".tsv").string());
        m_server.seedFromRecordings(recording.moment, recording.records);
        m_server.setMode(recording.mode);
        m_now = *support::parseTime(recording.time);
        m_server.setTime(m_now);
        m_server.start();
    }

    void replay(const std::string& phase) {
        std::size_t count = 0;
        for (const auto& exchange : m_exchanges) {
            if (exchange.phase != phase) continue;
            ++count;
            replayOne(exchange);
        }
        ASSERT_GT(count, 0U);
        RecordProperty(phase, int(count));
    }

    /// The author of the notes of document 4 was deleted between two recordings.
    void removeNoteAuthor() {
        m_server.withState([](support::State& state) {
            for (auto& note : state.documents.at(4).notes)
                note.user.reset();
        });
    }

    void freeSerialNumberZero() {
        m_server.withState([](support::State& state) {
            for (auto& [id, document] : state.documents) {
                if (document.archiveSerialNumber == 0) document.archiveSerialNumber.reset();
            }
        });
    }

    PaperlessServer m_server;

private:
    void replayOne(const Exchange& exchange) {
        letWorkerCatchUp(exchange.json);
        auto answer = ask(exchange);
        auto found = m_exceptions.find(exchange.name);
        auto excused = found == m_exceptions.end() ? std::string() : found->second.part;
        if (!answer) {
            ADD_FAILURE() << exchange.name << ": no answer";
            return;
        }
        auto differences = differencesOf(exchange, *answer, excused.find("values") != std::string::npos);
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
        for (const auto& task : tasksIn(expected)) {
            if (!task.is_object() || !task.contains("task_id") || !task.contains("id")) continue;
            auto id = task["id"].get<support::Id>();
            auto reached = m_server.withState([&](support::State& state) {
                auto found = state.tasks.find(id);
                return found == state.tasks.end() ? 2 : int(found->second.state);
            });
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
        request.body = renamedText(exchange.body, m_renamings);
        auto result = client.send(request);
        if (!result) return std::nullopt;
        return result.value();
    }

    using Difference = std::pair<std::string, std::string>;

    std::vector<Difference> differencesOf(const Exchange& exchange, const httplib::Response& answer, bool onlyShape) {
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
        auto etag = exchange.answerHeaders.find("etag");
        if ((etag != exchange.answerHeaders.end()) != answer.has_header("etag")) {
            list.emplace_back("headers", "etag is there on one side only");
        } else if (answer.has_header("etag")) {
            m_renamings.emplace_back(etag->second, answer.get_header_value("etag"));
        }
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
        Comparison comparison{m_now, &m_renamings, isSearch && exchange.path.starts_with("/api/documents/"), false, {}};
        comparison.compare(exchange.json, json, "");
        auto values = std::move(comparison.differences);
        if (onlyShape) {
            Comparison shape{m_now, &m_renamings, false, true, {}};
            shape.compare(exchange.json, json, "");
            for (auto& text : shape.differences)
                list.emplace_back("body", std::move(text));
        }
        for (auto& text : values)
            list.emplace_back(onlyShape ? "values" : "body", std::move(text));
        return list;
    }

    /// HTTP dates of files and records that were changed during the replay.
    bool isLaterTime(const std::string& expected, const std::string& actual) const {
        auto wanted = support::parseHttpDate(expected), got = support::parseHttpDate(actual);
        return wanted && got && *wanted >= m_now && *got >= m_now;
    }

    std::vector<Exchange> m_exchanges;
    std::map<std::string, Exception> m_exceptions;
    Renamings m_renamings;
    support::Micros m_now = 0;
};

using support::RecordedMoment;
using support::ServerMode;

TEST_F(ReplayTest, UploadsAndTheirTasksAnswerAsRecorded) {
    start({"2.20.15", ServerMode::V2_20, "", RecordedMoment::BeforeUploads, "2026-11-22T19:58:36Z"});
    replay("uploads");
}

TEST_F(ReplayTest, ReadingAndWritingAnswerAsRecorded) {
    start({"2.20.15", ServerMode::V2_20, "", RecordedMoment::AfterUploads, "2026-11-22T19:59:20Z"});
    replay("main");
    removeNoteAuthor();
    replay("note-author");
}

TEST_F(ReplayTest, ChangesThatMoveModifiedAnswerAsRecorded) {
    start({"2.20.15", ServerMode::V2_20, "", RecordedMoment::BeforeUploads, "2026-11-22T20:06:00Z"});
    replay("sync");
}

TEST_F(ReplayTest, TwoAnswersVersionTwoAsRecorded) {
    start({"2.20.15", ServerMode::V2_20, "2.20.15-again", RecordedMoment::BeforeUploads, "2026-11-22T20:25:10Z"});
    replay("v2");
}

TEST_F(ReplayTest, TwoAnswersVersionNineAsRecorded) {
    start({"2.20.15", ServerMode::V2_20, "2.20.15-again", RecordedMoment::BeforeUploads, "2026-11-22T20:26:30Z"});
    replay("v9");
    m_server.finishTasks();
    replay("v9-versions");
    removeNoteAuthor();
    replay("v9-author");
    freeSerialNumberZero();
    replay("v9-selects");
}

TEST_F(ReplayTest, ChangesThatMoveModifiedAnswerAsRecordedInVersionNine) {
    start({"2.20.15", ServerMode::V2_20, "2.20.15-again", RecordedMoment::BeforeUploads, "2026-11-22T20:34:00Z"});
    replay("sync-v9");
}

TEST_F(ReplayTest, TwoSevenAnswersAsRecorded) {
    start({"2.7.2", ServerMode::V2_7, "2.7.2", RecordedMoment::BeforeUploads, "2026-11-22T20:11:52Z"});
    replay("uploads");
}

TEST_F(ReplayTest, TwoSevenReadsAsRecorded) {
    start({"2.7.2", ServerMode::V2_7, "2.7.2", RecordedMoment::AfterUploads, "2026-11-22T20:12:17Z"});
    replay("main");
}

TEST_F(ReplayTest, TwoSevenWritesAsRecorded) {
    start({"2.7.2", ServerMode::V2_7, "2.7.2-again", RecordedMoment::AfterUploads, "2026-11-22T20:13:26Z"});
    replay("mutations");
}

TEST_F(ReplayTest, ThreeAnswersVersionNineAsRecorded) {
    start({"3.0.5", ServerMode::V3, "3.0.5", RecordedMoment::BeforeUploads, "2026-11-22T20:29:17Z"});
    m_server.setLeavesRemovedOptions(true);
    replay("v9");
}

TEST_F(ReplayTest, ThreeAnswersVersionTenAsRecorded) {
    start({"3.0.5", ServerMode::V3, "3.0.5", RecordedMoment::BeforeUploads, "2026-11-22T20:30:07Z"});
    replay("v10");
    replay("v10-versions");
    for (support::Id task : {13, 13, 14, 14})
        m_server.advanceTask(task);
    removeNoteAuthor();
    replay("v10-author");
    m_server.finishTasks();
    freeSerialNumberZero();
    replay("v10-selects");
}

TEST_F(ReplayTest, ThreeSharesViewsAsRecorded) {
    start({"3.0.5", ServerMode::V3, "3.0.5", RecordedMoment::BeforeUploads, "2026-11-22T20:42:00Z"});
    replay("owners");
}

TEST_F(ReplayTest, ThreeRefusesDuplicatesAsRecorded) {
    start({"3.0.5", ServerMode::V3, "3.0.5", RecordedMoment::BeforeUploads, "2026-11-22T20:36:00Z"});
    m_server.setRefusesDuplicates(true);
    replay("duplicates");
    m_server.withState([](support::State& state) { state.documents.at(253).deletedAt = state.now(); });
    replay("duplicates-trash");
}

TEST_F(ReplayTest, ThreeMovesModifiedAsRecorded) {
    start({"3.0.5", ServerMode::V3, "3.0.5", RecordedMoment::BeforeUploads, "2026-11-22T20:34:00Z"});
    replay("sync-v9");
}

TEST(Exceptions, NameRecordedExchanges) {
    for (const std::string server : {"2.7.2", "2.20.15", "3.0.5"}) {
        std::set<std::string> names;
        for (const auto& exchange : readExchanges(dataFile(server + ".jsonl")))
            names.insert(exchange.name);
        for (const auto& [name, exception] : readExceptions(dataFile(server + ".tsv").string()))
            EXPECT_TRUE(names.contains(name)) << name;
    }
}

} // namespace
} // namespace ledgerfinch::replay
