// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Logger.h"

#include "platform/Text.h"

#include <array>
#include <cstdio>
#include <optional>

namespace ledgerfinch {

namespace {

constexpr std::string_view kSubsystem = "net.tallowmere.Ledgerfinch";

enum class Privacy { Unmarked, Public, Private };

/// One "%..." of a format string.
struct Placeholder {
    Privacy privacy = Privacy::Unmarked;
    int precision = -1; ///< of "%.2f"
    char conversion = 0;
    std::size_t length = 0; ///< characters in the format string, the "%" included
};

bool isDigit(char character) {
    return character >= '0' && character <= '9';
}

Privacy parsePrivacy(std::string_view options) {
    auto privacy = Privacy::Unmarked;
    while (!options.empty()) {
        const auto comma = options.find(',');
        auto option = options.substr(0, comma);
        while (!option.empty() && option.front() == ' ')
            option.remove_prefix(1);
        while (!option.empty() && option.back() == ' ')
            option.remove_suffix(1);
        if (option == "private" || option == "sensitive") privacy = Privacy::Private;
        if (option == "public" && privacy == Privacy::Unmarked) privacy = Privacy::Public;
        options = comma == std::string_view::npos ? std::string_view() : options.substr(comma + 1);
    }
    return privacy;
}

/// Absent when the text after "%" is no placeholder.
std::optional<Placeholder> parsePlaceholder(std::string_view text) {
    Placeholder result;
    std::size_t position = 1;
    if (position < text.size() && text[position] == '{') {
        const auto end = text.find('}', position);
        if (end == std::string_view::npos) return std::nullopt;
        result.privacy = parsePrivacy(text.substr(position + 1, end - position - 1));
        position = end + 1;
    }
    if (position < text.size() && text[position] == '.') {
        result.precision = 0;
        for (++position; position < text.size() && isDigit(text[position]); ++position) {
            if (result.precision < 100) result.precision = result.precision * 10 + (text[position] - '0');
        }
    }
    while (position < text.size() && (text[position] == 'l' || text[position] == 'z'))
        ++position;
    if (position >= text.size()) return std::nullopt;
    result.conversion = text[position];
    result.length = position + 1;
    if (std::string_view("s@diuf").find(result.conversion) == std::string_view::npos) return std::nullopt;
    return result;
}

void appendEscaped(std::string& output, std::string_view text) {
    const auto appendCode = [&output](unsigned code) {
        std::array<char, 16> buffer{};
        std::snprintf(buffer.data(), buffer.size(), code < 0x80 ? "\\x%02x" : "\\u%04x", code);
        output += buffer.data();
    };
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if (byte == '\n') {
            output += "\\n";
        } else if (byte == '\r') {
            output += "\\r";
        } else if (byte == '\t') {
            output += "\\t";
        } else if (byte < 0x20 || byte == 0x7F) {
            appendCode(byte);
        } else if (byte == 0xC2 && static_cast<unsigned char>(text[index + 1]) < 0xA0) {
            // The control characters U+0080 to U+009F; among them U+0085, a line break.
            appendCode(static_cast<unsigned char>(text[++index]));
        } else if (text.substr(index, 3) == "\u2028" || text.substr(index, 3) == "\u2029") {
            appendCode(text.substr(index, 3) == "\u2028" ? 0x2028 : 0x2029);
            index += 2;
        } else {
            output += text[index];
        }
    }
}

void appendDouble(std::string& output, double number, int precision) {
    std::array<char, 512> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%.*f", precision < 0 ? 6 : precision, number);
    output += buffer.data();
}

void appendValue(std::string& output, const Placeholder& placeholder, const LogArgument& argument) {
    const auto* text = std::get_if<std::string>(&argument.value());
    const bool hidden =
        placeholder.privacy == Privacy::Private || (text != nullptr && placeholder.privacy != Privacy::Public);
    if (hidden) {
        output += "<private>";
    } else if (text != nullptr) {
        appendEscaped(output, text::toValidUtf8(*text));
    } else if (const auto* number = std::get_if<double>(&argument.value())) {
        appendDouble(output, *number, placeholder.precision);
    } else {
        const auto integer = std::get<std::int64_t>(argument.value());
        if (placeholder.conversion == 'f') {
            appendDouble(output, static_cast<double>(integer), placeholder.precision);
        } else {
            output += std::to_string(integer);
        }
    }
}

} // namespace

std::string renderLogMessage(std::string_view format, const std::vector<LogArgument>& arguments) {
    std::string output;
    output.reserve(format.size() + 32);
    std::size_t next = 0;
    while (!format.empty()) {
        const auto percent = format.find('%');
        output += format.substr(0, percent);
        if (percent == std::string_view::npos) break;
        format.remove_prefix(percent);
        if (format.starts_with("%%")) {
            output += '%';
            format.remove_prefix(2);
        } else if (const auto placeholder = parsePlaceholder(format)) {
            if (next < arguments.size()) {
                appendValue(output, *placeholder, arguments[next++]);
            } else {
                output += "<missing>";
            }
            format.remove_prefix(placeholder->length);
        } else {
            output += '%';
            format.remove_prefix(1);
        }
    }
    return output;
}

Logger::Logger(std::shared_ptr<LogSink> sink, std::string category)
    : m_sink(std::move(sink)), m_category(std::move(category)) {}

void Logger::write(LogLevel level, std::string_view format, const std::vector<LogArgument>& arguments) const {
    if (!m_sink) return;
    m_sink->write({.time = std::chrono::system_clock::now(),
                   .level = level,
                   .subsystem = std::string(kSubsystem),
                   .category = m_category,
                   .message = renderLogMessage(format, arguments)});
}

} // namespace ledgerfinch
