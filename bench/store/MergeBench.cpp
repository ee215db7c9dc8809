// SPDX-License-Identifier: GPL-3.0-or-later
// bench_store [documents] [rounds]: merges decoded records into a fresh store, a save each, beside the same rows
// written by bare prepared statements, a transaction each. Prints the best of each and their ratio, what a second,
// unchanged pass costs, and how the memory grew.
#include "BareRows.h"
#include "Limits.h"

#include "platform/LogSinks.h"
#include "store/CoreDataHandler.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <unistd.h>

namespace ledgerfinch::bench {
namespace {

namespace fs = std::filesystem;

class NoLog final : public LogSink {
public:
    void write(const LogRecord&) override {}
};

/// A device in a folder of its own, removed at the end.
class Device {
public:
    Device() {
        std::string pattern = (fs::temp_directory_path() / "ledgerfinch-bench-XXXXXX").string();
        if (!::mkdtemp(pattern.data())) std::abort();
        m_root = pattern;
        services.paths.container = m_root;
        services.log = std::make_shared<NoLog>();
        services.defaults = std::move(UserDefaults::open(m_root / "settings.ini").value());
        services.files = makeFileSystem();
        services.clock = std::make_unique<Clock>();
        store = std::make_unique<CoreDataHandler>(services);
    }
    ~Device() {
        store.reset();
        fs::remove_all(m_root);
    }
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    /// Closes the store; its file.
    fs::path close() {
        const auto file = store->persistenceContainer()->file();
        store.reset();
        return file;
    }

    Services services;
    std::unique_ptr<CoreDataHandler> store;

private:
    fs::path m_root;
};

template <class Record>
std::vector<Record> numbered(std::int64_t count, const char* prefix) {
    std::vector<Record> records;
    for (std::int64_t id = 1; id <= count; ++id) {
        Record record;
        record.id = id;
        if constexpr (std::is_same_v<Record, User>)
            record.username = prefix + std::to_string(id);
        else
            record.name = prefix + std::to_string(id);
        record.raw = R"({"name":")" + (prefix + std::to_string(id)) + R"("})";
        records.push_back(std::move(record));
    }
    return records;
}

void mergeAttributes(CoreDataHandler& store) {
    const auto context = store.backgroundContext();
    store.saveGroups(numbered<PaperlessGroup>(3, "group"), Delivery::Complete, context);
    store.saveUsers(numbered<User>(5, "user"), Delivery::Complete, context);
    store.saveTags(numbered<Tag>(40, "tag"), Delivery::Complete, context);
    store.saveCorrespondents(numbered<Correspondent>(60, "correspondent"), Delivery::Complete, context);
    store.saveDocumentTypes(numbered<Document_Type>(10, "type"), Delivery::Complete, context);
    auto fields = numbered<Custom_Field>(2, "field");
    fields[1].data_type = Data_Type::monetary;
    store.saveCustomFields(fields, Delivery::Complete, context);
}

std::vector<Document> documents(std::int64_t count) {
    std::string text;
    for (int word = 0; text.size() < 2500; ++word)
        text += "Rechnung " + std::to_string(word * 7919 % 1000) + " payable within thirty days ";
    std::vector<Document> records;
    for (std::int64_t id = 1; id <= count; ++id) {
        Document record;
        record.id = id;
        record.title = "Invoice number " + std::to_string(id);
        record.content = text + std::to_string(id);
        record.correspondent = id % 60 + 1;
        record.document_type = id % 10 + 1;
        record.tags = {id % 40 + 1, (id * 7) % 40 + 1};
        record.created = "2024-03-01T12:30:00Z";
        record.modified = "2024-03-02T12:30:00.123456Z";
        record.added = "2024-03-02T12:30:00Z";
        record.archive_serial_number = id;
        record.original_file_name = "scan" + std::to_string(id) + ".pdf";
        record.owner = id % 5 + 1;
        record.user_can_change = true;
        record.permissions = Document_Permissions{UsersGroupsDict{{{1, 2}}, {{1}}}, UsersGroupsDict{{{1}}, {{}}}};
        record.custom_fields = {{Field_Value::makeString("Reference " + std::to_string(id)), 1},
                                {Field_Value::makeString("EUR12.50"), 2}};
        record.raw =
            R"({"title":"Invoice number )" + std::to_string(id) + R"(","correspondent":)" +
            std::to_string(id % 60 + 1) + R"(,"document_type":1,"storage_path":null,"tags":[1,2],)" +
            R"("created":"2024-03-01T12:30:00Z","owner":1,"permissions":{"view":{"users":[1,2],"groups":[1]},)" +
            R"("change":{"users":[1],"groups":[]}},"custom_fields":[{"value":"Reference","field":1}]})";
        records.push_back(std::move(record));
    }
    return records;
}

double residentMegabytes() {
    std::ifstream statm("/proc/self/statm");
    double total = 0;
    double resident = 0;
    statm >> total >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE)) / (1 << 20);
}

Seconds secondsOf(const std::function<void()>& work) {
    const Stopwatch watch;
    work();
    return watch.elapsed();
}

void mergeAll(CoreDataHandler& store, const std::vector<Document>& records) {
    if (!store.saveDocuments(records, store.backgroundContext()).complete()) std::abort();
}

void run(std::int64_t count, int rounds, Limits& limits) {
    const auto records = documents(count);
    const auto half = records.begin() + static_cast<std::ptrdiff_t>(records.size() / 2);
    const std::vector<Document> firstHalf(records.begin(), half);
    const std::vector<Document> secondHalf(half, records.end());
    Seconds merged{1e9, 1e9};
    Seconds bare{1e9, 1e9};
    Seconds again{1e9, 1e9};
    double growth = 0;
    std::size_t rows = 0;
    for (int round = 0; round < rounds; ++round) {
        Device device;
        mergeAttributes(*device.store);
        const Seconds first = secondsOf([&] { mergeAll(*device.store, firstHalf); });
        const double early = residentMegabytes();
        merged = merged.best(first + secondsOf([&] { mergeAll(*device.store, secondHalf); }));
        growth = std::max(growth, residentMegabytes() - early);
        again = again.best(secondsOf([&] { mergeAll(*device.store, records); }));
        const BareRows copy(device.close());
        rows = copy.rowsOfDocuments();
        Device target;
        bare = bare.best(copy.writeInto(target.close()));
    }
    const auto line = [count](const char* name, const Seconds& seconds) {
        const double documents = static_cast<double>(count);
        std::printf("%-10s %8.1f us a document, %8.1f us of the processor\n", name, seconds.wall / documents * 1e6,
                    seconds.processor / documents * 1e6);
    };
    std::printf("documents %lld, rows %zu\n", static_cast<long long>(count), rows);
    line("merge", merged);
    line("bare rows", bare);
    line("unchanged", again);
    limits.atMost("merge to bare statements, by the wall", merged.wall / bare.wall, 2.0);
    std::printf("%-10s %8.2f by the processor\n", "", merged.processor / bare.processor);
    std::printf("%-10s %8.1f MB more after the second half than after the first\n", "memory", growth);
}

} // namespace
} // namespace ledgerfinch::bench

int main(int argc, char** argv) {
    const bool check = ledgerfinch::bench::takeCheck(argc, argv);
    ledgerfinch::bench::Limits limits;
    ledgerfinch::bench::run(argc > 1 ? std::atoll(argv[1]) : 10000, argc > 2 ? std::atoi(argv[2]) : 3, limits);
    return limits.exitCode(check);
}
