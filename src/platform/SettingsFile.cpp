// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/SettingsFile.h"

#include "platform/Escaping.h"

#include <algorithm>
#include <charconv>

namespace ledgerfinch {

namespace {

constexpr std::string_view kHeader = "[General]";

std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char character) {
        return character == ' ' || character == '\t' || character == '\r';
    };
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

std::string encodedKey(std::string_view key) {
    return escaping::percentEncode(key, "=%;#[] \"\\");
}

std::string quoted(std::string_view text) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string result = "\"";
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            result += '\\';
            result += character;
        } else if (character == '\n') {
            result += "\\n";
        } else if (character == '\r') {
            result += "\\r";
        } else if (character == '\t') {
            result += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            result += "\\x";
            result += digits[byte >> 4];
            result += digits[byte & 0x0F];
        } else {
            result += character;
        }
    }
    return result + '"';
}

/// Takes a backslash sequence from the front; nothing when it is none of ours.
std::optional<char> takeEscape(std::string_view& text) {
    if (text.size() < 2) return std::nullopt;
    const char kind = text[1];
    const auto digits = text.substr(2, 2);
    text.remove_prefix(2);
    switch (kind) {
    case '"':
    case '\\':
        return kind;
    case 'n':
        return '\n';
    case 'r':
        return '\r';
    case 't':
        return '\t';
    case 'x':
        if (const auto byte = escaping::hexByte(digits)) {
            text.remove_prefix(2);
            return static_cast<char>(*byte);
        }
        return std::nullopt;
    default:
        return std::nullopt;
    }
}

std::optional<std::string> unquoted(std::string_view text) {
    if (text.size() < 2 || text.front() != '"' || text.back() != '"') return std::nullopt;
    text = text.substr(1, text.size() - 2);
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        if (text.front() == '\\') {
            const auto character = takeEscape(text);
            if (!character) return std::nullopt;
            result += *character;
        } else if (text.front() == '"') {
            return std::nullopt;
        } else {
            result += text.front();
            text.remove_prefix(1);
        }
    }
    return result;
}

std::optional<SettingValue> parseValue(std::string_view text) {
    if (text == "true") return true;
    if (text == "false") return false;
    if (text.starts_with('"')) {
        if (auto string = unquoted(text)) return std::move(*string);
        return std::nullopt;
    }
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc() && end == text.data() + text.size()) return number;
    return std::string(text);
}

std::string valueText(const SettingValue& value) {
    if (const auto* boolean = std::get_if<bool>(&value)) return *boolean ? "true" : "false";
    if (const auto* number = std::get_if<std::int64_t>(&value)) return std::to_string(*number);
    return quoted(std::get<std::string>(value));
}

bool isSectionHeader(std::string_view line) {
    return line.starts_with('[') && line.ends_with(']');
}

} // namespace

SettingsFile SettingsFile::parse(std::string_view text) {
    SettingsFile file;
    bool inGeneral = true;
    while (!text.empty()) {
        const auto end = text.find('\n');
        Line line{std::string(text.substr(0, end)), std::nullopt};
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);

        const auto content = trimmed(line.raw);
        const auto equals = content.find('=');
        const bool isComment = content.starts_with('#') || content.starts_with(';');
        if (isSectionHeader(content)) {
            inGeneral = content == kHeader;
        } else if (inGeneral && !isComment && equals != std::string_view::npos) {
            auto key = escaping::percentDecode(trimmed(content.substr(0, equals)));
            auto value = parseValue(trimmed(content.substr(equals + 1)));
            if (key && value) {
                file.m_values.insert_or_assign(*key, std::move(*value));
                line.key = std::move(key);
            }
        }
        file.m_lines.push_back(std::move(line));
    }
    return file;
}

std::string SettingsFile::text() const {
    std::string result;
    for (const auto& line : m_lines) {
        result += line.raw;
        result += '\n';
    }
    return result;
}

/// Behind the last line of the section, which is made when it is missing.
std::size_t SettingsFile::insertPosition() {
    const auto header =
        std::find_if(m_lines.begin(), m_lines.end(), [](const Line& line) { return trimmed(line.raw) == kHeader; });
    if (header == m_lines.end()) {
        m_lines.push_back({std::string(kHeader), std::nullopt});
        return m_lines.size();
    }
    auto end =
        std::find_if(header + 1, m_lines.end(), [](const Line& line) { return isSectionHeader(trimmed(line.raw)); });
    while (end != header + 1 && trimmed((end - 1)->raw).empty())
        --end;
    return static_cast<std::size_t>(end - m_lines.begin());
}

void SettingsFile::set(std::string_view key, const std::optional<SettingValue>& value) {
    const auto isOurs = [key](const Line& line) {
        return line.key == key;
    };
    if (!value) {
        std::erase_if(m_lines, isOurs);
        if (const auto found = m_values.find(key); found != m_values.end()) m_values.erase(found);
        return;
    }
    Line line{encodedKey(key) + '=' + valueText(*value), std::string(key)};
    m_values.insert_or_assign(std::string(key), *value);
    const auto found = std::find_if(m_lines.begin(), m_lines.end(), isOurs);
    if (found == m_lines.end()) {
        const auto position = insertPosition();
        m_lines.insert(m_lines.begin() + static_cast<std::ptrdiff_t>(position), std::move(line));
        return;
    }
    *found = std::move(line);
    m_lines.erase(std::remove_if(found + 1, m_lines.end(), isOurs), m_lines.end());
}

} // namespace ledgerfinch
