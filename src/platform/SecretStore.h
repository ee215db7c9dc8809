// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Logger.h"
#include "platform/Result.h"

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// What a look for a secret found. Unavailable (the store is locked, or its service went away) is not the same as
/// missing.
enum class SecretState { Found, Missing, Unavailable };

struct SecretReading {
    SecretState state = SecretState::Missing;
    std::string data{};   ///< the bytes, when found
    std::string reason{}; ///< what the service said, when unavailable
    int code = 0;         ///< its code, when unavailable
};

/// Secrets keyed by service and account. Blocking; thread-safe; never call on the main thread.
class SecretStore {
public:
    virtual ~SecretStore() = default;
    virtual SecretReading read(std::string_view service, std::string_view account) = 0;
    /// Adds or replaces.
    virtual Result<void> save(std::string_view data, std::string_view service, std::string_view account) = 0;
    /// Removing what isn't there succeeds.
    virtual Result<void> remove(std::string_view service, std::string_view account) = 0;
    /// Where the secrets lie, for the status display: "Secret Service", "file", "memory".
    [[nodiscard]] virtual std::string kind() const = 0;
};

class MemorySecretStore final : public SecretStore {
public:
    SecretReading read(std::string_view service, std::string_view account) override;
    Result<void> save(std::string_view data, std::string_view service, std::string_view account) override;
    Result<void> remove(std::string_view service, std::string_view account) override;
    [[nodiscard]] std::string kind() const override { return "memory"; }
    /// Makes every call answer Unavailable, as a locked collection does.
    void setLocked(bool locked);

private:
    std::mutex m_mutex;
    std::map<std::pair<std::string, std::string>, std::string> m_secrets;
    bool m_locked = false;
};

/// A file only its user can read (0600, in a 0700 folder), for machines without a Secret Service. Written beside,
/// synced, renamed, under a lock file.
std::unique_ptr<SecretStore> makeFileSecretStore(std::filesystem::path file);

/// The desktop's Secret Service (freedesktop Secret Service API) through QtKeychain.
std::unique_ptr<SecretStore> makeServiceSecretStore();

/// The Secret Service where one answers (or can be activated) on the session bus; else the file store, announced in the
/// log at info level as "No secret service answers, tokens are kept in a file that only you can read: %{public}s".
std::unique_ptr<SecretStore> chooseSecretStore(const std::filesystem::path& fallbackFile, const Logger& log);

} // namespace ledgerfinch
