// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"

#include "sync/SyncLock.h"

namespace ledgerfinch::cli {
namespace {

using support::Fault;

class SyncTest : public CommandTest {
protected:
    SyncTest() {
        server.generate(250);
        server.start();
    }
    void SetUp() override { ASSERT_EQ(login(server).code, ExitCode::Ok); }
    std::size_t documentsHere() { return run({"list", "--json"}).json().size(); }
    support::PaperlessServer server;
};

TEST_F(SyncTest, IsQuietOffTheTerminalAndTellsItsStagesOnIt) {
    const auto quiet = run({"sync"});
    EXPECT_EQ(quiet.code, ExitCode::Ok);
    EXPECT_EQ(quiet.out + quiet.err, "");
    EXPECT_EQ(documentsHere(), 250u);
    errIsTerminal = true;
    width = 60;
    const auto told = run({"sync", "--full"});
    EXPECT_NE(told.err.find("\rFetching tags from server"), std::string::npos);
    EXPECT_NE(told.err.find("Received 250 documents"), std::string::npos);
    EXPECT_TRUE(told.err.ends_with("\r\x1b[K"));
    EXPECT_EQ(told.err.find('\n'), std::string::npos);
}

TEST_F(SyncTest, FullAsksForEverythingAgain) {
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    server.clearRequests();
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    EXPECT_EQ(server.requestCount("GET /api/documents/?full_perms"), 0u);
    EXPECT_GT(server.requestCount("GET /api/documents/?modified__gt"), 0u);
    server.clearRequests();
    ASSERT_EQ(run({"sync", "--full"}).code, ExitCode::Ok);
    EXPECT_EQ(server.requestCount("GET /api/documents/?modified__gt"), 0u);
    EXPECT_GT(server.requestCount("GET /api/documents/?full_perms"), 0u);
}

TEST_F(SyncTest, TellsScriptsHowItEnded) {
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);

    server.faults().onPath("/api/documents/", Fault::answer(500));
    const auto partly = run({"sync"});
    EXPECT_EQ(partly.code, ExitCode::PartlyFailed);
    EXPECT_NE(partly.err.find("Not everything came."), std::string::npos) << partly.err;
    server.faults().clear();

    const auto storeFile = std::filesystem::path(std::string(run({"status", "--json"}).json()["store"]["file"]));
    {
        Paths paths = Paths::standard(data()).value();
        const auto held = SyncLock::tryLock(paths, storeFile);
        ASSERT_TRUE(held.ok());
        const auto busy = run({"sync"});
        EXPECT_EQ(busy.code, ExitCode::Busy);
        EXPECT_EQ(busy.err, "Another process is syncing this store. Try again later.\n");
    }

    server.faults().onPath("/api/", Fault::answer(401));
    const auto refused = run({"sync"});
    EXPECT_EQ(refused.code, ExitCode::Refused);
    const auto host = server.url().substr(std::string("http://").size());
    EXPECT_EQ(refused.err, host + ": The server didn't accept the stored token. Please log in again.\n");
    server.faults().clear();
    EXPECT_EQ(documentsHere(), 250u);

    ASSERT_EQ(login(server).code, ExitCode::Ok);
    server.stop();
    const auto down = run({"sync"});
    EXPECT_EQ(down.code, ExitCode::Unreachable);
    EXPECT_EQ(down.err, "No answer from " + host +
                            ": Connection refused. Is the address right, and is the server running? The local "
                            "documents stay as they are.\n");
    EXPECT_EQ(documentsHere(), 250u);
}

TEST_F(SyncTest, WaitsForTheFilesThatTheSettingsAskFor) {
    ASSERT_EQ(run({"settings", "set", "download_all", "true"}).code, ExitCode::Ok);
    server.generate(5);
    ASSERT_EQ(login(server).code, ExitCode::Ok);
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    EXPECT_EQ(run({"status", "--json"}).json()["downloads"]["files"], 5);
}

} // namespace
} // namespace ledgerfinch::cli
