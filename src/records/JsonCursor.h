// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// For the sources of this folder only: this header brings the JSON library in.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <simdjson.h>

namespace ledgerfinch::decoding {

using Value = simdjson::ondemand::value;

/// Where and why a decode failed. Holds names of known keys, positions and reasons, no values.
struct Failure {
    std::string path; ///< "results[3].title"; empty for the body itself
    std::string reason;
    std::size_t offset = 0; ///< byte of the body
    simdjson::error_code code = simdjson::SUCCESS;

    /// One sentence for a log line.
    [[nodiscard]] std::string describe() const;
};

/// One pass over one body. The readers return false after they noted a failure.
class Cursor {
public:
    /// `begin` is where the parsed bytes stand, `source` the bytes as they came, of the same length.
    Cursor(simdjson::ondemand::document& document, const char* begin, std::string_view source)
        : m_document(document), m_begin(begin), m_source(source) {}

    [[nodiscard]] simdjson::ondemand::document& document() { return m_document; }

    bool fail(std::string reason);
    /// A wrong type is told as "<expected> was expected", everything else by the library's words.
    bool fail(simdjson::error_code code, const char* expected);
    /// Called on the way out: puts a key or an index before the path. Always false.
    bool failedIn(std::string_view name);
    bool failedAt(std::size_t index);

    /// Notes where a value starts, for the position of a failure.
    void at(Value& value) { m_position = value.raw_json_token().data(); }

    /// The bytes of a value, as they came, after it was read or skipped; `token` is what raw_json_token() gave before.
    [[nodiscard]] std::string_view bytesAfterReading(std::string_view token);

    /// Checks a value that nobody reads as strictly as one that somebody does.
    bool skip(Value value, int depth = 0);

    [[nodiscard]] const Failure& failure() const { return m_failure; }

private:
    simdjson::ondemand::document& m_document;
    const char* m_begin;
    std::string_view m_source;
    const char* m_position = nullptr;
    Failure m_failure;
};

/// Parses a body and hands it to `visit`, which starts from Cursor::document(). `visit` may be called again from the
/// start, with a mended copy: bytes that aren't UTF-8 and lone surrogates become U+FFFD. Absent: no failure.
std::optional<Failure> parseBody(std::string_view body, const std::function<bool(Cursor&)>& visit);

/// A number as JSON writes it.
[[nodiscard]] bool isJsonNumber(std::string_view token);
[[nodiscard]] std::string_view withoutTrailingSpace(std::string_view token);

} // namespace ledgerfinch::decoding
