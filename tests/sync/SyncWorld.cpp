// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/SyncWorld.h"

#include "connection/Instances.h"
#include "sync/OffMain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <utility>
#include <variant>

namespace ledgerfinch::test {

SyncObserver HeardScreen::observer() {
    SyncObserver observer;
    observer.stage = [this](loadingData stage) {
        const std::lock_guard lock(mutex);
        stages.push_back(stage);
    };
    observer.additionalInformation = [this](const additionalLoadingInfo& info) {
        const std::lock_guard lock(mutex);
        information.push_back(info);
    };
    observer.error = [this](const std::string& text) {
        const std::lock_guard lock(mutex);
        errors.push_back(text);
    };
    observer.loggedOut = [this] {
        const std::lock_guard lock(mutex);
        ++loggedOut;
    };
    observer.reloadList = [this] {
        const std::lock_guard lock(mutex);
        ++reloads;
    };
    return observer;
}

std::vector<std::string> HeardScreen::texts() const {
    std::vector<std::string> texts;
    for (const auto& info : information) {
        if (const auto* success = std::get_if<additionalLoadingInfo::Success>(&info.value))
            texts.push_back(success->text);
        else if (const auto* error = std::get_if<additionalLoadingInfo::Error>(&info.value))
            texts.push_back("error: " + error->text);
    }
    return texts;
}

Device::Device(std::filesystem::path folder, const ServerAddress& server, std::shared_ptr<DocumentSink> sink)
    : m_server(server) {
    m_services.paths = Paths::standard(std::move(folder)).value();
    m_services.log = m_log;
    m_services.defaults = UserDefaults::open(m_services.paths.config / "settings.ini").value();
    m_services.secrets = std::make_unique<MemorySecretStore>();
    auto files = std::make_unique<FailingFileSystem>(makeFileSystem());
    m_files = files.get();
    m_services.files = std::move(files);
    m_services.http = std::make_unique<HttpSession>();
    auto clock = std::make_unique<SettableClock>();
    m_clock = clock.get();
    m_services.clock = std::move(clock);
    auto idle = std::make_unique<CountingIdleInhibitor>();
    m_idle = idle.get();
    m_services.idle = std::move(idle);

    // As a login leaves things: an entry with a store of its own, the token in the secret store.
    (void)settings().set("server", server.url);
    (void)registerInstance(settings(), server.url);
    (void)KeychainHandler(m_services).saveToken(server.token, server.url);
    m_core = std::make_unique<CoreDataHandler>(m_services, std::move(sink));
    m_api = offMain([&] { return ApiHandler::withToken(m_services, *m_core, server.url, server.token); });
    m_driver = std::make_unique<SyncDriver>(m_services, *m_core);
}

Device::~Device() = default;

SyncResult Device::sync() {
    return offMain([this] {
        const auto outcome = m_driver->runSync(m_api, m_heard.observer());
        m_driver->downloads().wait();
        return outcome;
    });
}

std::vector<std::int64_t> Device::ids(std::string_view entity) {
    std::vector<std::int64_t> ids;
    const auto context = m_core->persistenceContainer()->newBackgroundContext();
    context->performAndWait([&] {
        FetchRequest request;
        request.entity = entity;
        request.sort = {{"id"}};
        const auto objects = context->fetch(request);
        ASSERT_TRUE(objects) << objects.error().message;
        for (const auto& object : *objects)
            ids.push_back(std::get<std::int64_t>(object->value("id")));
    });
    return ids;
}

std::size_t Device::linesWith(std::string_view text) {
    const auto records = m_log->records();
    return static_cast<std::size_t>(std::count_if(records.begin(), records.end(), [&](const LogRecord& record) {
        return record.message.find(text) != std::string::npos;
    }));
}

std::string Device::differencesFromServer() {
    return offMain([this] { return mirrorDifferences(*m_core->persistenceContainer(), *m_services.http, m_server); });
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "ledgerfinch-sync-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) std::abort();
    m_path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code error;
    std::filesystem::remove_all(m_path, error);
}

SyncWorld::SyncWorld(std::size_t documents) {
    support::SampleOptions options;
    options.textBytes = 200;
    options.tags = 6;
    options.correspondents = 5;
    options.documentTypes = 4;
    options.storagePaths = 3;
    options.customFields = 10;
    options.savedViews = 3;
    m_server.generate(documents, options);
    m_server.start();
}

void SyncWorld::removeNotes() {
    m_server.withState([](support::State& state) {
        for (auto& [id, document] : state.documents)
            document.notes.clear();
    });
}

std::unique_ptr<Device> SyncWorld::newDevice() {
    m_folders.push_back(std::make_unique<TemporaryFolder>());
    return std::make_unique<Device>(m_folders.back()->path(), address());
}

Device& SyncWorld::device() {
    if (!m_device) {
        m_device = newDevice();
        m_server.clearRequests();
    }
    return *m_device;
}

std::vector<std::string> SyncWorld::requested() {
    std::vector<std::string> requests;
    for (const auto& logged : m_server.requests())
        requests.push_back(logged.request.method + " " + logged.request.target);
    m_server.clearRequests();
    return requests;
}

} // namespace ledgerfinch::test
