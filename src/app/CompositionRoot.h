// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "platform/Services.h"
#include "store/CoreDataHandler.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <variant>

namespace ledgerfinch {

/// What the process is about to do with its files.
enum class FileAccess {
    Write, ///< refused where the folders or the active store can't be written to
    Read   ///< works on folders that can only be read
};

/// How the process was started.
struct LaunchOptions {
    /// Everything lies below this folder; absent: the folders of the account.
    std::optional<std::filesystem::path> dataDirectory;
    /// Log lines go to standard error as well.
    bool verbose = false;
    FileAccess access = FileAccess::Write;
    /// In place of what the machine offers; for tests.
    std::shared_ptr<LogSink> log;
    std::unique_ptr<SecretStore> secrets;
};

/// Why the program's parts could not be built: Error::code.
enum class LaunchError {
    Folders = 1, ///< a folder or file can't be made or written to
    Settings     ///< the settings can't be read
};

/// Builds the program's parts, once, and owns them: the services at once, the secret store, the local store and the
/// connection when they are first needed, so that what only reads touches neither network nor secrets.
class CompositionRoot {
public:
    static Result<std::unique_ptr<CompositionRoot>> build(LaunchOptions options);
    ~CompositionRoot();
    CompositionRoot(const CompositionRoot&) = delete;
    CompositionRoot& operator=(const CompositionRoot&) = delete;

    [[nodiscard]] Services& services() { return m_services; }
    /// Opened by the first call, on the main thread. A store that can't be opened ends the program in the documented
    /// way.
    CoreDataHandler& core();
    /// Removes leftovers beside the store, once, on a thread of its own; opens the store. For work that changes the
    /// device's files anyway. The end of the program waits for the entry in hand at most.
    void sweepStrays();
    /// Where stored log lines lie.
    [[nodiscard]] std::filesystem::path logFolder() const;

    /// The file of the active store, whether it is there or not; opens nothing.
    [[nodiscard]] std::filesystem::path activeStoreFile() const;

    struct NoToken {};
    struct SecretsUnavailable {
        std::string reason;
    };
    using RestoredLogin = std::variant<std::shared_ptr<ApiHandler>, NoToken, SecretsUnavailable>;
    /// The stored login of the active server, without asking the server whether it still takes the token. Blocks; not
    /// on the main thread. The store must be open.
    RestoredLogin restoreLogin(Cancellation* cancellation = nullptr);

private:
    CompositionRoot() = default;

    Services m_services;
    FileAccess m_access = FileAccess::Write;
    std::unique_ptr<CoreDataHandler> m_core;
    std::jthread m_sweep; ///< ends before the store does
};

} // namespace ledgerfinch
