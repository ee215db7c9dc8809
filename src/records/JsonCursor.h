// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// For the sources of this folder only: this header brings the JSON library in.

#include "records/JsonStrings.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <simdjson.h>

namespace ledgerfinch::decoding {

using Value = simdjson::ondemand::value;

/// Where and why a decode failed. Only `value` holds something that the body brought; the rest is fit for a log line.
struct Failure {
    std::string path;       ///< "results[3].title"; empty for the body itself
    std::string reason;     ///< names the fault
    std::string value;      ///< what the reason is about, where it ends with it; mostly empty
    std::size_t offset = 0; ///< byte of the body

    /// Path and reason, up to where the value stands.
    [[nodiscard]] std::string beforeValue() const;
    /// The position, from behind the value.
    [[nodiscard]] std::string afterValue() const;
    /// All of it, the value too: for the caller's error, not for a log line.
    [[nodiscard]] std::string describe() const { return beforeValue() + value + afterValue(); }
};

[[nodiscard]] inline std::string_view withoutTrailingSpace(std::string_view token) {
    while (!token.empty() &&
           (token.back() == ' ' || token.back() == '\n' || token.back() == '\r' || token.back() == '\t'))
        token.remove_suffix(1);
    return token;
}

/// One pass over one body. The readers return false after they noted a failure.
class Cursor {
public:
    /// `begin` is where the parsed bytes stand.
    Cursor(simdjson::ondemand::parser& parser, simdjson::ondemand::document& document, const char* begin)
        : m_parser(parser), m_document(document), m_begin(begin) {}

    [[nodiscard]] simdjson::ondemand::document& document() { return m_document; }

    /// Notes the failure of the value in hand, in place of one noted before.
    [[gnu::cold]] bool fail(std::string reason, std::string_view value = {});
    /// A wrong type is told as "<expected> was expected", everything else by the library's words.
    [[gnu::cold]] bool fail(simdjson::error_code code, const char* expected);
    /// Called on the way out: puts a key or an index before the path. Always false.
    [[gnu::cold]] bool failedIn(std::string_view name);
    [[gnu::cold]] bool failedAt(std::size_t index);

    /// Notes where a value starts, for the position of a failure.
    void at(Value& value) { at(value.raw_json_token()); }
    void at(std::string_view token) { m_position = token.data(); }

    /// The bytes of a value, as they came, after it was read or skipped; `token` is what raw_json_token() gave before.
    [[nodiscard]] std::string_view bytesAfterReading(std::string_view token) {
        std::size_t length = token.size();
        if (token.front() == '{' || token.front() == '[') {
            const char* next = nullptr;
            if (m_document.current_location().get(next) == simdjson::SUCCESS)
                length = static_cast<std::size_t>(next - token.data());
        }
        return withoutTrailingSpace({token.data(), length});
    }

    /// A text with its escapes resolved. The view holds until the next text. `expected` tells of another type.
    bool text(Value& value, const char* expected, std::string_view& text) {
        const std::string_view token = withoutTrailingSpace(value.raw_json_token());
        simdjson::ondemand::raw_json_string start; // reading it moves on behind the value
        if (const auto error = value.get_raw_json_string().get(start)) return fail(error, expected);
        text = token.substr(1, token.size() - 2);
        if (text.empty() || std::memchr(text.data(), '\\', text.size()) == nullptr) return true;
        return unescapeText(start, text) || fail(simdjson::STRING_ERROR, expected);
    }
    /// The key with its escapes resolved; holds until the next call.
    bool key(simdjson::ondemand::field& field, std::string_view& key);

    /// Checks a value that nobody reads as strictly as one that somebody does.
    bool skip(Value& value, int depth = 0);

    [[nodiscard]] const Failure& failure() const { return m_failure; }

private:
    bool unescapeText(simdjson::ondemand::raw_json_string start, std::string_view& text);

    simdjson::ondemand::parser& m_parser;
    simdjson::ondemand::document& m_document;
    const char* m_begin;
    const char* m_position = nullptr;
    std::string m_scratch;
    std::vector<std::uint8_t> m_block; ///< where the library unescapes to: small, reused, so it stays in the cache
    Failure m_failure;
};

/// Parses a body and hands it to `visit`, which starts from Cursor::document(). A body with bytes that
/// aren't UTF-8 is parsed as if U+FFFD stood for each of them. Absent: no failure.
std::optional<Failure> parseBody(std::string_view body, const std::function<bool(Cursor&)>& visit);

/// A number as JSON writes it.
[[nodiscard]] bool isJsonNumber(std::string_view token);

} // namespace ledgerfinch::decoding
