// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/CompositionRoot.h"

#include "app/LazySecretStore.h"
#include "connection/KeychainHandler.h"
#include "platform/LogSinks.h"
#include "platform/Text.h"
#include "store/FilenameSchemes.h"
#include "store/StoreNames.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace ledgerfinch {
namespace {

std::shared_ptr<LogSink> makeLog(const Paths& paths, bool verbose) {
    std::vector<std::shared_ptr<LogSink>> sinks;
    // Without a stored log the program works on.
    if (auto file = FileLogSink::open(paths.state / "logs")) sinks.push_back(std::move(file).value());
    if (verbose) sinks.push_back(std::make_shared<StderrLogSink>());
    return std::make_shared<TeeLogSink>(std::move(sinks));
}

Error launchError(LaunchError kind, std::string message) {
    return {std::move(message), static_cast<int>(kind)};
}

Result<Paths> findFolders(const LaunchOptions& options) {
    auto paths = Paths::standard(options.dataDirectory);
    if (paths || options.access == FileAccess::Write) return paths;
    auto readable = Paths::standardToRead(options.dataDirectory);
    return readable ? std::move(readable) : std::move(paths);
}

Result<std::unique_ptr<UserDefaults>> openSettings(const Paths& paths) {
    const auto file = paths.config / (std::string(UserDefaults::kSuite) + ".ini");
    auto defaults = UserDefaults::open(file);
    if (defaults) return defaults;
    std::error_code ignored;
    const bool isThere = std::filesystem::exists(std::filesystem::symlink_status(file, ignored));
    if (isThere) return launchError(LaunchError::Settings, "The settings can't be opened: " + defaults.error().message);
    return launchError(LaunchError::Folders, "The settings can't be created: " + defaults.error().message);
}

} // namespace

CompositionRoot::~CompositionRoot() {
    setFatalHandler({});
}

Result<std::unique_ptr<CompositionRoot>> CompositionRoot::build(LaunchOptions options) {
    // What the program makes belongs to its user alone, stores included.
    ::umask(S_IRWXG | S_IRWXO);
    auto paths = findFolders(options);
    if (!paths) return launchError(LaunchError::Folders, paths.error().message);
    std::unique_ptr<CompositionRoot> root(new CompositionRoot);
    root->m_access = options.access;
    Services& services = root->m_services;
    services.paths = std::move(paths).value();
    services.log = options.log ? std::move(options.log) : makeLog(services.paths, options.verbose);
    auto defaults = openSettings(services.paths);
    if (!defaults) {
        services.logger("CompositionRoot").error("%{public}s", defaults.error().message);
        return defaults.error();
    }
    services.defaults = std::move(defaults).value();
    if (options.access == FileAccess::Write) {
        const auto store = root->activeStoreFile();
        if (::access(store.c_str(), W_OK) != 0 && errno != ENOENT)
            return launchError(LaunchError::Folders,
                               "Couldn't write to " + store.string() + ": " + std::strerror(errno));
    }
    services.secrets = std::move(options.secrets);
    if (!services.secrets)
        services.secrets = std::make_unique<LazySecretStore>(
            [file = services.paths.config / "secrets", log = services.logger("SecretStore")] {
                return chooseSecretStore(file, log);
            });
    services.files = makeFileSystem();
    services.http = std::make_unique<HttpSession>();
    services.clock = std::make_unique<Clock>();
    services.idle = makeIdleInhibitor();
    setFatalHandler(
        [log = services.logger("Ledgerfinch")](const std::string& message) { log.error("%{public}s", message); });
    return root;
}

CoreDataHandler& CompositionRoot::core() {
    if (!m_core) {
        const auto access = m_access == FileAccess::Read ? StoreAccess::WriteOrRead : StoreAccess::Write;
        m_core = std::make_unique<CoreDataHandler>(m_services, nullptr, access);
    }
    return *m_core;
}

void CompositionRoot::sweepStrays() {
    if (m_sweep.joinable()) return;
    m_sweep = std::jthread([&files = core().documentFiles()](const std::stop_token& stop) { files.sweepStrays(stop); });
}

std::filesystem::path CompositionRoot::logFolder() const {
    return m_services.paths.state / "logs";
}

std::filesystem::path CompositionRoot::activeStoreFile() const {
    auto store = storeNames::active(*m_services.defaults);
    if (!isStoreName(store)) store = CoreDataHandler::kContainerName;
    return m_services.paths.container / (store + ".sqlite");
}

CompositionRoot::RestoredLogin CompositionRoot::restoreLogin(Cancellation* cancellation) {
    const Logger log = m_services.logger("Ledgerfinch_App");
    const auto server = m_services.defaults->string("server").value_or("");
    const auto reading = KeychainHandler(m_services).readToken(server);
    if (reading.state == SecretState::Unavailable) return SecretsUnavailable{reading.reason};
    if (!text::isValidUtf8(reading.data)) fatal("The stored token is damaged.");
    if (server.empty() || reading.data.empty()) {
        log.info("No token found");
        return NoToken{};
    }
    auto handler = ApiHandler::withToken(m_services, *m_core, server, reading.data, cancellation);
    log.debug("Logged in at %{public}s", server);
    return handler;
}

} // namespace ledgerfinch
