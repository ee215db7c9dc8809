// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"

#include <algorithm>

namespace ledgerfinch::cli {
namespace {

class InstancesTest : public CommandTest {
protected:
    InstancesTest() {
        first.generate(4);
        first.start();
        second.generate(0);
        second.addDocument({{"title", "Only on the second"}});
        second.start();
    }
    void connectBoth() {
        ASSERT_EQ(login(first).code, ExitCode::Ok);
        const auto added =
            run({"instances", "add", second.url(), "--user", "admin", "--password-stdin"}, "admin-pass\n");
        ASSERT_EQ(added.code, ExitCode::Ok) << added.err;
    }
    std::vector<std::string> titles() {
        std::vector<std::string> all;
        for (const auto& document : run({"list", "--json"}).json())
            all.push_back(document["title"]);
        return all;
    }
    support::PaperlessServer first;
    support::PaperlessServer second;
};

TEST_F(InstancesTest, NeverMixTheirDocuments) {
    connectBoth();
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    ASSERT_EQ(titles().size(), 4u);
    ASSERT_EQ(run({"instances", "use", second.url() + "/"}).code, ExitCode::Ok);
    EXPECT_EQ(titles(), std::vector<std::string>{});
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    EXPECT_EQ(titles(), std::vector<std::string>{"Only on the second"});
    ASSERT_EQ(run({"instances", "use", first.url()}).code, ExitCode::Ok);
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    const auto again = titles();
    EXPECT_EQ(again.size(), 4u);
    EXPECT_EQ(std::count(again.begin(), again.end(), "Only on the second"), 0);
}

TEST_F(InstancesTest, KeepTheDateOfTheirOwnLastSync) {
    connectBoth();
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    ASSERT_EQ(run({"instances", "use", second.url()}).code, ExitCode::Ok);
    EXPECT_EQ(run({"status", "--json"}).json()["last_successful_sync"], nullptr);
    second.clearRequests();
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    EXPECT_EQ(second.requestCount("GET /api/documents/?modified__gt"), 0u);
    ASSERT_EQ(run({"instances", "use", first.url()}).code, ExitCode::Ok);
    EXPECT_TRUE(run({"status", "--json"}).json()["last_successful_sync"].is_string());
}

TEST_F(InstancesTest, RemoveASecondServerButNeverTheActiveOne) {
    connectBoth();
    ASSERT_EQ(run({"instances", "use", second.url()}).code, ExitCode::Ok);
    ASSERT_EQ(run({"sync"}).code, ExitCode::Ok);
    const auto active = run({"instances", "remove", second.url(), "--yes"});
    EXPECT_EQ(active.code, ExitCode::Failed);
    EXPECT_EQ(active.err, "You can't disconnect from the currently active instance. Please switch and try again.\n");

    ASSERT_EQ(run({"instances", "use", first.url()}).code, ExitCode::Ok);
    EXPECT_EQ(run({"instances", "remove", second.url()}).code, ExitCode::Usage);
    EXPECT_EQ(run({"instances", "remove", "http://unknown", "--yes"}).code, ExitCode::NotFound);
    EXPECT_EQ(run({"instances", "remove", second.url(), "--yes"}).code, ExitCode::Ok);
    EXPECT_EQ(run({"instances", "--json"}).json().size(), 1u);
    EXPECT_EQ(secrets->read(second.url(), "ledgerfinch.app").state, SecretState::Missing);
    EXPECT_EQ(run({"instances", "use", second.url()}).code, ExitCode::NotFound);

    // Connected again, it begins empty.
    ASSERT_EQ(run({"instances", "add", second.url(), "--token-stdin"}, second.token()).code, ExitCode::Ok);
    ASSERT_EQ(run({"instances", "use", second.url()}).code, ExitCode::Ok);
    EXPECT_EQ(titles(), std::vector<std::string>{});
}

TEST_F(InstancesTest, TakeNoWordsAndOptionsThatWouldNotCount) {
    ASSERT_EQ(login(first).code, ExitCode::Ok);
    const std::vector<std::vector<std::string>> lines{
        {"instances", "list", "extra"},
        {"instances", "--yes"},
        {"instances", "list", "--user", "ada"},
        {"instances", "use", first.url(), "--json"},
        {"instances", "use", ""},
        {"instances", "remove", first.url(), "--token-stdin"},
        {"instances", "add", second.url(), "--user", "admin", "--password-stdin", "--yes"},
    };
    for (const auto& line : lines) {
        const auto ran = run(line, "admin-pass\n");
        EXPECT_EQ(ran.code, ExitCode::Usage) << line[1];
        EXPECT_NE(ran.err, "");
    }
    EXPECT_EQ(second.requestCount(), 0u);
    EXPECT_EQ(run({"instances", "list", "--json"}).json().size(), 1u);
}

TEST_F(InstancesTest, AreNotAddedOrSwitchedToWithoutALogin) {
    ASSERT_EQ(login(first).code, ExitCode::Ok);
    const auto wrong = run({"instances", "add", second.url(), "--user", "admin", "--password-stdin"}, "wrong\n");
    EXPECT_EQ(wrong.code, ExitCode::Refused);
    EXPECT_NE(wrong.err.find(": Invalid credentials. "), std::string::npos) << wrong.err;
    EXPECT_EQ(run({"instances", "--json"}).json().size(), 1u);

    ASSERT_EQ(run({"instances", "add", second.url(), "--token-stdin"}, second.token()).code, ExitCode::Ok);
    (void)secrets->remove(second.url(), "ledgerfinch.app");
    const auto use = run({"instances", "use", second.url()});
    EXPECT_EQ(use.code, ExitCode::Refused);
    EXPECT_TRUE(use.err.starts_with("No token found for ")) << use.err;
    EXPECT_EQ(run({"status", "--json"}).json()["server"], first.url());
}

} // namespace
} // namespace ledgerfinch::cli
