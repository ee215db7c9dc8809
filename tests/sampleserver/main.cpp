// SPDX-License-Identifier: GPL-3.0-or-later
// The sample server on its own, for demos and for trying things by hand.
#include "support/PaperlessServer.h"

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <stdexcept>

namespace {

using namespace ledgerfinch::support;

constexpr const char* usage = "Usage: ledgerfinch-sample-server [options]\n"
                              "  --port N             listen on 127.0.0.1:N (default: a free port)\n"
                              "  --port-file FILE     write the port to FILE once the server is ready\n"
                              "  --seed WHAT          generated (default) or recordings\n"
                              "  --documents N        number of generated documents (default: 200)\n"
                              "  --mode RELEASE       2.7, 2.20 (default) or 3.x: what it answers, and to which API\n"
                              "                       versions (1 to 5, 1 to 9, 9 and 10)\n"
                              "  --users              print all users with passwords and tokens\n"
                              "Ends on SIGTERM or SIGINT.\n";

struct Options {
    int port = 0;
    std::string portFile;
    std::string seed = "generated";
    std::size_t documents = 200;
    ServerMode mode = ServerMode::V2_20;
    bool showUsers = false;
};

std::optional<Options> parse(int count, char** arguments) {
    Options options;
    for (int index = 1; index < count; ++index) {
        std::string name = arguments[index];
        if (name == "--users") {
            options.showUsers = true;
            continue;
        }
        if (index + 1 == count) return std::nullopt;
        std::string value = arguments[++index];
        if (name == "--port") {
            options.port = std::stoi(value);
        } else if (name == "--port-file") {
            options.portFile = value;
        } else if (name == "--documents") {
            options.documents = std::stoul(value);
        } else if (name == "--mode" && modeNamed(value)) {
            options.mode = *modeNamed(value);
        } else if (name == "--seed" && (value == "generated" || value == "recordings")) {
            options.seed = value;
        } else {
            return std::nullopt;
        }
    }
    return options;
}

/// Written beside and renamed, so that a reader never sees half a number.
void writePort(const std::string& file, int port) {
    auto part = file + ".part";
    std::ofstream stream(part);
    stream << port << '\n';
    stream.close();
    if (!stream) throw std::runtime_error("Can't write " + part);
    std::filesystem::rename(part, file);
}

void run(const Options& options) {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    // Blocked before the first thread starts, so that all threads inherit it.
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    PaperlessServer server;
    server.setLogging(false);
    server.setMode(options.mode);
    if (options.seed == "recordings") {
        server.seedFromRecordings();
    } else {
        server.generate(options.documents);
    }
    server.start(options.port);
    std::cout << "Sample server: " << server.url() << "\nUser: admin\nPassword: " << PaperlessServer::password("admin")
              << '\n';
    if (options.showUsers) {
        for (const auto& [user, token] : server.tokens())
            std::cout << user << ' ' << PaperlessServer::password(user) << ' ' << token << '\n';
    }
    std::cout.flush();
    if (!options.portFile.empty()) writePort(options.portFile, server.port());
    int received = 0;
    sigwait(&signals, &received);
    server.stop();
}

} // namespace

int main(int count, char** arguments) {
    try {
        auto options = parse(count, arguments);
        if (!options) {
            std::cerr << usage;
            return 2;
        }
        run(*options);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "ledgerfinch-sample-server: " << error.what() << '\n';
        return 1;
    }
}
