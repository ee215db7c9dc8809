// SPDX-License-Identifier: GPL-3.0-or-later
// A device in a process of its own: syncs once and tells on stdout, line by line and without a buffer, what has
// happened for good.
//   sync-child FOLDER URL TOKEN
//   "stage N"    a stage has begun
//   "saved R"    the document in row R was committed
//   "outcome N"  the pass has ended
#include "sync/OffMain.h"
#include "sync/SyncWorld.h"

#include <QCoreApplication>

#include <cstdio>
#include <string>
#include <unistd.h>

namespace {

void tell(const std::string& what, std::int64_t number) {
    const std::string line = what + " " + std::to_string(number) + "\n";
    if (::write(STDOUT_FILENO, line.data(), line.size()) < 0) ::_exit(3);
}

class TellingSink final : public ledgerfinch::DocumentSink {
public:
    void documentSaved(const ledgerfinch::ObjectID& document) override { tell("saved", document.row); }
    void documentRemoved(const ledgerfinch::Uuid&) override {}
};

} // namespace

int main(int argc, char** argv) {
    using namespace ledgerfinch;
    const QCoreApplication application(argc, argv);
    if (argc != 4) return 2;
    test::Device device(argv[1], {argv[2], argv[3]}, std::make_shared<TellingSink>());
    SyncObserver observer;
    observer.stage = [](loadingData stage) {
        tell("stage", static_cast<std::int64_t>(stage));
    };
    const auto outcome = test::offMain([&] {
        const auto ended = device.driver().runSync(device.api(), observer);
        device.driver().downloads().wait();
        return ended;
    });
    tell("outcome", static_cast<std::int64_t>(outcome.outcome));
    return 0;
}
