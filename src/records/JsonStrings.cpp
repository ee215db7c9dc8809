// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/JsonStrings.h"

#include <cstddef>
#include <cstring>
#include <optional>

namespace ledgerfinch::decoding {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

/// The unit of "\uXXXX" at this place.
std::optional<char32_t> unitAt(std::string_view text, std::size_t at) {
    if (at + 6 > text.size() || text[at] != '\\' || text[at + 1] != 'u') return std::nullopt;
    char32_t unit = 0;
    for (std::size_t i = at + 2; i < at + 6; ++i) {
        const char c = text[i];
        if (c >= '0' && c <= '9')
            unit = unit * 16 + static_cast<char32_t>(c - '0');
        else if (c >= 'a' && c <= 'f')
            unit = unit * 16 + static_cast<char32_t>(c - 'a' + 10);
        else if (c >= 'A' && c <= 'F')
            unit = unit * 16 + static_cast<char32_t>(c - 'A' + 10);
        else
            return std::nullopt;
    }
    return unit;
}

/// The UTF-8 of a code point; never longer than its escape.
char* append(char* to, char32_t c) {
    const auto put = [&to](char32_t byte) {
        *to++ = static_cast<char>(byte);
    };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | (c >> 6));
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | (c >> 12));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | (c >> 18));
        put(0x80 | ((c >> 12) & 0x3F));
        put(0x80 | ((c >> 6) & 0x3F));
        put(0x80 | (c & 0x3F));
    }
    return to;
}

struct Escape {
    char32_t character = 0;
    std::size_t length = 0; ///< of the escape; 0 when it is none
};

Escape unicodeEscapeAt(std::string_view text, std::size_t at) {
    const auto unit = unitAt(text, at);
    if (!unit) return {};
    if (*unit < 0xD800 || *unit > 0xDFFF) return {*unit, 6};
    const auto low = unitAt(text, at + 6);
    if (*unit < 0xDC00 && low && *low >= 0xDC00 && *low <= 0xDFFF)
        return {0x10000 + ((*unit - 0xD800) << 10) + (*low - 0xDC00), 12};
    return {kReplacement, 6};
}

Escape escapeAt(std::string_view text, std::size_t at) {
    if (at + 1 >= text.size()) return {};
    switch (text[at + 1]) {
    case 'n':
        return {'\n', 2};
    case '"':
    case '\\':
    case '/':
        return {static_cast<char32_t>(text[at + 1]), 2};
    case 'u':
        return unicodeEscapeAt(text, at);
    case 't':
        return {'\t', 2};
    case 'r':
        return {'\r', 2};
    case 'b':
        return {'\b', 2};
    case 'f':
        return {'\f', 2};
    default:
        return {};
    }
}

/// The next backslash, or the end.
std::size_t nextEscape(std::string_view text, std::size_t from) {
    if (from >= text.size()) return text.size();
    const void* found = std::memchr(text.data() + from, '\\', text.size() - from);
    return found ? static_cast<std::size_t>(static_cast<const char*>(found) - text.data()) : text.size();
}

} // namespace

bool unescape(std::string_view escaped, std::string& out) {
    std::size_t at = nextEscape(escaped, 0);
    if (at == escaped.size()) {
        out.assign(escaped);
        return true;
    }
    out.resize(escaped.size()); // an escape is never shorter than what it stands for
    char* to = out.data();
    std::size_t plainFrom = 0;
    while (true) {
        if (at != plainFrom) std::memcpy(to, escaped.data() + plainFrom, at - plainFrom);
        to += at - plainFrom;
        if (at == escaped.size()) break;
        const Escape escape = escapeAt(escaped, at);
        if (escape.length == 0) return false;
        to = append(to, escape.character);
        plainFrom = at + escape.length;
        at = nextEscape(escaped, plainFrom);
    }
    out.resize(static_cast<std::size_t>(to - out.data()));
    return true;
}

} // namespace ledgerfinch::decoding
