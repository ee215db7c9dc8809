// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/SecretStore.h"

#include <functional>
#include <memory>
#include <mutex>

namespace ledgerfinch {

/// A secret store that is chosen when it is first asked: choosing talks to the session bus, and most commands need no
/// secret.
class LazySecretStore final : public SecretStore {
public:
    explicit LazySecretStore(std::function<std::unique_ptr<SecretStore>()> choose) : m_choose(std::move(choose)) {}

    SecretReading read(std::string_view service, std::string_view account) override {
        return chosen().read(service, account);
    }
    Result<void> save(std::string_view data, std::string_view service, std::string_view account) override {
        return chosen().save(data, service, account);
    }
    Result<void> remove(std::string_view service, std::string_view account) override {
        return chosen().remove(service, account);
    }
    [[nodiscard]] std::string kind() const override { return chosen().kind(); }

private:
    SecretStore& chosen() const {
        std::call_once(m_once, [this] { m_store = m_choose(); });
        return *m_store;
    }

    std::function<std::unique_ptr<SecretStore>()> m_choose;
    mutable std::once_flag m_once;
    mutable std::unique_ptr<SecretStore> m_store;
};

} // namespace ledgerfinch
