// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace ledgerfinch {

/// Writes compact JSON text piece by piece; commas and colons come by themselves. The caller sees to it that every
/// begin has its end and every key its value (asserted in debug builds).
class JsonWriter {
public:
    JsonWriter& beginObject();
    JsonWriter& endObject();
    JsonWriter& beginArray();
    JsonWriter& endArray();
    JsonWriter& key(std::string_view name);

    /// UTF-8; bytes that don't belong become U+FFFD, control characters are escaped.
    JsonWriter& string(std::string_view text);
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) JsonWriter& integer(Integer number) {
        if constexpr (std::is_signed_v<Integer>)
            return signedInteger(number);
        else
            return unsignedInteger(number);
    }
    /// The shortest text that reads back as the same number; null for a number that isn't finite.
    JsonWriter& number(double number);
    JsonWriter& number(float number);
    JsonWriter& boolean(bool flag);
    JsonWriter& null();
    /// A fragment that is valid JSON already, such as a member of a record's `raw`.
    JsonWriter& raw(std::string_view fragment);

    JsonWriter& value(std::string_view text) { return string(text); }
    JsonWriter& value(const std::string& text) { return string(text); }
    JsonWriter& value(const char* text) { return string(text); }
    JsonWriter& value(std::same_as<bool> auto flag) { return boolean(flag); }
    template <std::integral Integer>
    requires(!std::same_as<Integer, bool>) JsonWriter& value(Integer number) { return integer(number); }
    JsonWriter& value(std::floating_point auto number) { return this->number(number); }
    JsonWriter& value(std::nullopt_t) { return null(); }
    /// Null when empty.
    template <class T>
    JsonWriter& value(const std::optional<T>& optional) {
        return optional ? value(*optional) : null();
    }
    template <class T>
    JsonWriter& value(const std::vector<T>& list) {
        beginArray();
        for (const auto& element : list)
            value(static_cast<const T&>(element));
        return endArray();
    }

    template <class T>
    JsonWriter& member(std::string_view name, const T& content) {
        return key(name).value(content);
    }
    JsonWriter& member(std::string_view name, const char* text) { return key(name).string(text); }
    JsonWriter& rawMember(std::string_view name, std::string_view fragment) { return key(name).raw(fragment); }

    [[nodiscard]] const std::string& text() const& { return m_text; }
    /// The text, leaving the writer empty.
    [[nodiscard]] std::string take();

private:
    void beforeValue();
    JsonWriter& signedInteger(std::int64_t number);
    JsonWriter& unsignedInteger(std::uint64_t number);

    std::string m_text;
    int m_depth = 0;
    bool m_afterKey = false;
    bool m_needsComma = false;
};

/// The text as a JSON string with its quotation marks.
[[nodiscard]] std::string jsonQuoted(std::string_view text);

} // namespace ledgerfinch
