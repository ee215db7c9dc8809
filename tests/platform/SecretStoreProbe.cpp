// SPDX-License-Identifier: GPL-3.0-or-later
// Carries out one command a line on the secret store that the program would choose, and answers with one line each.
// A process of its own, because the libraries below keep their first session bus for life.
#include "platform/LogSinks.h"
#include "platform/SecretStore.h"

#include <QCoreApplication>

#include <iostream>
#include <sstream>
#include <thread>

namespace {

using namespace ledgerfinch;

std::string answer(SecretStore& store, const std::string& line) {
    std::istringstream words(line);
    std::string command;
    std::string service;
    std::string data;
    words >> command >> service >> data;
    const auto told = [](const Result<void>& result) {
        return result ? std::string("done") : "failed " + std::to_string(result.error().code);
    };
    if (command == "save")
        return told(store.save(data == "binary" ? std::string("a\0b\xff", 4) : data, service, "app"));
    if (command == "remove") return told(store.remove(service, "app"));
    if (command == "kind") return store.kind();
    if (command != "read") return "what?";
    const auto reading = store.read(service, "app");
    if (reading.state == SecretState::Missing) return "missing";
    if (reading.state == SecretState::Unavailable) return "unavailable " + std::to_string(reading.code);
    return "found " + (reading.data == std::string("a\0b\xff", 4) ? "binary" : reading.data);
}

void converse(const std::string& fallbackFile) {
    const auto log = std::make_shared<MemoryLogSink>();
    const auto store = fallbackFile == "service" ? makeServiceSecretStore()
                                                 : chooseSecretStore(fallbackFile, Logger(log, "SecretStore"));
    for (std::string line; std::getline(std::cin, line);) {
        if (line == "log") {
            std::cout << (log->records().empty() ? "silent" : log->records().front().message) << std::endl;
        } else {
            std::cout << answer(*store, line) << std::endl;
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    std::thread work([&] {
        converse(argc > 1 ? argv[1] : "");
        QMetaObject::invokeMethod(&application, &QCoreApplication::quit, Qt::QueuedConnection);
    });
    QCoreApplication::exec();
    work.join();
}
