// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/LoginRecord.h"

#include "connection/KeychainHandler.h"
#include "shell/Settings.h"

#include <utility>

namespace ledgerfinch {

LoginRecord::LoginRecord(Services& services, std::string address, std::string secretService)
    : m_services(services), m_address(std::move(address)), m_secretService(std::move(secretService)) {}

std::string LoginRecord::userKey() const {
    return settings::currentUserIdKey(addresses::withoutSlash(m_address));
}

std::optional<ApiError> LoginRecord::keep(const std::string& token, const std::optional<std::string>& serverVersion) {
    auto& defaults = *m_services.defaults;
    Before before;
    const auto connected = ConnectedInstances::load(defaults);
    if (const auto* entry = connected.find(m_address)) before.entry = *entry;
    before.knewUser = defaults.integer(userKey()).has_value();
    for (const auto& form : {m_secretService, addresses::otherForm(m_secretService)}) {
        auto reading = KeychainHandler(m_services).read(form);
        if (reading.state == SecretState::Unavailable) return ApiError::secretsUnavailable(reading.reason);
        if (reading.state == SecretState::Missing || before.token) continue;
        before.token = std::move(reading.data);
        before.tokenService = form;
    }
    m_before = std::move(before);
    m_token = token;

    auto registered = registerInstance(defaults, m_address);
    auto stored = !registered     ? Result<void>(registered.error())
                  : serverVersion ? updateInstance(defaults, m_address, std::nullopt, *serverVersion)
                                  : Result<void>();
    if (!stored) {
        undo();
        return ApiError::settingsUnwritable(stored.error().message);
    }
    if (const auto saved = KeychainHandler(m_services).saveToken(token, m_secretService); !saved) {
        undo();
        return ApiError::secretsUnavailable(saved.error().message);
    }
    return std::nullopt;
}

void LoginRecord::undo() {
    const auto before = std::exchange(m_before, std::nullopt);
    if (!before) return;
    KeychainHandler keychain(m_services);
    // A token that somebody else has saved meanwhile stays.
    const auto now = keychain.readToken(m_secretService);
    if (now.state == SecretState::Found && now.data == m_token && before->token != m_token) {
        if (before->token)
            (void)keychain.saveToken(*before->token, before->tokenService);
        else
            (void)keychain.deleteToken(m_secretService, m_token);
    }
    (void)changeInstances(*m_services.defaults, [&](ConnectedInstances& connected) {
        const auto* entry = connected.find(m_address);
        if (entry == nullptr) return;
        const auto key = entry->first;
        if (before->entry)
            connected.instances[key] = before->entry->second;
        else
            connected.instances.erase(key);
    });
    if (!before->knewUser) (void)m_services.defaults->remove(userKey());
}

} // namespace ledgerfinch
