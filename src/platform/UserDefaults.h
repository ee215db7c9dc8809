// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Result.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ledgerfinch {

/// Ends a registration when it goes. Movable, empty by default.
class Subscription {
public:
    Subscription() = default;
    explicit Subscription(std::function<void()> end) : m_end(std::move(end)) {}
    Subscription(Subscription&& other) noexcept : m_end(std::exchange(other.m_end, nullptr)) {}
    Subscription& operator=(Subscription&& other) noexcept {
        reset();
        m_end = std::exchange(other.m_end, nullptr);
        return *this;
    }
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    ~Subscription() { reset(); }
    void reset() {
        if (auto end = std::exchange(m_end, nullptr)) end();
    }

private:
    std::function<void()> m_end;
};

/// The settings suite: one INI file, safe for several threads and processes. Each write is durable when the call
/// returns (written beside, synced, renamed, under a lock file) and merges with what another process wrote meanwhile:
/// only the key in hand changes. A value that isn't of the asked type reads as absent. Keys may hold any text
/// ("https://host:8000currentUserId").
class UserDefaults {
public:
    static constexpr std::string_view kSuite = "group.net.tallowmere.ledgerfinch";

    /// Opens or creates the file (mode 0600). Fails when it can't be read, or can't be created.
    static Result<std::unique_ptr<UserDefaults>> open(std::filesystem::path file);
    ~UserDefaults();

    [[nodiscard]] std::optional<std::string> string(std::string_view key) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view key) const;
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view key) const;

    /// A write that fails is logged by the caller's choice; the value still holds for this process until it ends.
    Result<void> set(std::string_view key, std::string_view value);
    Result<void> set(std::string_view key, const char* value) { return set(key, std::string_view(value)); }
    Result<void> set(std::string_view key, const std::string& value) { return set(key, std::string_view(value)); }
    Result<void> set(std::string_view key, bool value);
    Result<void> set(std::string_view key, std::int64_t value);
    Result<void> remove(std::string_view key);

    /// Calls back after a key changed, in this process (on the writing thread) or another (on the thread of reload()).
    /// Nothing is locked meanwhile.
    [[nodiscard]] Subscription onChange(std::function<void(std::string_view key)> callback);

    /// Reads what another process wrote since the last look; cheap when nothing changed. Reads and writes call it by
    /// themselves.
    void reload();

private:
    struct Private;
    explicit UserDefaults(std::unique_ptr<Private> d);
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch
