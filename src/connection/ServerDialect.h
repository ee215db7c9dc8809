// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Http.h"

#include <atomic>
#include <optional>
#include <string>

namespace ledgerfinch {

/// The version of the interface that is spoken with one server: the one place that knows it. Thread-safe.
class ServerDialect {
public:
    /// "application/json; version=2".
    [[nodiscard]] std::string acceptHeader() const;
    /// The same for a version that one request needs.
    [[nodiscard]] static std::string acceptHeader(int version);

    /// Learns from an answer of the server ("x-api-version").
    void hear(const HttpResponse& response);
    /// The newest version the server speaks; absent before it told.
    [[nodiscard]] std::optional<int> newestVersion() const;

private:
    std::atomic<int> m_newest{0};
};

} // namespace ledgerfinch
