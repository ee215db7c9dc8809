// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"

#include <algorithm>
#include <fstream>
#include <thread>

#include <sys/stat.h>

namespace ledgerfinch::cli {
namespace {

using support::Fault;

class LoginTest : public CommandTest {
protected:
    LoginTest() {
        server.generate(3);
        server.start();
    }
    support::PaperlessServer server;
};

TEST_F(LoginTest, WithPasswordKeepsTheTokenAndOpensAStoreOfItsOwn) {
    const auto ran = login(server);
    EXPECT_EQ(ran.code, ExitCode::Ok) << ran.err;
    EXPECT_EQ(ran.out, "Logged in at " + server.url() + ".\n");
    EXPECT_EQ(secrets->read(server.url(), "ledgerfinch.app").data, server.token());
    const auto instances = run({"instances", "--json"}).json();
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0]["address"], server.url());
    EXPECT_EQ(instances[0]["active"], true);
    EXPECT_NE(instances[0]["store"], "Ledgerfinch");
    EXPECT_EQ(run({"sync"}).code, ExitCode::Ok);
}

TEST_F(LoginTest, TakesATokenFromStandardInputOrTheTerminal) {
    EXPECT_EQ(run({"login", server.url(), "--token-stdin"}, server.token() + "\r\nrest").code, ExitCode::Ok);
    EXPECT_EQ(secrets->read(server.url(), "ledgerfinch.app").data, server.token());

    std::string prompt;
    readSecret = [&](std::string_view asked) {
        prompt = asked;
        return server.token("alice");
    };
    EXPECT_EQ(run({"login", server.url(), "--token"}).code, ExitCode::Ok);
    EXPECT_EQ(prompt, "Token: ");
    EXPECT_EQ(secrets->read(server.url(), "ledgerfinch.app").data, server.token("alice"));
}

TEST_F(LoginTest, FailsWithASentenceAndACodeForScripts) {
    const auto refused = run({"login", server.url(), "--user", "admin", "--password-stdin"}, "wrong\n");
    EXPECT_EQ(refused.code, ExitCode::Refused);
    const auto host = server.url().substr(std::string("http://").size());
    const auto wrong = host + ": Invalid credentials. Check the user name and the password, or the token.\n";
    EXPECT_EQ(refused.err, wrong);

    const auto token = run({"login", server.url(), "--token-stdin"}, "0123456789abcdef\n");
    EXPECT_EQ(token.code, ExitCode::Refused);
    EXPECT_EQ(token.err, wrong);

    for (const auto* address : {"http://", "http://exa mple", "ftp://host", "https://\n"}) {
        const auto bad = run({"login", address, "--user", "admin", "--password-stdin"}, "x\n");
        EXPECT_EQ(bad.code, ExitCode::BadData) << address;
        EXPECT_EQ(bad.err, "Server address is invalid!\n") << address;
    }

    server.stop();
    const auto down = login(server);
    EXPECT_EQ(down.code, ExitCode::Unreachable);
    EXPECT_NE(down.err, "");

    EXPECT_EQ(secrets->read(server.url(), "ledgerfinch.app").state, SecretState::Missing);
    EXPECT_EQ(run({"list"}).code, ExitCode::Refused);
    EXPECT_EQ(run({"sync"}).code, ExitCode::Refused);
}

TEST_F(LoginTest, SaysWhenTheServerDidNotConfirmAToken) {
    server.faults().onPath("/api/", Fault::answer(503));
    const auto ran = run({"login", server.url(), "--token-stdin"}, server.token() + "\n");
    EXPECT_EQ(ran.code, ExitCode::Ok);
    EXPECT_NE(ran.err.find(": The server didn't confirm the token. "), std::string::npos) << ran.err;
    EXPECT_NE(ran.err.find("(503)"), std::string::npos) << ran.err;
}

TEST_F(LoginTest, SaysSoAloudWhenItChoosesTheProtocol) {
    const auto ran = run({"login", "127.0.0.1:1", "--user", "ada", "--password-stdin"}, "x\n");
    EXPECT_EQ(ran.code, ExitCode::Unreachable);
    EXPECT_TRUE(ran.err.starts_with("No protocol was given; using https://127.0.0.1:1\n")) << ran.err;
}

TEST_F(LoginTest, NeedsAWayToGetTheSecret) {
    const std::vector<std::vector<std::string>> lines{
        {"login", server.url()},
        {"login", server.url(), "--user", "ada"},
        {"login", server.url(), "--token"},
        {"login", server.url(), "--token", "--user", "ada"},
        {"login", server.url(), "--token-stdin", "--password-stdin"},
    };
    for (const auto& line : lines)
        EXPECT_EQ(run(line).code, ExitCode::Usage);
    EXPECT_EQ(run({"login", server.url(), "--user", "ada", "--password-stdin"}, "\n").code, ExitCode::BadData);
    EXPECT_EQ(run({"login", server.url(), "--token-stdin"}, std::string(10'000, 'x')).code, ExitCode::BadData);
    // What would reach the server as something else than what was given.
    EXPECT_EQ(run({"login", "", "--token-stdin"}, "x\n").code, ExitCode::BadData);
    EXPECT_EQ(run({"login", server.url() + "/\xff", "--token-stdin"}, "x\n").code, ExitCode::BadData);
    EXPECT_EQ(run({"login", server.url(), "--user", "\xff", "--password-stdin"}, "x\n").code, ExitCode::BadData);
    const auto latin = run({"login", server.url(), "--user", "ada", "--password-stdin"}, "gr\xfcn\n");
    EXPECT_EQ(latin.code, ExitCode::BadData);
    EXPECT_EQ(latin.err, "The password isn't text in UTF-8.\n");
    EXPECT_EQ(server.requestCount(), 0u);
}

TEST_F(LoginTest, SendsTheHeadersOfTheFileFromTheFirstRequestOn) {
    const auto file = folder() / "headers";
    std::ofstream(file) << "X-Proxy-Key: hunter2\n";
    std::filesystem::permissions(file, std::filesystem::perms::owner_all | std::filesystem::perms::group_read);
    const auto ran = run({"login", server.url(), "--user", "admin", "--password-stdin", "--header-file", file.string()},
                         "admin-pass\n");
    EXPECT_EQ(ran.code, ExitCode::Ok);
    EXPECT_TRUE(ran.err.starts_with("Warning: other users may read ")) << ran.err;
    EXPECT_EQ(login(server).code, ExitCode::Ok); // without the option they stay
    EXPECT_EQ(run({"sync"}).code, ExitCode::Ok);
    for (const auto& logged : server.requests())
        EXPECT_EQ(logged.request.header("x-proxy-key"), "hunter2") << logged.request.target;
    EXPECT_EQ(run({"login", server.url(), "--token-stdin", "--header-file", (folder() / "none").string()}, "x").code,
              ExitCode::NotFound);
    EXPECT_EQ(run({"login", server.url(), "--token-stdin", "--header-file", folder().string()}, "x").code,
              ExitCode::NotFound);
    // A shell's "<(pass show proxy)" is a pipe.
    const auto pipe = folder() / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer([&] { std::ofstream(pipe) << "X-Proxy-Key: from the pipe\n"; });
    server.clearRequests();
    const auto piped = run(
        {"login", server.url(), "--user", "admin", "--password-stdin", "--header-file", pipe.string()}, "admin-pass\n");
    writer.join();
    EXPECT_EQ(piped.code, ExitCode::Ok) << piped.err;
    EXPECT_EQ(server.requests()[0].request.header("x-proxy-key"), "from the pipe");
}

TEST_F(LoginTest, ThatFailsElsewhereLeavesTheActiveServerActive) {
    ASSERT_EQ(login(server).code, ExitCode::Ok);
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    support::PaperlessServer other;
    other.generate(1);
    other.start();
    EXPECT_EQ(run({"login", other.url(), "--user", "admin", "--password-stdin"}, "wrong\n").code, ExitCode::Refused);
    EXPECT_EQ(run({"status", "--json"}).json()["server"], server.url());
    EXPECT_EQ(run({"list", "--json"}).json().size(), 3u);
}

TEST_F(LoginTest, AndLogoutForgetTheTokenButNotTheDocuments) {
    ASSERT_EQ(login(server).code, ExitCode::Ok);
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    EXPECT_EQ(run({"logout"}).code, ExitCode::Ok);
    EXPECT_EQ(secrets->read(server.url(), "ledgerfinch.app").state, SecretState::Missing);
    EXPECT_EQ(run({"list", "--json"}).json().size(), 3u);
    const auto sync = run({"sync"});
    EXPECT_EQ(sync.code, ExitCode::Refused);
    EXPECT_TRUE(sync.err.starts_with("No token found.")) << sync.err;
}

TEST_F(LoginTest, TellsALockedSecretStoreFromAMissingToken) {
    ASSERT_EQ(login(server).code, ExitCode::Ok);
    secrets->setLocked(true);
    const auto sync = run({"sync"});
    EXPECT_EQ(sync.code, ExitCode::Refused);
    EXPECT_TRUE(sync.err.starts_with("The secret store that keeps the token is locked")) << sync.err;
    EXPECT_EQ(run({"logout"}).code, ExitCode::Refused);
    secrets->setLocked(false);
    EXPECT_EQ(run({"sync"}).code, ExitCode::Ok);
}

} // namespace
} // namespace ledgerfinch::cli
