// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/ProgramTest.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

namespace ledgerfinch::cli {
namespace {

using support::Fault;

constexpr int kBadData = toInt(ExitCode::BadData);
constexpr int kNotFound = toInt(ExitCode::NotFound);
constexpr int kUnreachable = toInt(ExitCode::Unreachable);
constexpr int kRefused = toInt(ExitCode::Refused);
constexpr int kPartlyFailed = toInt(ExitCode::PartlyFailed);
constexpr int kInterrupted = toInt(ExitCode::Interrupted);

class ServerTroubleTest : public ProgramTest {
protected:
    [[nodiscard]] std::string host() const { return server.url().substr(std::string("http://").size()); }

    [[nodiscard]] static std::vector<std::string> login(const std::string& url) {
        return {"login", url, "--user", "admin", "--password-stdin"};
    }

    /// One sentence on one line that names the host, and nothing of what the server sent.
    static void expectSentence(const Ended& ran, int code, const std::string& host, const std::string& part,
                               const std::string& what) {
        EXPECT_EQ(ran.code, code) << what << ": " << ran.err;
        EXPECT_EQ(ran.out, "") << what;
        EXPECT_EQ(std::count(ran.err.begin(), ran.err.end(), '\n'), 1) << what << ": " << ran.err;
        EXPECT_NE(ran.err.find(host), std::string::npos) << what << ": " << ran.err;
        EXPECT_NE(ran.err.find(part), std::string::npos) << what << ": " << ran.err;
        EXPECT_EQ(ran.err.find('<'), std::string::npos) << what << ": " << ran.err;
    }
};

TEST_F(ServerTroubleTest, IsToldInOneSentenceWithACodeByLoginSyncAndDownload) {
    loginAndSync();
    const struct {
        const char* what;
        Fault fault;
        std::string part;
        int login;
        int sync;
        std::optional<int> download; ///< absent: any body may be a document
    } troubles[] = {
        {"a web page", Fault::htmlPage(), "web page", kBadData, kBadData, kBadData},
        {"garbage for JSON", Fault::answer(200, "]]{{<garbage"), "not what was asked for", kBadData, kBadData, {}},
        {"an empty body", Fault::answer(200), "The server", kBadData, kBadData, kBadData},
        {"an error of its own", Fault::answer(500, "<h1>Traceback</h1>", "text/html"), "(500)", kUnreachable,
         kUnreachable, kUnreachable},
        {"a gateway's error", Fault::answer(503, "<h1>Busy</h1>", "text/html"), "(503)", kUnreachable, kUnreachable,
         kUnreachable},
        {"too many requests", Fault::answer(429), "(429)", kUnreachable, kUnreachable, kUnreachable},
        {"no rights", Fault::answer(403, "{\"detail\":\"<no>\"}"), "(403)", kRefused, kRefused, kRefused},
        {"a refused token", Fault::answer(401), "", kRefused, kRefused, kRefused},
        {"another server", Fault::answer(404, "<h1>Not here</h1>", "text/html"), "(404)", kNotFound, kNotFound,
         kNotFound},
        {"the way to elsewhere", Fault::redirect("http://elsewhere.invalid/api/"), "http://elsewhere.invalid", kBadData,
         kBadData, kBadData},
        {"the way to https", Fault::redirect("https://127.0.0.1/accounts/"), "https://127.0.0.1", kBadData, kBadData,
         kBadData},
        {"a closed connection", Fault::dropConnection(), "No answer from", kUnreachable, kUnreachable, kUnreachable},
        {"something else than HTTP", Fault::garbage(), "No answer from", kUnreachable, kUnreachable, kUnreachable},
    };
    for (const auto& [what, fault, part, loginCode, syncCode, downloadCode] : troubles) {
        server.faults().onPath(" /api/", fault);
        expectSentence(run(login(server.url()), "admin-pass\n"), loginCode, host(), part,
                       std::string("login to ") + what);
        if (downloadCode)
            expectSentence(run({"download", "1", "-o", (folder / "1.pdf").string()}), *downloadCode, host(), part,
                           std::string("download from ") + what);
        expectSentence(run({"sync"}), syncCode, host(), part, std::string("sync with ") + what);
        server.faults().clear();
        EXPECT_FALSE(std::filesystem::exists(folder / "1.pdf")) << what;
        ASSERT_EQ(run(login(server.url()), "admin-pass\n").code, 0) << what;
        const auto synced = run({"sync"});
        EXPECT_EQ(synced.code, 0) << what << ": " << synced.err;
        EXPECT_EQ(nlohmann::json::parse(run({"list", "--json"}).out).size(), 120u) << what;
    }
}

TEST_F(ServerTroubleTest, ThatStrikesTheDocumentsAloneIsToldToo) {
    loginAndSync();
    const struct {
        Fault fault;
        std::string part;
        int code;
    } troubles[] = {
        {Fault::answer(401), "Please log in again", kRefused},
        {Fault::answer(500), "(500)", kPartlyFailed},
        {Fault::htmlPage(), "web page", kPartlyFailed},
        {Fault::truncatedJson(), "can't be read", kPartlyFailed},
        {Fault::dropConnection(), "No answer from", kPartlyFailed},
        {Fault::redirect("https://elsewhere.invalid/"), "https://elsewhere.invalid", kPartlyFailed},
    };
    for (const auto& [fault, part, code] : troubles) {
        server.faults().onPath("/api/documents/\\?", fault);
        const auto ran = run({"sync", "--full"});
        expectSentence(ran, code, host(), part, part);
        EXPECT_EQ(ran.err.find("the next sync makes up for the rest") != std::string::npos, code == kPartlyFailed);
        server.faults().clear();
        ASSERT_EQ(run(login(server.url()), "admin-pass\n").code, 0);
        EXPECT_EQ(run({"sync"}).code, 0) << part;
    }
    EXPECT_EQ(nlohmann::json::parse(run({"list", "--json"}).out).size(), 120u);
}

TEST_F(ServerTroubleTest, OfReachingItIsToldWithTheWayOut) {
    loginAndSync();
    expectSentence(run(login("https://" + host()), "x\n"), kUnreachable, host(), "secure connection", "TLS");
    expectSentence(run(login("http://nowhere.invalid"), "x\n"), kUnreachable, "nowhere.invalid", "Check the address",
                   "DNS");
    expectSentence(run({"instances", "add", "http://nowhere.invalid", "--user", "a", "--password-stdin"}, "x\n"),
                   kUnreachable, "nowhere.invalid", "Check the address", "DNS");
    server.stop();
    for (const auto& words : {login(server.url()), {"sync"}, {"download", "1"}})
        expectSentence(run(words, "admin-pass\n"), kUnreachable, host(), "is the server running?", words[0]);
    EXPECT_EQ(run({"download", "999"}).code, kNotFound);
}

TEST_F(ServerTroubleTest, ADocumentThatIsGoneIsNotFound) {
    loginAndSync();
    server.removeDocument(7);
    expectSentence(run({"download", "7"}), kNotFound, host(), "(404)", "download");
    expectSentence(run({"download", "7", "--original"}), kNotFound, host(), "(404)", "download --original");
}

TEST_F(ServerTroubleTest, AWaitIsEndedByCtrlCAtOnce) {
    loginAndSync();
    ASSERT_EQ(run({"settings", "set", "download_all", "true"}).code, 0);
    const struct {
        std::vector<std::string> words;
        std::string path;
    } waits[] = {
        {login(server.url()), "/api/token/"},
        {{"sync", "--full"}, "/api/groups/"},
        {{"sync", "--full"}, "/api/documents/\\?"},
        {{"sync"}, "/api/documents/\\d+/download/"},
        {{"download", "3"}, "/api/documents/3/download/"},
        {{"download", "3"}, "/api/documents/3/metadata/"},
        {{"download", "3", "--original"}, "/api/documents/3/download/"},
        {{"instances", "use", server.url()}, "/api/documents/\\?"},
        {{"instances", "add", server.url(), "--token-stdin"}, "/api/documents/\\?"},
    };
    for (const auto& [words, path] : waits) {
        server.faults().onPath(path, Fault::stall(0));
        Subprocess program(withFolder(words));
        program.write(words[0] == "instances" ? server.token() + "\n" : "admin-pass\n");
        while (server.faults().stalled() == 0)
            ASSERT_TRUE(program.isRunning()) << words[0] << ' ' << path << program.wait() << program.err();
        const auto asked = std::chrono::steady_clock::now();
        program.signal(SIGINT);
        EXPECT_EQ(program.wait(), kInterrupted) << words[0] << ' ' << path << program.err();
        // A request that is left to itself ends after a minute without a byte.
        EXPECT_LT(std::chrono::steady_clock::now() - asked, std::chrono::seconds(20)) << words[0] << ' ' << path;
        EXPECT_TRUE(program.err().starts_with("Stopped.")) << words[0] << ": " << program.err();
        EXPECT_EQ(std::count(program.err().begin(), program.err().end(), '\n'), 1) << program.err();
        server.faults().clear();
        while (server.faults().stalled() != 0)
            std::this_thread::yield();
    }
    EXPECT_EQ(run({"sync"}).code, 0);
    EXPECT_EQ(nlohmann::json::parse(run({"status", "--json"}).out)["downloads"]["files"], 120);
}

TEST_F(ServerTroubleTest, ARemovedServerLeavesNothingBehind) {
    loginAndSync();
    support::PaperlessServer second;
    second.generate(3);
    second.start();
    const auto add = std::vector<std::string>{"instances", "add", second.url(), "--user", "admin", "--password-stdin"};
    ASSERT_EQ(run(add, "admin-pass\n").code, 0);
    ASSERT_EQ(run({"instances", "use", second.url()}).code, 0);
    ASSERT_EQ(run({"sync"}).code, 0);
    const std::string store = nlohmann::json::parse(run({"status", "--json"}).out)["store"]["name"];
    ASSERT_EQ(run({"download", "2", "-o", (folder / "2.pdf").string()}).code, 0);
    ASSERT_EQ(run({"instances", "use", server.url()}).code, 0);
    ASSERT_EQ(run({"download", "2", "-o", (folder / "other.pdf").string()}).code, 0);
    const auto here = nlohmann::json::parse(run({"status", "--json"}).out)["downloads"];

    const auto removed = run({"instances", "remove", second.url() + "/", "--yes"});
    EXPECT_EQ(removed.code, 0) << removed.err;
    EXPECT_EQ(removed.out, "Disconnected from " + second.url() + ".\n");
    const auto port = std::to_string(second.port());
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder / "data")) {
        const auto name = entry.path().filename().string();
        EXPECT_FALSE(name.starts_with(store)) << entry.path();
        if (!name.ends_with(".ini") && !name.starts_with("secrets")) continue;
        EXPECT_EQ(read(entry.path()).find(port), std::string::npos) << entry.path() << '\n' << read(entry.path());
    }
    // What the other server's documents have stays.
    EXPECT_EQ(nlohmann::json::parse(run({"list", "--json"}).out).size(), 120u);
    EXPECT_EQ(nlohmann::json::parse(run({"status", "--json"}).out)["downloads"]["files"], 1);
    EXPECT_GT(here["files"], 1);
    EXPECT_EQ(run({"sync"}).code, 0);
    EXPECT_EQ(run({"instances", "remove", second.url(), "--yes"}).code, kNotFound);
}

} // namespace
} // namespace ledgerfinch::cli
