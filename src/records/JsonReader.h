// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch {

/// The members of one JSON object, each value kept as the text it came as. For records' `raw`, for small bodies and for
/// composing a body of untouched and changed members. A plain value.
class JsonObject {
public:
    JsonObject() = default;
    /// Absent when the text isn't one JSON object. Of a name that comes twice the last value
    /// counts, at the place of the first.
    [[nodiscard]] static std::optional<JsonObject> parse(std::string_view text);

    [[nodiscard]] bool has(std::string_view name) const { return raw(name).has_value(); }
    /// There, and null.
    [[nodiscard]] bool isNull(std::string_view name) const;
    /// The value's JSON text to the byte; points into this object.
    [[nodiscard]] std::optional<std::string_view> raw(std::string_view name) const;

    // Absent when the member is absent, null, or of another kind.
    [[nodiscard]] std::optional<std::int64_t> integer(std::string_view name) const;
    [[nodiscard]] std::optional<double> number(std::string_view name) const;
    [[nodiscard]] std::optional<bool> boolean(std::string_view name) const;
    [[nodiscard]] std::optional<std::string> text(std::string_view name) const;
    [[nodiscard]] std::optional<std::vector<std::int64_t>> integers(std::string_view name) const;
    [[nodiscard]] std::optional<std::vector<std::string>> texts(std::string_view name) const;
    [[nodiscard]] std::optional<JsonObject> object(std::string_view name) const;
    /// The elements of a list, each as its JSON text.
    [[nodiscard]] std::optional<std::vector<std::string>> elements(std::string_view name) const;

    /// Replaces the member where it stands, or appends it. The fragment must be valid JSON.
    void setRaw(std::string_view name, std::string_view fragment);
    void remove(std::string_view name);

    [[nodiscard]] const std::vector<std::pair<std::string, std::string>>& members() const { return m_members; }
    [[nodiscard]] bool empty() const { return m_members.empty(); }
    /// A compact object with the members in order.
    [[nodiscard]] std::string toText() const;

private:
    std::vector<std::pair<std::string, std::string>> m_members;
};

/// Readers of one JSON value's text. Absent when it is null or of another kind. An integer may be written with a
/// fraction of zero ("1.0"); true is no number.
namespace json {

[[nodiscard]] std::optional<std::int64_t> integer(std::string_view fragment);
[[nodiscard]] std::optional<double> number(std::string_view fragment);
[[nodiscard]] std::optional<bool> boolean(std::string_view fragment);
[[nodiscard]] std::optional<std::string> text(std::string_view fragment);
[[nodiscard]] std::optional<std::vector<std::int64_t>> integers(std::string_view fragment);
[[nodiscard]] std::optional<std::vector<std::string>> elements(std::string_view fragment);
/// True when the text is exactly one JSON value.
[[nodiscard]] bool isValid(std::string_view text);

} // namespace json
} // namespace ledgerfinch
