// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandTest.h"
#include "cli/DisplayText.h"

#include <algorithm>

namespace ledgerfinch::cli {
namespace {

using support::Json;

/// A handful of documents, synced, and the server gone.
class ReadingTest : public CommandTest {
protected:
    void SetUp() override {
        server.clear();
        const auto acme = server.add("correspondents", {{"name", "東京 ACME"}});
        const auto invoice = server.add("document_types", {{"name", "Invoice"}});
        const auto red = server.add("tags", {{"name", "red"}});
        const auto blue = server.add("tags", {{"name", "Blue"}});
        const auto choice = server.add(
            "custom_fields",
            {{"name", "Choice"}, {"data_type", "select"}, {"extra_data", {{"select_options", {"low", "high"}}}}});
        const auto number = server.add("custom_fields", {{"name", "Number"}, {"data_type", "integer"}});
        const auto price = server.add("custom_fields", {{"name", "Price"}, {"data_type", "monetary"}});
        plain =
            server.addDocument({{"title", "Plain"}, {"created", "2024-03-01"}, {"content", "first\nsecond\x1b[31m"}});
        rich = server.addDocument({{"title", "Rich"},
                                   {"created", "2024-05-01"},
                                   {"archive_serial_number", 4711},
                                   {"correspondent", acme},
                                   {"document_type", invoice},
                                   {"tags", {red, blue}},
                                   {"custom_fields",
                                    {{{"field", choice}, {"value", 1}},
                                     {{"field", number}, {"value", 2147483647}},
                                     {{"field", price}, {"value", "EUR12.50"}}}}});
        hostile = server.addDocument(
            {{"title", "\x1b]0;owned\x07\x1b[2Jred\nforged line\xe2\x80\xaegnp.exe"}, {"created", "2024-01-01"}});
        server.start();
        ASSERT_EQ(login(server).code, ExitCode::Ok);
        const auto synced = run({"sync"});
        ASSERT_EQ(synced.code, ExitCode::Ok) << synced.err;
        EXPECT_EQ(synced.out + synced.err, "");
        server.stop();
        // Whoever reads needs no secret.
        secrets->setLocked(true);
    }

    std::vector<std::int64_t> ids(std::vector<std::string> options) {
        options.insert(options.begin(), {"list", "--json"});
        std::vector<std::int64_t> all;
        for (const auto& document : run(options).json())
            all.push_back(document["id"]);
        return all;
    }

    support::PaperlessServer server;
    std::int64_t plain = 0;
    std::int64_t rich = 0;
    std::int64_t hostile = 0;
};

TEST_F(ReadingTest, ListHasStableKeysAndNullForWhatIsAbsent) {
    const auto documents = run({"list", "--json", "--sort", "title"}).json();
    ASSERT_EQ(documents.size(), 3u);
    const auto& first = *std::find_if(documents.begin(), documents.end(),
                                      [this](const auto& document) { return document["id"] == plain; });
    for (const auto* key : {"correspondent", "document_type", "storage_path", "archive_serial_number"})
        EXPECT_EQ(first.at(key), nullptr) << key;
    EXPECT_EQ(first["created"], "2024-03-01");
    EXPECT_EQ(first["tags"], Json::array());
    const auto& second = *std::find_if(documents.begin(), documents.end(),
                                       [this](const auto& document) { return document["id"] == rich; });
    EXPECT_EQ(second["archive_serial_number"], 4711);
    EXPECT_EQ(second["correspondent"]["name"], "東京 ACME");
    EXPECT_EQ(second["tags"][0]["name"], "Blue");
    EXPECT_EQ(second["tags"][1]["name"], "red");
    const std::string added = second["added"];
    EXPECT_TRUE(added.ends_with("Z") && added[10] == 'T') << added;
}

TEST_F(ReadingTest, ListComesInTheOrderAskedFor) {
    using Ids = std::vector<std::int64_t>;
    EXPECT_EQ(ids({}), (Ids{rich, plain, hostile}));
    EXPECT_EQ(ids({"--sort", "created"}), (Ids{hostile, plain, rich}));
    EXPECT_EQ(ids({"--sort", "-created"}), (Ids{rich, plain, hostile}));
    EXPECT_EQ(ids({"--sort", "created", "--descending"}), (Ids{rich, plain, hostile}));
    EXPECT_EQ(ids({"--sort=-asn", "--limit", "1"}), (Ids{rich}));
    EXPECT_EQ(ids({"--sort", "correspondent__name", "--descending", "-n1"}), (Ids{rich}));
    EXPECT_EQ(ids({"--limit", "0"}), Ids{});
    EXPECT_EQ(run({"list", "--sort", "colour"}).code, ExitCode::Usage);
    ASSERT_EQ(run({"settings", "set", "defaultOrderAscending", "true"}).code, ExitCode::Ok);
    EXPECT_EQ(ids({}), (Ids{hostile, plain, rich}));
}

TEST_F(ReadingTest, TableIsHarmlessAlignedAndFitsTheTerminal) {
    width = 80;
    colour = true;
    const auto ran = run({"list"});
    EXPECT_EQ(ran.code, ExitCode::Ok);
    std::istringstream lines(ran.out);
    std::string line;
    std::getline(lines, line);
    EXPECT_TRUE(line.starts_with("\x1b[1m"));
    int rows = 0;
    while (std::getline(lines, line)) {
        if (line.starts_with("\x1b[0m")) line.erase(0, 4);
        EXPECT_EQ(line.find('\x1b'), std::string::npos) << line;
        EXPECT_LE(displayWidth(line), 80u) << line;
        ++rows;
    }
    EXPECT_EQ(rows, 3);
    colour = false;
    EXPECT_EQ(run({"list"}).out.find('\x1b'), std::string::npos);
    EXPECT_EQ(run({"list", "--columns", "asn,id", "--sort", "created"}).out,
              " ASN  ID\n       " + std::to_string(hostile) + "\n       " + std::to_string(plain) + "\n4711   " +
                  std::to_string(rich) + "\n");
}

TEST_F(ReadingTest, ShowTellsEveryFieldWithLabelsAndWholeNumbers) {
    const auto shown = run({"show", std::to_string(rich)}).out;
    for (const auto* part : {"Rich", "4711", "東京 ACME", "Invoice", "Blue, red", "high", "2147483647", "12.50 EUR"})
        EXPECT_NE(shown.find(part), std::string::npos) << part << "\n" << shown;
    const auto document = run({"show", std::to_string(rich), "--json"}).json();
    std::map<std::string, Json> values;
    for (const auto& field : document["custom_fields"])
        values[field["name"]] = field["value"];
    EXPECT_EQ(values["Number"], 2147483647);
    EXPECT_EQ(document["permissions"]["view"]["users"].size(), 0u);

    const auto page = run({"show", std::to_string(hostile)}).out;
    EXPECT_EQ(page.find('\x1b'), std::string::npos);
    EXPECT_EQ(page.find("\nforged"), std::string::npos);
    EXPECT_EQ(run({"show", std::to_string(plain), "--content"}).out, "first\nsecond\\x1b[31m\n");
    EXPECT_EQ(run({"show", std::to_string(plain), "--json"}).json()["content"], "first\nsecond\x1b[31m");
    EXPECT_EQ(run({"show", "999999"}).code, ExitCode::NotFound);
}

TEST_F(ReadingTest, StatusCountsWhatIsHereWithoutTheServer) {
    const auto status = run({"status", "--json"}).json();
    EXPECT_EQ(status["server"], server.url());
    EXPECT_EQ(status["server_version"], "2.20.15");
    EXPECT_EQ(status["store"]["documents"], 3);
    EXPECT_EQ(status["store"]["tags"], 2);
    EXPECT_EQ(status["store"]["refused"], 0);
    EXPECT_EQ(status["downloads"]["files"], 0);
    EXPECT_EQ(status["secret_store"], "memory");
    EXPECT_NE(run({"status"}).out.find("Documents:         3\n"), std::string::npos);
}

TEST_F(ReadingTest, DownloadKeepsTheFileAndNeedsTheServerOnce) {
    const auto target = folder() / "out.pdf";
    EXPECT_EQ(run({"download", std::to_string(rich), "-o", target.string()}).code, ExitCode::Refused);
    secrets->setLocked(false);
    const auto down = run({"download", std::to_string(rich), "-o", target.string()});
    EXPECT_EQ(down.code, ExitCode::Unreachable);
    EXPECT_EQ(down.err, "No answer from " + server.url().substr(7) +
                            ": Connection refused. Is the address right, and is the server running?\n");
    EXPECT_FALSE(std::filesystem::exists(target));

    server.start(server.port());
    const auto ran = run({"download", std::to_string(rich), "--output", target.string()});
    EXPECT_EQ(ran.code, ExitCode::Ok) << ran.err;
    EXPECT_EQ(ran.out, target.string() + "\n");
    EXPECT_GT(std::filesystem::file_size(target), 0u);
    EXPECT_EQ(run({"download", std::to_string(rich), "--output", target.string()}).code, ExitCode::CannotCreate);
    server.removeDocument(plain);
    EXPECT_EQ(run({"download", std::to_string(plain), "--output", folder().string()}).code, ExitCode::NotFound);

    server.stop();
    EXPECT_EQ(run({"download", std::to_string(rich), "--output", target.string(), "--force"}).code, ExitCode::Ok);
    const auto into = folder() / "into";
    std::filesystem::create_directory(into);
    EXPECT_EQ(run({"download", std::to_string(rich), "--output", into.string()}).out,
              (into / "Rich.pdf").string() + "\n");
    EXPECT_EQ(run({"status", "--json"}).json()["downloads"]["files"], 1);
}

TEST_F(ReadingTest, LogsShowWhatHappenedButNothingPrivate) {
    const auto lines = run({"logs", "--json"}).json();
    const auto text = lines.dump();
    EXPECT_NE(text.find("Received token from server, proceeding..."), std::string::npos);
    EXPECT_EQ(text.find("admin-pass"), std::string::npos);
    EXPECT_EQ(text.find(server.token()), std::string::npos);
    EXPECT_EQ(run({"logs", "--limit", "2", "--json"}).json().size(), 2u);
    EXPECT_EQ(run({"logs", "--since", "2999-01-01"}).out, "");
    EXPECT_NE(run({"logs", "--since", "0001-01-01"}).out, "");
    EXPECT_NE(run({"logs", "--since", "99999d"}).out, "");
    for (const auto* when : {"yesterday", "3x", "", "-3d", "99999999999d"})
        EXPECT_EQ(run({"logs", "--since", when}).code, ExitCode::Usage) << when;
}

} // namespace
} // namespace ledgerfinch::cli
