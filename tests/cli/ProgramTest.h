// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/ExitCodes.h"
#include "cli/Subprocess.h"
#include "support/PaperlessServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ledgerfinch::cli {

/// How a run of the program ended.
struct Ended {
    int code = 0;
    std::string out;
    std::string err;
};

class ProgramTest : public testing::Test {
protected:
    ProgramTest() {
        std::string name = testing::TempDir() + "program-XXXXXX";
        folder = ::mkdtemp(name.data());
        server.generate(120);
        server.start();
    }
    ~ProgramTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::vector<std::string> withFolder(std::vector<std::string> words) const {
        words.insert(words.begin(), {"--data-dir", (folder / "data").string()});
        return words;
    }
    Ended run(const std::vector<std::string>& words, const std::string& input = {},
              const std::vector<std::string>& environment = {}) const {
        Subprocess program(withFolder(words), environment);
        program.write(input);
        program.closeInput();
        const int code = program.wait();
        return {code, program.out(), program.err()};
    }
    void loginAndSync() const {
        const auto in = run({"login", server.url(), "--user", "admin", "--password-stdin"}, "admin-pass\n");
        ASSERT_EQ(in.code, 0) << in.err;
        const auto synced = run({"sync"});
        ASSERT_EQ(synced.code, 0) << synced.err;
    }
    std::filesystem::path storeFile() const {
        return std::string(nlohmann::json::parse(run({"status", "--json"}).out)["store"]["file"]);
    }
    static std::string read(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    std::filesystem::path folder;
    support::PaperlessServer server;
};

} // namespace ledgerfinch::cli
