// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Services.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>

namespace ledgerfinch {

/// Where the folders "documents" and "previews" lie, and their moves between the shared container and the cloud folder.
/// Holds nothing but the services: every answer is computed from the settings as they are. Any thread; the moves and
/// downloadPlaceholder block and stay off the main thread.
class CloudDataHandler {
public:
    using Wait = std::function<void(std::chrono::microseconds)>;

    /// `wait` replaces the sleep between two looks at a file that is on its way.
    explicit CloudDataHandler(const Services& services, Wait wait = {});

    /// The shared container.
    [[nodiscard]] std::filesystem::path localRoot() const;
    /// "Documents" in the folder that the setting "cloudFolder" names; absent unless that is an absolute path to a
    /// folder that can be written.
    [[nodiscard]] std::optional<std::filesystem::path> cloudRoot() const;
    [[nodiscard]] bool isSignedIn() const { return cloudRoot().has_value(); }
    /// The cloud root when the setting "useiCloud" is on and there is one, else the local root.
    [[nodiscard]] std::filesystem::path baseFolder() const;

    /// When the first entry of the folder is a placeholder (".name.icloud"), waits up to a minute for the file itself.
    void downloadPlaceholder(const std::filesystem::path& folder) const;

    /// Copies both folders, then removes what was copied. A failed copy leaves the source as it is. What another device
    /// put into the cloud folder stays there.
    void moveFilesToCloud() const;
    void moveFilesToLocal() const;

private:
    const Services& m_services;
    Logger m_log;
    Wait m_wait;
};

} // namespace ledgerfinch
