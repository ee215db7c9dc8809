// SPDX-License-Identifier: GPL-3.0-or-later
#include "app/CompositionRoot.h"

#include "app/LazySecretStore.h"
#include "connection/KeychainHandler.h"
#include "platform/LogSinks.h"
#include "platform/Text.h"
#include "store/FilenameSchemes.h"
#include "store/StoreNames.h"

#include <vector>

#include <sys/stat.h>

namespace ledgerfinch {
namespace {

std::shared_ptr<LogSink> makeLog(const Paths& paths, bool verbose) {
    std::vector<std::shared_ptr<LogSink>> sinks;
    // Without a stored log the program works on.
    if (auto file = FileLogSink::open(paths.state / "logs")) sinks.push_back(std::move(file).value());
    if (verbose) sinks.push_back(std::make_shared<StderrLogSink>());
    return std::make_shared<TeeLogSink>(std::move(sinks));
}

} // namespace

CompositionRoot::~CompositionRoot() {
    setFatalHandler({});
}

Result<std::unique_ptr<CompositionRoot>> CompositionRoot::build(LaunchOptions options) {
    // What the program makes belongs to its user alone, stores included.
    ::umask(S_IRWXG | S_IRWXO);
    auto paths = Paths::standard(options.dataDirectory);
    if (!paths) return Error{paths.error().message, static_cast<int>(LaunchError::Folders)};
    std::unique_ptr<CompositionRoot> root(new CompositionRoot);
    Services& services = root->m_services;
    services.paths = std::move(paths).value();
    services.log = options.log ? std::move(options.log) : makeLog(services.paths, options.verbose);
    auto defaults = UserDefaults::open(services.paths.config / (std::string(UserDefaults::kSuite) + ".ini"));
    if (!defaults) {
        services.logger("CompositionRoot").error("The settings can't be opened: %{public}s", defaults.error().message);
        return Error{"The settings can't be opened: " + defaults.error().message,
                     static_cast<int>(LaunchError::Settings)};
    }
    services.defaults = std::move(defaults).value();
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
    if (!m_core) m_core = std::make_unique<CoreDataHandler>(m_services);
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

CompositionRoot::RestoredLogin CompositionRoot::restoreLogin() {
    const Logger log = m_services.logger("Ledgerfinch_App");
    const auto server = m_services.defaults->string("server").value_or("");
    const auto reading = KeychainHandler(m_services).readToken(server);
    if (reading.state == SecretState::Unavailable) return SecretsUnavailable{reading.reason};
    if (!text::isValidUtf8(reading.data)) fatal("The stored token is damaged.");
    if (server.empty() || reading.data.empty()) {
        log.info("No token found");
        return NoToken{};
    }
    auto handler = ApiHandler::withToken(m_services, *m_core, server, reading.data);
    log.debug("Logged in at %{public}s", server);
    return handler;
}

} // namespace ledgerfinch
