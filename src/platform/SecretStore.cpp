// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/SecretStore.h"

#include "platform/SecretService.h"

namespace ledgerfinch {

namespace {

const Error kLocked{"The memory store is locked.", 7};

} // namespace

SecretReading MemorySecretStore::read(std::string_view service, std::string_view account) {
    const std::lock_guard lock(m_mutex);
    if (m_locked) {
        return {.state = SecretState::Unavailable, .data = {}, .reason = kLocked.message, .code = kLocked.code};
    }
    const auto found = m_secrets.find({std::string(service), std::string(account)});
    if (found == m_secrets.end()) return {};
    return {.state = SecretState::Found, .data = found->second, .reason = {}, .code = 0};
}

Result<void> MemorySecretStore::save(std::string_view data, std::string_view service, std::string_view account) {
    const std::lock_guard lock(m_mutex);
    if (m_locked) return kLocked;
    m_secrets.insert_or_assign({std::string(service), std::string(account)}, std::string(data));
    return {};
}

Result<void> MemorySecretStore::remove(std::string_view service, std::string_view account) {
    const std::lock_guard lock(m_mutex);
    if (m_locked) return kLocked;
    m_secrets.erase({std::string(service), std::string(account)});
    return {};
}

void MemorySecretStore::setLocked(bool locked) {
    const std::lock_guard lock(m_mutex);
    m_locked = locked;
}

std::unique_ptr<SecretStore> chooseSecretStore(const std::filesystem::path& fallbackFile, const Logger& log) {
    if (secretService::isReachable()) return makeServiceSecretStore();
    log.info("No secret service answers, tokens are kept in a file that only you can read: %{public}s",
             fallbackFile.string());
    return makeFileSecretStore(fallbackFile);
}

} // namespace ledgerfinch
