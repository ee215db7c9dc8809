// SPDX-License-Identifier: GPL-3.0-or-later
// What a sync costs, as ratios, so that the machine doesn't matter:
//   - its peak of memory with 50,000 documents to that with 5,000
//   - the time of a whole sync of 10,000 documents to writing the same rows by bare prepared statements
//   - the time of a sync when nothing has changed since the day before to that of a whole one, and the rows it writes
// The server and each sync run in processes of their own.
//   bench_sync            prints them
//   bench_sync --check    and exits with 1 when a limit is missed
#include "BareWriter.h"
#include "Limits.h"

#include "connection/ApiHandler.h"
#include "connection/Instances.h"
#include "platform/LogSinks.h"
#include "platform/Memory.h"
#include "store/CoreDataHandler.h"
#include "sync/ChildProcess.h"
#include "sync/OffMain.h"
#include "sync/SyncDriver.h"

#include <QCoreApplication>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::bench {
namespace {

class NoLog final : public LogSink {
public:
    void write(const LogRecord&) override {}
};

/// Unwinds to main, so that servers and syncs under way end as well.
[[noreturn]] void giveUp(const std::string& why) {
    throw std::runtime_error(why);
}

/// Peak of resident memory of this process, in kilobytes (proc(5)).
std::int64_t peakMemory() {
    std::ifstream status("/proc/self/status");
    std::string word;
    std::int64_t kilobytes = 0;
    while (status >> word)
        if (word == "VmHWM:") status >> kilobytes;
    return kilobytes;
}

// The process that syncs.

struct Figures {
    double whole = 0;     ///< seconds
    double unchanged = 0; ///< seconds
    std::int64_t unchangedRows = 0;
    std::int64_t peak = 0; ///< kilobytes, of the whole sync
    std::string store;     ///< its file
};

std::ostream& operator<<(std::ostream& stream, const Figures& figures) {
    return stream << figures.whole << ' ' << figures.unchanged << ' ' << figures.unchangedRows << ' ' << figures.peak
                  << ' ' << figures.store;
}
std::istream& operator>>(std::istream& stream, Figures& figures) {
    return stream >> figures.whole >> figures.unchanged >> figures.unchangedRows >> figures.peak >> figures.store;
}

int syncInThisProcess(const std::string& folder, const std::string& url, const std::string& token) {
    Services services;
    services.paths = Paths::standard(folder).value();
    services.log = std::make_shared<NoLog>();
    services.defaults = UserDefaults::open(services.paths.config / "settings.ini").value();
    services.secrets = std::make_unique<MemorySecretStore>();
    services.files = makeFileSystem();
    services.http = std::make_unique<HttpSession>();
    services.clock = std::make_unique<Clock>();
    services.idle = makeNullIdleInhibitor();
    auto& settings = *services.defaults;
    if (!settings.set("server", url) || !registerInstance(settings, url)) giveUp("the settings can't be written");
    CoreDataHandler core(services);
    SyncDriver driver(services, core);
    const auto container = core.persistenceContainer();

    const auto timed = [&] {
        const auto start = std::chrono::steady_clock::now();
        const auto outcome = test::offMain([&] {
            const auto api = ApiHandler::withToken(services, core, url, token);
            const auto ended = driver.runSync(api, {});
            driver.downloads().wait();
            return ended;
        });
        if (outcome != SyncOutcome::Finished) giveUp("the sync did not finish");
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    };
    Figures figures;
    figures.whole = timed();
    figures.peak = peakMemory();
    const auto written = container->rowsWritten();
    const auto yesterday = services.clock->now() - std::chrono::hours(24);
    (void)settings.set("lastSuccessfulSync", dates::formatDateOnly(yesterday));
    figures.unchanged = timed();
    figures.unchangedRows = static_cast<std::int64_t>(container->rowsWritten() - written);
    figures.store = container->file().string();
    std::cout << "figures " << figures << std::endl;
    return 0;
}

// The process that compares.

/// A sample server of its own, with the token of its administrator.
class Server {
public:
    explicit Server(std::size_t documents)
        : m_process(SAMPLE_SERVER, {"--documents", std::to_string(documents), "--users"}) {
        constexpr std::string_view kUrl = "Sample server: ";
        constexpr std::string_view kAdmin = "admin admin-pass ";
        while (m_token.empty()) {
            const auto line = m_process.readLine();
            if (!line) giveUp("the sample server did not start");
            if (line->starts_with(kUrl)) m_url = line->substr(kUrl.size());
            if (line->starts_with(kAdmin)) m_token = line->substr(kAdmin.size());
        }
    }
    [[nodiscard]] const std::string& url() const { return m_url; }
    [[nodiscard]] const std::string& token() const { return m_token; }

private:
    test::ChildProcess m_process;
    std::string m_url;
    std::string m_token;
};

Figures sync(const std::string& program, const Server& server, const std::filesystem::path& folder) {
    test::ChildProcess child(program, {"--child", folder.string(), server.url(), server.token()});
    Figures figures;
    while (const auto line = child.readLine())
        if (line->starts_with("figures ")) std::istringstream(line->substr(8)) >> figures;
    if (child.wait() != 0) giveUp("a sync failed");
    return figures;
}

int compare(const std::string& program, bool check) {
    std::string pattern = (std::filesystem::temp_directory_path() / "ledgerfinch-bench-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) giveUp("no temporary folder");
    const std::filesystem::path top = pattern;
    const auto peakWith = [&](std::size_t documents) {
        const Server server(documents);
        return static_cast<double>(sync(program, server, top / std::to_string(documents)).peak);
    };

    // The best of three: others use the machine too.
    double whole = 1e9;
    double unchanged = 1e9;
    double bare = 1e9;
    std::int64_t rows = 0;
    {
        const Server server(10'000);
        for (int round = 0; round < 3; ++round) {
            const auto folder = top / ("whole" + std::to_string(round));
            const Figures figures = sync(program, server, folder);
            whole = std::min(whole, figures.whole);
            unchanged = std::min(unchanged, figures.unchanged);
            rows = std::max(rows, figures.unchangedRows);
            const BareWrite written = writeBare(figures.store, folder / "bare.sqlite");
            bare = std::min(bare, written.seconds);
            std::printf("whole sync %.2f s, unchanged %.3f s, bare statements %.2f s for %lld rows\n", figures.whole,
                        figures.unchanged, written.seconds, static_cast<long long>(written.rows));
        }
    }
    const double small = peakWith(5'000);
    const double large = peakWith(50'000);
    std::printf("peak memory %.1f MB with 5,000 documents, %.1f MB with 50,000\n", small / 1024, large / 1024);
    std::error_code error;
    std::filesystem::remove_all(top, error);

    Limits limits;
    limits.atMost("peak memory, 50,000 documents to 5,000", large / small, 1.2);
    limits.atMost("whole sync of 10,000 to bare statements", whole / bare, 3.0);
    limits.atMost("unchanged sync to whole sync", unchanged / whole, 1.0 / 50);
    limits.atMost("rows written by the unchanged sync", static_cast<double>(rows), 0);
    return limits.exitCode(check);
}

} // namespace
} // namespace ledgerfinch::bench

int main(int argc, char** argv) try {
    ledgerfinch::keepMemorySmall();
    const QCoreApplication application(argc, argv);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments.size() == 4 && arguments[0] == "--child")
        return ledgerfinch::bench::syncInThisProcess(arguments[1], arguments[2], arguments[3]);
    const bool check = arguments == std::vector<std::string>{"--check"};
    if (!check && !arguments.empty()) return 2;
    return ledgerfinch::bench::compare(std::filesystem::canonical("/proc/self/exe").string(), check);
} catch (const std::exception& error) {
    std::cerr << "bench_sync: " << error.what() << "\n";
    return 2;
}
