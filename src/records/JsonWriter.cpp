// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/JsonWriter.h"

#include "platform/Text.h"

#include <array>
#include <cassert>
#include <charconv>
#include <cmath>
#include <utility>

namespace ledgerfinch {
namespace {

void appendEscaped(std::string& out, std::string_view text) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::size_t plainFrom = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c >= 0x20 && c != '"' && c != '\\' && c != 0x7F) continue;
        out += text.substr(plainFrom, i - plainFrom);
        plainFrom = i + 1;
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        default:
            out += "\\u00";
            out += kHex[c >> 4];
            out += kHex[c & 15];
        }
    }
    out += text.substr(plainFrom);
}

void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    if (text::isValidUtf8(text))
        appendEscaped(out, text);
    else
        appendEscaped(out, text::toValidUtf8(text));
    out += '"';
}

template <class Number>
void appendNumber(std::string& out, Number number) {
    std::array<char, 40> digits{};
    const auto written = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    out.append(digits.data(), written.ptr);
}

} // namespace

void JsonWriter::beforeValue() {
    if (m_needsComma && !m_afterKey) m_text += ',';
    m_needsComma = true;
    m_afterKey = false;
}

JsonWriter& JsonWriter::beginObject() {
    beforeValue();
    m_text += '{';
    ++m_depth;
    m_needsComma = false;
    return *this;
}

JsonWriter& JsonWriter::endObject() {
    assert(m_depth > 0 && !m_afterKey);
    m_text += '}';
    --m_depth;
    m_needsComma = true;
    return *this;
}

JsonWriter& JsonWriter::beginArray() {
    beforeValue();
    m_text += '[';
    ++m_depth;
    m_needsComma = false;
    return *this;
}

JsonWriter& JsonWriter::endArray() {
    assert(m_depth > 0 && !m_afterKey);
    m_text += ']';
    --m_depth;
    m_needsComma = true;
    return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
    assert(m_depth > 0 && !m_afterKey);
    if (m_needsComma) m_text += ',';
    appendQuoted(m_text, name);
    m_text += ':';
    m_afterKey = true;
    return *this;
}

JsonWriter& JsonWriter::string(std::string_view text) {
    beforeValue();
    appendQuoted(m_text, text);
    return *this;
}

JsonWriter& JsonWriter::signedInteger(std::int64_t number) {
    beforeValue();
    appendNumber(m_text, number);
    return *this;
}

JsonWriter& JsonWriter::unsignedInteger(std::uint64_t number) {
    beforeValue();
    appendNumber(m_text, number);
    return *this;
}

JsonWriter& JsonWriter::number(double number) {
    if (!std::isfinite(number)) return null();
    beforeValue();
    appendNumber(m_text, number);
    return *this;
}

JsonWriter& JsonWriter::number(float number) {
    if (!std::isfinite(number)) return null();
    beforeValue();
    appendNumber(m_text, number);
    return *this;
}

JsonWriter& JsonWriter::boolean(bool flag) {
    beforeValue();
    m_text += flag ? "true" : "false";
    return *this;
}

JsonWriter& JsonWriter::null() {
    beforeValue();
    m_text += "null";
    return *this;
}

JsonWriter& JsonWriter::raw(std::string_view fragment) {
    assert(!fragment.empty());
    beforeValue();
    m_text += fragment;
    return *this;
}

std::string JsonWriter::take() {
    assert(m_depth == 0 && !m_afterKey);
    m_needsComma = false;
    return std::exchange(m_text, {});
}

std::string jsonQuoted(std::string_view text) {
    std::string quoted;
    quoted.reserve(text.size() + 2);
    appendQuoted(quoted, text);
    return quoted;
}

} // namespace ledgerfinch
