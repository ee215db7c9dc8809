// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/FilenameSchemes.h"

#include "platform/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace ledgerfinch {
namespace {

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

// Control (Cc) and format (Cf) characters, line and paragraph separators, and code points that are no characters, as of
// Unicode 15. The non-characters at the end of every plane are tested apart.
constexpr auto kDropped = std::to_array<Range>({
    {0x00, 0x1F},       {0x7F, 0x9F},       {0xAD, 0xAD},       {0x600, 0x605},     {0x61C, 0x61C},
    {0x6DD, 0x6DD},     {0x70F, 0x70F},     {0x890, 0x891},     {0x8E2, 0x8E2},     {0x180E, 0x180E},
    {0x200B, 0x200F},   {0x2028, 0x202E},   {0x2060, 0x2064},   {0x2066, 0x206F},   {0xD800, 0xDFFF},
    {0xFDD0, 0xFDEF},   {0xFEFF, 0xFEFF},   {0xFFF9, 0xFFFB},   {0x110BD, 0x110BD}, {0x110CD, 0x110CD},
    {0x13430, 0x1343F}, {0x1BCA0, 0x1BCA3}, {0x1D173, 0x1D17A}, {0xE0001, 0xE0001}, {0xE0020, 0xE007F},
});
constexpr std::string_view kDroppedAscii = R"(\/:*?"<>|)";

bool isDropped(std::uint32_t codePoint) {
    if (codePoint < 0x80 && kDroppedAscii.find(static_cast<char>(codePoint)) != std::string_view::npos) return true;
    if ((codePoint & 0xFFFE) == 0xFFFE) return true;
    return std::any_of(kDropped.begin(), kDropped.end(),
                       [codePoint](const Range& range) { return codePoint >= range.first && codePoint <= range.last; });
}

/// The length of the code point that starts with this byte, of valid UTF-8.
std::size_t lengthOf(char lead) {
    const auto byte = static_cast<unsigned char>(lead);
    return byte < 0x80 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
}

std::uint32_t decode(std::string_view unit) {
    constexpr std::array<std::uint32_t, 5> leadMask{0, 0x7F, 0x1F, 0x0F, 0x07};
    std::uint32_t codePoint = static_cast<unsigned char>(unit[0]) & leadMask[unit.size()];
    for (const char byte : unit.substr(1))
        codePoint = codePoint << 6 | (static_cast<unsigned char>(byte) & 0x3F);
    return codePoint;
}

// Leaves room for a suffix, ".sqlite" and what the store puts beside its file, within the 255 bytes of a file name.
constexpr std::size_t kLongestStoreName = 200;
constexpr std::string_view kFallbackName = "server";

std::string withoutCase(std::string_view name) {
    std::string lower(name);
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char character) {
        return character >= 'A' && character <= 'Z' ? char(character + 32) : character;
    });
    return lower;
}

void cutAtCharacter(std::string& name, std::size_t longest) {
    if (name.size() <= longest) return;
    while (longest > 0 && (static_cast<unsigned char>(name[longest]) & 0xC0) == 0x80)
        --longest;
    name.resize(longest);
}

} // namespace

std::string sanitizedForFileName(std::string_view text) {
    const std::string valid = text::toValidUtf8(text);
    std::string kept;
    for (std::size_t position = 0; position < valid.size();) {
        const auto unit = std::string_view(valid).substr(position, lengthOf(valid[position]));
        if (!isDropped(decode(unit))) kept += unit;
        position += unit.size();
    }
    return kept;
}

std::string storeNameFor(std::string_view address, const std::set<std::string>& taken) {
    // The stores of offline mode and of the custom queries are nobody's.
    std::set<std::string> reserved{"ledgerfinch", "ledgerfinch-queries"};
    for (const auto& name : taken)
        reserved.insert(withoutCase(name));
    std::string base = sanitizedForFileName(address);
    base.erase(0, std::min(base.find_first_not_of(". "), base.size()));
    cutAtCharacter(base, kLongestStoreName);
    if (base.empty()) base = kFallbackName;
    std::string name = base;
    for (int number = 2; reserved.contains(withoutCase(name)); ++number)
        name = base + "-" + std::to_string(number);
    return name;
}

bool isStoreName(std::string_view name) {
    if (name.empty() || name.size() > kLongestStoreName + 20 || name.front() == '.') return false;
    return text::isValidUtf8(name) && sanitizedForFileName(name) == name;
}

} // namespace ledgerfinch
