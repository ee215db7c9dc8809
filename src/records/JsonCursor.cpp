// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/JsonCursor.h"

#include "platform/Text.h"

#include <cstring>
#include <memory>
#include <utility>

namespace ledgerfinch::decoding {
namespace {

/// As deep as the server's own lists ever nest, many times over; keeps hostile bodies off the stack.
constexpr int kDeepest = 256;
/// Larger bodies are refused: no server sends them, and the parser takes several times their size.
constexpr std::size_t kLargestBody = std::size_t{512} << 20;
/// What a thread keeps for its next body.
constexpr std::size_t kLargestKeptBuffer = std::size_t{16} << 20;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// The parser and the padded copy that it reads, kept from body to body.
class Workspace {
public:
    /// The body with the padding that the parser asks for. This is the only copy made of it.
    simdjson::padded_string_view pad(std::string_view body) {
        const std::size_t needed = body.size() + simdjson::SIMDJSON_PADDING;
        if (m_capacity < needed) {
            m_buffer = std::make_unique_for_overwrite<char[]>(needed);
            m_capacity = needed;
        }
        if (!body.empty()) std::memcpy(m_buffer.get(), body.data(), body.size());
        std::memset(m_buffer.get() + body.size(), 0, simdjson::SIMDJSON_PADDING);
        return simdjson::padded_string_view(m_buffer.get(), body.size(), m_capacity);
    }

    simdjson::ondemand::parser& parser() {
        if (!m_parser) m_parser = std::make_unique<simdjson::ondemand::parser>(kLargestBody);
        return *m_parser;
    }

    void shrink() {
        if (m_capacity <= kLargestKeptBuffer) return;
        m_buffer.reset();
        m_capacity = 0;
        m_parser.reset();
    }

private:
    std::unique_ptr<char[]> m_buffer;
    std::size_t m_capacity = 0;
    std::unique_ptr<simdjson::ondemand::parser> m_parser;
};

Failure failureOf(simdjson::error_code code) {
    return {.path = {}, .reason = simdjson::error_message(code), .value = {}, .offset = 0};
}

/// Absent: no failure. Otherwise the parser's own code, SUCCESS when it was the reader that failed.
struct Attempt {
    std::optional<Failure> failure;
    simdjson::error_code code = simdjson::SUCCESS;
};

Attempt attempt(Workspace& workspace, std::string_view body, const std::function<bool(Cursor&)>& visit) {
    const simdjson::padded_string_view padded = workspace.pad(body);
    simdjson::ondemand::document document;
    if (const auto error = workspace.parser().iterate(padded).get(document)) return {failureOf(error), error};
    Cursor cursor(workspace.parser(), document, padded.data());
    if (!visit(cursor)) return {cursor.failure()};
    const bool atEnd = document.current_location().error() == simdjson::OUT_OF_BOUNDS;
    if (!atEnd) return {failureOf(simdjson::TRAILING_CONTENT)};
    return {};
}

} // namespace

std::string Failure::beforeValue() const {
    return path.empty() ? reason : path + ": " + reason;
}

std::string Failure::afterValue() const {
    return " (byte " + std::to_string(offset) + ")";
}

bool Cursor::fail(std::string reason, std::string_view value) {
    m_failure = {.path = {},
                 .reason = std::move(reason),
                 .value = std::string(value),
                 .offset = m_position ? static_cast<std::size_t>(m_position - m_begin) : 0};
    return false;
}

bool Cursor::fail(simdjson::error_code code, const char* expected) {
    if (code == simdjson::INCORRECT_TYPE) return fail(std::string(expected) + " was expected");
    return fail(simdjson::error_message(code));
}

bool Cursor::failedIn(std::string_view name) {
    std::string path(name);
    if (!m_failure.path.empty() && m_failure.path.front() != '[') path.append(1, '.');
    path.append(m_failure.path);
    m_failure.path = std::move(path);
    return false;
}

bool Cursor::failedAt(std::size_t index) {
    return failedIn(std::string(1, '[').append(std::to_string(index)).append(1, ']'));
}

bool Cursor::unescapeText(simdjson::ondemand::raw_json_string start, std::string_view& text) {
    if (m_block.size() < text.size() + simdjson::SIMDJSON_PADDING)
        m_block.resize(2 * text.size() + simdjson::SIMDJSON_PADDING);
    std::uint8_t* to = m_block.data();
    std::string_view plain;
    if (m_parser.unescape(start, to).get(plain) == simdjson::SUCCESS) {
        text = plain;
        return true;
    }
    // The library refuses half surrogate pairs.
    if (!unescape(text, m_scratch)) return false;
    text = m_scratch;
    return true;
}

bool Cursor::key(simdjson::ondemand::field& field, std::string_view& key) {
    // Nearly every key is plain and can be compared where it stands.
    const char* start = field.key().raw();
    const char* end = start;
    bool hasEscapes = false;
    for (; *end != '"'; ++end) {
        if (*end != '\\') continue;
        hasEscapes = true;
        ++end;
    }
    key = {start, static_cast<std::size_t>(end - start)};
    if (!hasEscapes) return true;
    if (!unescape(key, m_scratch)) return fail(simdjson::STRING_ERROR, "a key");
    key = m_scratch;
    return true;
}

bool Cursor::skip(Value& value, int depth) {
    if (depth > kDeepest) return fail("the nesting is too deep");
    simdjson::ondemand::json_type type{};
    if (const auto error = value.type().get(type)) return fail(error, "a value");
    switch (type) {
    case simdjson::ondemand::json_type::object: {
        simdjson::ondemand::object object;
        if (const auto error = value.get_object().get(object)) return fail(error, "an object");
        for (auto element : object) {
            simdjson::ondemand::field field;
            if (const auto error = std::move(element).get(field)) return fail(error, "a member");
            std::string_view key;
            if (!this->key(field, key)) return false;
            if (Value inner = field.value(); !skip(inner, depth + 1)) return false;
        }
        return true;
    }
    case simdjson::ondemand::json_type::array: {
        simdjson::ondemand::array array;
        if (const auto error = value.get_array().get(array)) return fail(error, "a list");
        for (auto element : array) {
            Value item;
            if (const auto error = std::move(element).get(item)) return fail(error, "a value");
            if (!skip(item, depth + 1)) return false;
        }
        return true;
    }
    case simdjson::ondemand::json_type::string: {
        std::string_view unused;
        return text(value, "a text", unused);
    }
    case simdjson::ondemand::json_type::number:
        // Any size: what nobody reads needn't fit.
        return isJsonNumber(value.raw_json_token()) || fail(simdjson::NUMBER_ERROR, "a number");
    case simdjson::ondemand::json_type::boolean: {
        bool flag = false;
        if (const auto error = value.get_bool().get(flag)) return fail(error, "true or false");
        return true;
    }
    case simdjson::ondemand::json_type::null: {
        bool isNull = false;
        const auto error = value.is_null().get(isNull);
        return (error == simdjson::SUCCESS && isNull) || fail(simdjson::N_ATOM_ERROR, "null");
    }
    }
    return fail("a value was expected");
}

bool isJsonNumber(std::string_view token) {
    token = withoutTrailingSpace(token);
    std::size_t at = 0;
    const auto digits = [&] {
        const std::size_t from = at;
        while (at < token.size() && token[at] >= '0' && token[at] <= '9')
            ++at;
        return at - from;
    };
    if (at < token.size() && token[at] == '-') ++at;
    const std::size_t first = at;
    const std::size_t whole = digits();
    if (whole == 0 || (whole > 1 && token[first] == '0')) return false;
    if (at < token.size() && token[at] == '.') {
        ++at;
        if (digits() == 0) return false;
    }
    if (at < token.size() && (token[at] == 'e' || token[at] == 'E')) {
        ++at;
        if (at < token.size() && (token[at] == '+' || token[at] == '-')) ++at;
        if (digits() == 0) return false;
    }
    return at == token.size();
}

std::optional<Failure> parseBody(std::string_view body, const std::function<bool(Cursor&)>& visit) {
    thread_local Workspace workspace;

    if (body.starts_with(kByteOrderMark)) body.remove_prefix(kByteOrderMark.size());
    if (body.size() > kLargestBody) return failureOf(simdjson::CAPACITY);

    Attempt result = attempt(workspace, body, visit);
    if (result.code == simdjson::UTF8_ERROR) {
        const std::string valid = text::toValidUtf8(body);
        if (valid.size() > kLargestBody) return failureOf(simdjson::CAPACITY);
        result = attempt(workspace, valid, visit);
    }
    workspace.shrink();
    return result.failure;
}

} // namespace ledgerfinch::decoding
