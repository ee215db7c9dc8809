// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/KeychainHandler.h"

#include "connection/Instances.h"

#include <mutex>

namespace ledgerfinch {

namespace {

// A token is compared and removed, or saved, in one go.
std::mutex& tokenMutex() {
    static std::mutex mutex;
    return mutex;
}

} // namespace

Result<void> KeychainHandler::save(std::string_view data, std::string_view service, std::string_view account) {
    auto saved = m_services.secrets->save(data, service, account);
    if (!saved) m_services.logger("KeychainHandler").error("Keychainhandler: Error: %d", saved.error().code);
    return saved;
}

SecretReading KeychainHandler::read(std::string_view service, std::string_view account) {
    auto reading = m_services.secrets->read(service, account);
    const auto log = m_services.logger("KeychainHandler");
    if (reading.state == SecretState::Missing)
        log.info("Keychain item for service %s and account %s not found", service, account);
    if (reading.state == SecretState::Unavailable) log.error("Keychainhandler: Error: %d", reading.code);
    return reading;
}

Result<void> KeychainHandler::remove(std::string_view service, std::string_view account) {
    auto removed = m_services.secrets->remove(service, account);
    if (!removed) m_services.logger("KeychainHandler").error("Keychainhandler: Error: %d", removed.error().code);
    return removed;
}

SecretReading KeychainHandler::readToken(std::string_view server) {
    auto reading = read(server);
    if (reading.state != SecretState::Missing || server.empty()) return reading;
    return read(addresses::otherForm(server));
}

Result<void> KeychainHandler::saveToken(std::string_view token, std::string_view server) {
    const std::lock_guard lock(tokenMutex());
    auto saved = save(token, server);
    if (saved) (void)remove(addresses::otherForm(server));
    return saved;
}

Result<void> KeychainHandler::deleteToken(std::string_view server, const std::optional<std::string>& onlyThis) {
    const std::lock_guard lock(tokenMutex());
    Result<void> outcome;
    for (const auto& form : {std::string(server), addresses::otherForm(server)}) {
        if (onlyThis) {
            const auto reading = m_services.secrets->read(form, kAccount);
            if (reading.state != SecretState::Found || reading.data != *onlyThis) continue;
        }
        if (auto removed = remove(form); !removed) outcome = std::move(removed);
    }
    return outcome;
}

} // namespace ledgerfinch
