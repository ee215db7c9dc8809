// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/Instances.h"
#include "platform/LogSinks.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"
#include "support/PaperlessServer.h"
#include "sync/FailingFileSystem.h"
#include "sync/MirrorComparison.h"
#include "sync/StoreDump.h"
#include "sync/SyncDriver.h"

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch::test {

/// A clock that stands still where a test sets it, and else goes as the machine's.
class SettableClock final : public Clock {
public:
    [[nodiscard]] Timestamp now() const override { return m_fixed.value_or(Clock::now()); }
    void set(Timestamp time) { m_fixed = time; }

private:
    std::optional<Timestamp> m_fixed;
};

/// Counts who wants the machine awake.
class CountingIdleInhibitor final : public IdleInhibitor {
public:
    void setIdleTimerDisabled(bool disabled) override { disabled ? ++m_disabled : ++m_enabled; }
    [[nodiscard]] int disabled() const { return m_disabled; }
    [[nodiscard]] int enabled() const { return m_enabled; }

private:
    std::atomic<int> m_disabled{0};
    std::atomic<int> m_enabled{0};
};

/// What a screen would have heard.
struct HeardScreen {
    std::vector<loadingData> stages;
    std::vector<additionalLoadingInfo> information;
    std::vector<std::string> errors;
    int loggedOut = 0;
    int reloads = 0;

    SyncObserver observer();
    [[nodiscard]] std::vector<std::string> texts() const; ///< of the information
    std::mutex mutex;
};

/// A device in a folder of its own: services, settings, a store, logged in to a server.
class Device {
public:
    /// The folder may hold an earlier device's things; it is left behind.
    Device(std::filesystem::path folder, const ServerAddress& server, std::shared_ptr<DocumentSink> sink = nullptr);
    ~Device();

    /// One pass of the real driver; the downloads that follow are waited for.
    SyncResult sync();

    [[nodiscard]] Services& services() { return m_services; }
    [[nodiscard]] UserDefaults& settings() { return *m_services.defaults; }
    [[nodiscard]] CoreDataHandler& core() { return *m_core; }
    [[nodiscard]] std::shared_ptr<ApiHandler> api() { return m_api; }
    [[nodiscard]] SyncDriver& driver() { return *m_driver; }
    [[nodiscard]] HeardScreen& heard() { return m_heard; }
    [[nodiscard]] MemoryLogSink& log() { return *m_log; }
    [[nodiscard]] SettableClock& clock() { return *m_clock; }
    [[nodiscard]] CountingIdleInhibitor& idle() { return *m_idle; }
    [[nodiscard]] FailingFileSystem& files() { return *m_files; }

    [[nodiscard]] std::string setting(std::string_view key) { return settings().string(key).value_or(""); }
    /// As if a sync had ended on that day: both the setting and the server's entry tell it.
    void pretendSynced(std::string_view date) {
        (void)settings().set("lastSuccessfulSync", date);
        (void)updateInstance(settings(), setting("server"), std::string(date), std::nullopt);
    }
    [[nodiscard]] StoreDump dump() { return dumpStore(*m_core->persistenceContainer()); }
    [[nodiscard]] std::vector<std::int64_t> ids(std::string_view entity);
    /// What the mirror holds otherwise than the server.
    [[nodiscard]] std::string differencesFromServer();
    /// Lines of the log that hold this text.
    [[nodiscard]] std::size_t linesWith(std::string_view text);
    [[nodiscard]] std::uint64_t rowsWritten() { return m_core->persistenceContainer()->rowsWritten(); }

private:
    ServerAddress m_server;
    std::shared_ptr<MemoryLogSink> m_log = std::make_shared<MemoryLogSink>();
    SettableClock* m_clock = nullptr;
    CountingIdleInhibitor* m_idle = nullptr;
    FailingFileSystem* m_files = nullptr;
    Services m_services;
    std::unique_ptr<CoreDataHandler> m_core;
    std::shared_ptr<ApiHandler> m_api;
    HeardScreen m_heard;
    std::unique_ptr<SyncDriver> m_driver;
};

/// A folder that goes with the object.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    [[nodiscard]] const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

/// A server with a few made-up documents and devices that mirror it. Servers and the network want a Qt application,
/// which the test programs' main makes.
class SyncWorld {
public:
    explicit SyncWorld(std::size_t documents = 25);

    [[nodiscard]] support::PaperlessServer& server() { return m_server; }
    [[nodiscard]] ServerAddress address() { return {m_server.url(), m_server.token()}; }
    /// A note keeps the author it had when it was first delivered, so one that came before its author differs for good.
    void removeNotes();
    /// Another device, new.
    std::unique_ptr<Device> newDevice();
    /// The only device of most tests; made when first asked for.
    Device& device();
    /// "GET /path?query" of everything asked since the last look.
    std::vector<std::string> requested();

private:
    support::PaperlessServer m_server;
    std::vector<std::unique_ptr<TemporaryFolder>> m_folders;
    std::unique_ptr<Device> m_device;
};

} // namespace ledgerfinch::test
