// SPDX-License-Identifier: GPL-3.0-or-later
// The texts by which the server names things, and their reading.
#include "records/Attributes.h"
#include "records/Task.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <utility>

namespace ledgerfinch {
namespace {

constexpr std::array<std::pair<Data_Type, std::string_view>, 9> kDataTypes{{
    {Data_Type::string, "string"},
    {Data_Type::url, "url"},
    {Data_Type::date, "date"},
    {Data_Type::boolean, "boolean"},
    {Data_Type::integer, "integer"},
    {Data_Type::float_, "float"},
    {Data_Type::monetary, "monetary"},
    {Data_Type::documentlink, "documentlink"},
    {Data_Type::select, "select"},
}};

/// The text without its last character (one code point of UTF-8), which must not be a line break. Absent without one.
std::optional<std::string_view> withoutLastCharacter(std::string_view text) {
    for (const std::string_view lineBreak : {"\n", "\v", "\f", "\r", "\u0085", "\u2028", "\u2029"})
        if (text.ends_with(lineBreak)) return std::nullopt;
    while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80)
        text.remove_suffix(1);
    if (text.empty()) return std::nullopt;
    text.remove_suffix(1);
    return text;
}

} // namespace

std::string_view rawValue(Data_Type type) {
    const auto found =
        std::find_if(kDataTypes.begin(), kDataTypes.end(), [&](const auto& e) { return e.first == type; });
    return found == kDataTypes.end() ? std::string_view{} : found->second;
}

std::optional<Data_Type> dataTypeFromRawValue(std::string_view text) {
    const auto found =
        std::find_if(kDataTypes.begin(), kDataTypes.end(), [&](const auto& e) { return e.second == text; });
    if (found == kDataTypes.end()) return std::nullopt;
    return found->first;
}

PaperlessTaskStatus PaperlessTaskStatus::fromText(std::string_view text) {
    if (text == "PENDING" || text == "pending") return {Case::pending, {}};
    if (text == "STARTED" || text == "started") return {Case::started, {}};
    if (text == "SUCCESS" || text == "complete") return {Case::complete, {}};
    if (text == "FAILURE" || text == "failed") return {Case::failed, {}};
    return {Case::unknown, std::string(text)};
}

std::optional<std::int64_t> docIDFromResult(std::string_view result) {
    // The first match of "Success. New document id (?<docID>\d+) created", whose first "." is any character but a line
    // break and whose digits are those of ASCII.
    static constexpr std::string_view kBefore = " New document id ";
    static constexpr std::string_view kAfter = " created";
    for (auto at = result.find(kBefore); at != std::string_view::npos; at = result.find(kBefore, at + 1)) {
        const auto start = withoutLastCharacter(result.substr(0, at));
        if (!start || !start->ends_with("Success")) continue;
        const std::string_view rest = result.substr(at + kBefore.size());
        const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
        if (digits == 0 || !rest.substr(digits).starts_with(kAfter)) continue;
        std::int64_t id = 0;
        if (std::from_chars(rest.data(), rest.data() + digits, id).ec != std::errc{}) return std::nullopt;
        return id;
    }
    return std::nullopt;
}

} // namespace ledgerfinch
