// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/UserDefaults.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace ledgerfinch {

/// Settings that change together: put back as they were, the latest first, unless they are kept in the end.
class SettingsChange {
public:
    using Value = std::variant<bool, std::string>;

    explicit SettingsChange(UserDefaults& defaults) : m_defaults(defaults) {}
    ~SettingsChange();
    SettingsChange(const SettingsChange&) = delete;
    SettingsChange& operator=(const SettingsChange&) = delete;

    /// Without a value the key goes. After a failure nothing more is written.
    void set(std::string_view key, const std::optional<Value>& value);
    /// Why the first write that failed did.
    [[nodiscard]] const std::optional<Error>& failure() const { return m_failure; }
    void keep() { m_before.clear(); }

private:
    Result<void> write(const std::string& key, const std::optional<Value>& value);

    UserDefaults& m_defaults;
    std::vector<std::pair<std::string, std::optional<Value>>> m_before;
    std::optional<Error> m_failure;
};

} // namespace ledgerfinch
