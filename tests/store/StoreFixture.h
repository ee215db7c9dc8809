// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Fatal.h"
#include "platform/LogSinks.h"
#include "platform/TemporaryFolder.h"
#include "records/Decoders.h"
#include "store/CoreDataHandler.h"
#include "store/RepairList.h"
#include "store/ServerShadow.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace ledgerfinch::test {

/// A clock that stands where the test puts it.
class SetClock final : public Clock {
public:
    [[nodiscard]] Timestamp now() const override { return m_now; }
    void advance(std::chrono::hours hours) { m_now += hours; }

private:
    Timestamp m_now = std::chrono::time_point_cast<std::chrono::microseconds>(std::chrono::system_clock::now());
};

/// The disk, with operations that fail on request.
class BreakableFiles final : public FileSystem {
public:
    std::string failOn; ///< an operation on a path that holds this text fails

    Result<void> createDirectories(const std::filesystem::path& folder) override {
        return breaks(folder) ? broken() : m_disk->createDirectories(folder);
    }
    Result<void> write(const std::filesystem::path& file, std::string_view bytes) override {
        return breaks(file) ? broken() : m_disk->write(file, bytes);
    }
    Result<std::string> read(const std::filesystem::path& file, std::int64_t maximumBytes) override {
        return m_disk->read(file, maximumBytes);
    }
    Result<std::vector<std::string>> list(const std::filesystem::path& folder) override { return m_disk->list(folder); }
    Result<std::int64_t> size(const std::filesystem::path& file) override { return m_disk->size(file); }
    Result<void> removeAll(const std::filesystem::path& path) override {
        return breaks(path) ? broken() : m_disk->removeAll(path);
    }
    Result<void> copyAll(const std::filesystem::path& from, const std::filesystem::path& to) override {
        return breaks(from) ? broken() : m_disk->copyAll(from, to);
    }
    [[nodiscard]] bool exists(const std::filesystem::path& path) const override { return m_disk->exists(path); }

private:
    [[nodiscard]] bool breaks(const std::filesystem::path& path) const {
        return !failOn.empty() && path.string().find(failOn) != std::string::npos;
    }
    static Result<void> broken() { return Error{"broken on purpose"}; }

    std::unique_ptr<FileSystem> m_disk = makeFileSystem();
};

struct ProgramEnded : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A device of its own: settings, files and stores in a temporary folder.
class StoreTest : public ::testing::Test {
protected:
    StoreTest() {
        services.paths.container = folder / "container";
        services.paths.config = folder / "config";
        services.paths.state = folder / "state";
        for (const auto& path : {services.paths.container, services.paths.config, services.paths.state})
            std::filesystem::create_directories(path);
        services.log = log;
        services.defaults = std::move(UserDefaults::open(folder / "config/settings.ini").value());
        auto breakable = std::make_unique<BreakableFiles>();
        files = breakable.get();
        services.files = std::move(breakable);
        auto setClock = std::make_unique<SetClock>();
        clock = setClock.get();
        services.clock = std::move(setClock);
        setFatalHandler([](const std::string& message) { throw ProgramEnded(message); });
    }
    ~StoreTest() override {
        if (handler) {
            EXPECT_TRUE(handler->persistenceContainer()->verify());
        }
        setFatalHandler({});
    }

    /// Made on first use.
    CoreDataHandler& store() {
        if (!handler) handler = std::make_unique<CoreDataHandler>(services, sink);
        return *handler;
    }
    ContextRef view() { return store().viewContext(); }
    ContextRef background() { return store().backgroundContext(); }

    /// Rows that the work changed in the store.
    template <class Work>
    std::uint64_t rowsWrittenBy(Work work) {
        const auto before = store().persistenceContainer()->rowsWritten();
        work();
        return store().persistenceContainer()->rowsWritten() - before;
    }
    template <class T>
    std::size_t count() {
        FetchRequest request;
        request.entity = T::kEntityName;
        return view()->count(request).value();
    }

    /// Changes the open store file from outside, such as with a trigger that makes saves fail.
    void execute(const std::string& sql) {
        sqlite3* database = nullptr;
        ASSERT_EQ(sqlite3_open(store().persistenceContainer()->file().c_str(), &database), SQLITE_OK);
        sqlite3_busy_timeout(database, 5000);
        char* message = nullptr;
        EXPECT_EQ(sqlite3_exec(database, sql.c_str(), nullptr, nullptr, &message), SQLITE_OK) << message;
        sqlite3_free(message);
        sqlite3_close(database);
    }

    Document document(const std::string& json) {
        auto decoded = decodeDocument(json, DecodeContext{});
        if (!decoded) throw std::invalid_argument(json);
        return *decoded;
    }
    std::vector<Tag> tags(const std::string& results) {
        return decodeTags(R"({"results":)" + results + "}", DecodeContext{}).results.value();
    }
    std::vector<User> users(const std::string& results) {
        return decodeUsers(R"({"results":)" + results + "}", DecodeContext{}).results.value();
    }
    std::vector<PaperlessGroup> groups(const std::string& results) {
        return decodeGroups(R"({"results":)" + results + "}", DecodeContext{}).results.value();
    }
    std::vector<Correspondent> correspondents(const std::string& results) {
        return decodeCorrespondents(R"({"results":)" + results + "}", DecodeContext{}).results.value();
    }
    std::vector<Custom_Field> customFields(const std::string& results) {
        return decodeCustomFields(R"({"results":)" + results + "}", DecodeContext{}).results.value();
    }
    std::vector<Saved_view> savedViews(const std::string& results) {
        return decodeSavedViews(R"({"results":)" + results + "}", DecodeContext{}).results.value();
    }

    /// A record of any kind that has these two.
    template <class Record>
    static Record named(std::int64_t id, std::optional<std::string> name = std::nullopt) {
        Record record;
        record.id = id;
        record.name = std::move(name);
        return record;
    }

    TemporaryFolder folder;
    std::shared_ptr<MemoryLogSink> log = std::make_shared<MemoryLogSink>();
    BreakableFiles* files = nullptr;
    SetClock* clock = nullptr;
    Services services;
    std::shared_ptr<DocumentSink> sink;
    std::unique_ptr<CoreDataHandler> handler;
};

/// The server ids of objects, in ascending order.
template <class T>
std::vector<std::int64_t> idsOf(const std::vector<Ref<T>>& objects) {
    std::vector<std::int64_t> ids;
    for (const auto& object : objects)
        ids.push_back(object->id());
    std::sort(ids.begin(), ids.end());
    return ids;
}

} // namespace ledgerfinch::test
