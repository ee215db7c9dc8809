// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/CommandLine.h"
#include "platform/LogSinks.h"
#include "platform/SecretStore.h"
#include "support/PaperlessServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace ledgerfinch::cli {

/// What one run of the program gave.
struct Ran {
    ExitCode code = ExitCode::Ok;
    std::string out;
    std::string err;
    [[nodiscard]] nlohmann::json json() const { return nlohmann::json::parse(out); }
};

/// Hands every call to a store that outlives it, so that one run finds what the last one kept.
class SharedSecretStore final : public SecretStore {
public:
    explicit SharedSecretStore(std::shared_ptr<MemorySecretStore> store) : m_store(std::move(store)) {}
    SecretReading read(std::string_view service, std::string_view account) override {
        return m_store->read(service, account);
    }
    Result<void> save(std::string_view data, std::string_view service, std::string_view account) override {
        return m_store->save(data, service, account);
    }
    Result<void> remove(std::string_view service, std::string_view account) override {
        return m_store->remove(service, account);
    }
    [[nodiscard]] std::string kind() const override { return m_store->kind(); }

private:
    std::shared_ptr<MemorySecretStore> m_store;
};

/// Commands in this process, each run with parts of its own over one folder, as one process after the other would have.
class CommandTest : public testing::Test {
protected:
    CommandTest() {
        std::string name = testing::TempDir() + "cli-XXXXXX";
        m_folder = ::mkdtemp(name.data());
    }
    ~CommandTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }

    /// With the folder as --data-dir, unless the words begin otherwise.
    Ran run(std::vector<std::string> words, const std::string& input = {}) {
        words.insert(words.begin(), {"--data-dir", data().string()});
        std::istringstream in(input);
        std::ostringstream out;
        std::ostringstream err;
        Console console{.in = in, .out = out, .err = err, .width = width, .colour = colour, .readSecret = readSecret};
        console.errIsTerminal = errIsTerminal;
        const auto make = [this](LaunchOptions options) {
            options.secrets = std::make_unique<SharedSecretStore>(secrets);
            ++programsMade;
            return CompositionRoot::build(std::move(options));
        };
        Ran ran;
        ran.code = CommandLine(console, make).run(words);
        ran.out = out.str();
        ran.err = err.str();
        return ran;
    }

    Ran login(support::PaperlessServer& server, const std::string& user = "admin") {
        return run({"login", server.url(), "--user", user, "--password-stdin"}, user + "-pass\n");
    }

    [[nodiscard]] std::filesystem::path data() const { return m_folder / "data"; }
    [[nodiscard]] const std::filesystem::path& folder() const { return m_folder; }

    std::shared_ptr<MemorySecretStore> secrets = std::make_shared<MemorySecretStore>();
    std::optional<std::size_t> width;
    bool colour = false;
    bool errIsTerminal = false;
    std::function<std::optional<std::string>(std::string_view)> readSecret;
    int programsMade = 0;

private:
    std::filesystem::path m_folder;
};

} // namespace ledgerfinch::cli
