// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"

#include <fstream>

namespace ledgerfinch::cli {
namespace {

using SettingsTest = CommandTest;

TEST_F(SettingsTest, AreReadAndChangedAcrossRuns) {
    EXPECT_EQ(run({"settings", "get", "skipSyncOnStartup"}).out, "false\n");
    EXPECT_EQ(run({"settings", "set", "skipSyncOnStartup", "on"}).code, ExitCode::Ok);
    EXPECT_EQ(run({"settings", "get", "skipSyncOnStartup"}).out, "true\n");
    EXPECT_EQ(run({"settings", "set", "colorScheme", "dark"}).code, ExitCode::Ok);
    EXPECT_EQ(run({"settings", "get", "colorScheme", "--json"}).json(), "dark");
    const auto all = run({"settings", "--json"}).json();
    EXPECT_EQ(all[0]["key"], "server");
    EXPECT_NE(run({"settings", "list"}).out.find("colorScheme"), std::string::npos);
}

TEST_F(SettingsTest, RefuseWhatTheyCannotHold) {
    const struct {
        std::vector<std::string> words;
        ExitCode code;
    } cases[] = {
        {{"settings", "set", "download_all", "perhaps"}, ExitCode::BadData},
        {{"settings", "set", "download_saved_view", "seven"}, ExitCode::BadData},
        {{"settings", "set", "colorScheme", "pink"}, ExitCode::BadData},
        {{"settings", "set", "server", "http://elsewhere"}, ExitCode::BadData},
        {{"settings", "set", "customHeaders", "hunter2"}, ExitCode::BadData},
        {{"settings", "get", "colourScheme"}, ExitCode::NotFound},
        {{"settings", "set", "colorScheme"}, ExitCode::Usage},
        {{"settings", "get"}, ExitCode::Usage},
        {{"settings", "list", "x"}, ExitCode::Usage},
        {{"settings", "drop"}, ExitCode::Usage},
        {{"settings", "get", ""}, ExitCode::NotFound},
        {{"settings", "set", "defaultOrderByKey", "\xff"}, ExitCode::BadData},
    };
    for (const auto& [words, code] : cases) {
        const auto ran = run(words);
        EXPECT_EQ(ran.code, code) << words.back();
        EXPECT_EQ(ran.out, "");
        EXPECT_NE(ran.err, "");
        EXPECT_EQ(ran.err.find("hunter2"), std::string::npos);
    }
    EXPECT_NE(run({"settings", "get", "colourScheme"}).err.find("Did you mean colorScheme?"), std::string::npos);
}

TEST_F(SettingsTest, NeverShowWhatIsPrivate) {
    support::PaperlessServer server;
    server.generate(0);
    server.start();
    const auto file = folder() / "headers";
    {
        std::ofstream stream(file);
        stream << "X-Proxy-Key: hunter2\n";
    }
    ASSERT_EQ(run({"login", server.url(), "--token-stdin", "--header-file", file.string()}, server.token()).code,
              ExitCode::Ok);
    EXPECT_EQ(run({"settings", "get", "customHeaders"}).out, "<private>\n");
    EXPECT_EQ(run({"settings", "--json"}).out.find("hunter2"), std::string::npos);
}

} // namespace
} // namespace ledgerfinch::cli
