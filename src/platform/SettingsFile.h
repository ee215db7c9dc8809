// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ledgerfinch {

using SettingValue = std::variant<bool, std::int64_t, std::string>;

/// The text of the settings file: "key=value" lines under "[General]". Values are true, false, a whole number, or a
/// text in double quotes; a bare word that is none of these reads as a text, for files edited by hand. Special
/// characters of keys are percent-encoded. What isn't understood stays in the file as it is.
class SettingsFile {
public:
    static SettingsFile parse(std::string_view text);
    [[nodiscard]] std::string text() const;

    [[nodiscard]] const std::map<std::string, SettingValue, std::less<>>& values() const { return m_values; }
    /// Without a value the key goes.
    void set(std::string_view key, const std::optional<SettingValue>& value);

private:
    struct Line {
        std::string raw;
        std::optional<std::string> key; ///< of a line that holds a value
    };

    std::size_t insertPosition();

    std::vector<Line> m_lines;
    std::map<std::string, SettingValue, std::less<>> m_values;
};

} // namespace ledgerfinch
