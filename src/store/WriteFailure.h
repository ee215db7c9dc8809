// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <mutex>
#include <optional>
#include <string>

namespace ledgerfinch {

/// Why a store could not be written, such as a full disk: the first reason, for as long as nobody forgets it. A sync
/// asks before each step, so that it doesn't fail record by record. Thread-safe.
class WriteFailure {
public:
    void note(const Error& error) {
        const std::lock_guard lock(m_mutex);
        if (!m_reason) m_reason = error.message;
    }
    void forget() {
        const std::lock_guard lock(m_mutex);
        m_reason.reset();
    }
    /// A sentence without anything private.
    [[nodiscard]] std::optional<std::string> reason() const {
        const std::lock_guard lock(m_mutex);
        return m_reason;
    }

private:
    mutable std::mutex m_mutex;
    std::optional<std::string> m_reason;
};

} // namespace ledgerfinch
