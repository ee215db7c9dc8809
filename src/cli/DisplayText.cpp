// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/DisplayText.h"

#include "platform/Text.h"

#include <QChar>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

namespace ledgerfinch::cli {
namespace {

struct Range {
    char32_t first;
    char32_t last;
};

/// East_Asian_Width W and F (Unicode Standard Annex 11), neighbouring blocks joined.
constexpr std::array<Range, 54> kWide{{
    {0x1100, 0x115F},   {0x231A, 0x231B},   {0x2329, 0x232A},   {0x23E9, 0x23EC},   {0x23F0, 0x23F0},
    {0x23F3, 0x23F3},   {0x25FD, 0x25FE},   {0x2614, 0x2615},   {0x2648, 0x2653},   {0x267F, 0x267F},
    {0x2693, 0x2693},   {0x26A1, 0x26A1},   {0x26AA, 0x26AB},   {0x26BD, 0x26BE},   {0x26C4, 0x26C5},
    {0x26CE, 0x26CE},   {0x26D4, 0x26D4},   {0x26EA, 0x26EA},   {0x26F2, 0x26F3},   {0x26F5, 0x26F5},
    {0x26FA, 0x26FA},   {0x26FD, 0x26FD},   {0x2705, 0x2705},   {0x270A, 0x270B},   {0x2728, 0x2728},
    {0x274C, 0x274C},   {0x274E, 0x274E},   {0x2753, 0x2755},   {0x2757, 0x2757},   {0x2795, 0x2797},
    {0x27B0, 0x27B0},   {0x27BF, 0x27BF},   {0x2B1B, 0x2B1C},   {0x2B50, 0x2B50},   {0x2B55, 0x2B55},
    {0x2E80, 0x303E},   {0x3041, 0x33FF},   {0x3400, 0x4DBF},   {0x4E00, 0xA4CF},   {0xA960, 0xA97F},
    {0xAC00, 0xD7A3},   {0xF900, 0xFAFF},   {0xFE10, 0xFE19},   {0xFE30, 0xFE6F},   {0xFF00, 0xFF60},
    {0xFFE0, 0xFFE6},   {0x16FE0, 0x1B2FF}, {0x1F004, 0x1F004}, {0x1F0CF, 0x1F0CF}, {0x1F18E, 0x1F19A},
    {0x1F200, 0x1F64F}, {0x1F680, 0x1F6FF}, {0x1F7E0, 0x1F9FF}, {0x1FA70, 0x3FFFD},
}};

/// The next character of valid UTF-8; moves the position behind it.
char32_t nextCharacter(std::string_view text, std::size_t& position) {
    const auto byte = [&](std::size_t index) {
        return static_cast<unsigned char>(text[index]);
    };
    const auto lead = byte(position);
    const std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    char32_t character = length == 1 ? lead : lead & (0xFFu >> (length + 1));
    for (std::size_t index = 1; index < length && position + index < text.size(); ++index)
        character = (character << 6) | (byte(position + index) & 0x3Fu);
    position = std::min(position + length, text.size());
    return character;
}

/// Characters that order what stands around them (Unicode Standard Annex 9), and the two line separators.
bool turnsOrBreaksLines(char32_t character) {
    return character == 0x061C || character == 0x200E || character == 0x200F ||
           (character >= 0x2028 && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

bool isControl(char32_t character) {
    return character < 0x20 || (character >= 0x7F && character <= 0x9F);
}

std::string writtenOut(char32_t character) {
    if (character == '\n') return "\\n";
    if (character == '\t') return "\\t";
    if (character == '\r') return "\\r";
    std::array<char, 16> buffer{};
    std::snprintf(buffer.data(), buffer.size(), character < 0x100 ? "\\x%02x" : "\\u{%04x}",
                  static_cast<unsigned>(character));
    return buffer.data();
}

std::size_t columnsOf(char32_t character) {
    if (character < 0x300) return isControl(character) || character == 0xAD ? 0 : 1;
    const auto category = QChar::category(character);
    if (category == QChar::Mark_NonSpacing || category == QChar::Mark_Enclosing || category == QChar::Other_Format)
        return 0;
    if (character >= 0x1160 && character <= 0x11FF) return 0; // vowels and finals of composed Hangul
    const auto* range = std::lower_bound(kWide.begin(), kWide.end(), character,
                                         [](const Range& wide, char32_t wanted) { return wide.last < wanted; });
    return range != kWide.end() && range->first <= character ? 2 : 1;
}

} // namespace

std::string printable(std::string_view text, LineBreaks lineBreaks) {
    const std::string valid = text::toValidUtf8(text);
    std::string result;
    result.reserve(valid.size());
    for (std::size_t position = 0; position < valid.size();) {
        const std::size_t start = position;
        const char32_t character = nextCharacter(valid, position);
        if (lineBreaks == LineBreaks::Keep) {
            if (character == '\r' && position < valid.size() && valid[position] == '\n') continue;
            if (character == '\n' || character == '\t') {
                result.push_back(static_cast<char>(character));
                continue;
            }
        }
        if (isControl(character) || turnsOrBreaksLines(character))
            result += writtenOut(character);
        else
            result.append(valid, start, position - start);
    }
    return result;
}

std::size_t displayWidth(std::string_view text) {
    std::size_t width = 0;
    for (std::size_t position = 0; position < text.size();)
        width += columnsOf(nextCharacter(text, position));
    return width;
}

std::string truncated(std::string_view text, std::size_t width) {
    std::size_t columns = 0;
    std::size_t fitting = 0; // bytes that leave room for the ellipsis
    for (std::size_t position = 0; position < text.size();) {
        columns += columnsOf(nextCharacter(text, position));
        if (columns + 1 <= width) fitting = position;
        if (columns > width) return width == 0 ? std::string() : std::string(text.substr(0, fitting)) + "…";
    }
    return std::string(text);
}

std::string named(std::string_view word) {
    constexpr std::size_t kLongest = 80;
    return word.empty() ? "\"\"" : truncated(printable(word), kLongest);
}

std::string padded(std::string_view text, std::size_t width, Alignment alignment) {
    const std::size_t own = displayWidth(text);
    const std::string blanks(own < width ? width - own : 0, ' ');
    return alignment == Alignment::Left ? std::string(text) + blanks : blanks + std::string(text);
}

} // namespace ledgerfinch::cli
