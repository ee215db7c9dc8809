// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerWire.h"

#include <algorithm>
#include <charconv>

namespace ledgerfinch::support {

namespace {

constexpr std::string_view serverErrorPage = R"(
<!doctype html>
<html lang="en">
<head>
  <title>Server Error (500)</title>
</head>
<body>
  <h1>Server Error (500)</h1><p></p>
</body>
</html>
)";

constexpr std::string_view csrfPage = R"(<!DOCTYPE html>
<html lang="en">
<head>
  <meta http-equiv="content-type" content="text/html; charset=utf-8">
  <meta name="robots" content="NONE,NOARCHIVE">
  <title>403 Forbidden</title>
  <style>
    html * { padding:0; margin:0; }
    body * { padding:10px 20px; }
    body * * { padding:0; }
    body { font-family: sans-serif; background:#eee; color:#000; }
    body>div { border-bottom:1px solid #ddd; }
    h1 { font-weight:normal; margin-bottom:.4em; }
    h1 span { font-size:60%; color:#666; font-weight:normal; }
    #info { background:#f6f6f6; }
    #info ul { margin: 0.5em 4em; }
    #info p, #summary p { padding-top:10px; }
    #summary { background: #ffc; }
    #explanation { background:#eee; border-bottom: 0px none; }
  </style>
</head>
<body>
<div id="summary">
  <h1>Forbidden <span>(403)</span></h1>
  <p>CSRF verification failed. Request aborted.</p>


  <p>You are seeing this message because this site requires a CSRF cookie when submitting forms. This cookie is required for security reasons, to ensure that your browser is not being hijacked by third parties.</p>
  <p>If you have configured your browser to disable cookies, please re-enable them, at least for this site, or for “same-origin” requests.</p>

</div>

<div id="explanation">
  <p><small>More information is available with DEBUG=True.</small></p>
</div>

</body>
</html>
)";

int hexDigit(char digit) {
    if (digit >= '0' && digit <= '9') return digit - '0';
    if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
    return -1;
}

std::string escapeWith(std::string_view text, std::string_view safe, bool plusForSpace) {
    std::string result;
    for (auto byte : text) {
        auto isPlain = std::isalnum(static_cast<unsigned char>(byte)) != 0 && static_cast<unsigned char>(byte) < 0x80;
        if (isPlain || std::string_view("_.-~").find(byte) != std::string_view::npos ||
            safe.find(byte) != std::string_view::npos) {
            result += byte;
        } else if (byte == ' ' && plusForSpace) {
            result += '+';
        } else {
            constexpr std::string_view digits = "0123456789ABCDEF";
            result += '%';
            result += digits[static_cast<unsigned char>(byte) >> 4];
            result += digits[static_cast<unsigned char>(byte) & 15];
        }
    }
    return result;
}

/// The message of Python's parser for the first fault, as far as it is simple to tell.
std::string parseErrorText(std::string_view body) {
    std::size_t at = 0;
    auto skipSpace = [&] {
        while (at < body.size() && std::string_view(" \t\r\n").find(body[at]) != std::string_view::npos)
            ++at;
    };
    skipSpace();
    std::string reason = "Expecting value";
    if (at < body.size() && body[at] == '{') {
        ++at;
        skipSpace();
        reason = "Expecting property name enclosed in double quotes";
    }
    auto before = body.substr(0, at);
    auto lines = std::count(before.begin(), before.end(), '\n');
    auto lineStart = before.rfind('\n');
    auto column = lineStart == std::string_view::npos ? at + 1 : at - lineStart;
    return "JSON parse error - " + reason + ": line " + std::to_string(lines + 1) + " column " +
           std::to_string(column) + " (char " + std::to_string(at) + ")";
}

} // namespace

std::string_view Request::header(std::string_view lowerName) const {
    for (const auto& [name, value] : headers) {
        if (name == lowerName) return value;
    }
    return {};
}

std::optional<std::string> Request::argument(std::string_view key) const {
    auto found = std::find_if(query.rbegin(), query.rend(), [&](const auto& pair) { return pair.first == key; });
    if (found == query.rend()) return std::nullopt;
    return found->second;
}

bool Request::flag(std::string_view key) const {
    auto value = argument(key);
    if (!value) return false;
    auto lower = lowerAscii(*value);
    return lower == "true" || lower == "1";
}

Response jsonResponse(const Json& body, int status) {
    return rawJsonResponse(textOf(body), status);
}

Response rawJsonResponse(std::string body, int status) {
    Response response;
    response.status = status;
    response.body = std::move(body);
    return response;
}

Response detail(int status, std::string_view text) {
    return jsonResponse(Json{{"detail", text}}, status);
}

Response bareText(int status, std::string text) {
    auto response = rawJsonResponse(std::move(text), status);
    response.contentType = "text/html; charset=utf-8";
    return response;
}

Response noContent() {
    Response response;
    response.status = 204;
    response.contentType.clear();
    return response;
}

Response notFound() {
    return detail(404, "Not found.");
}

Response noMatch(std::string_view className) {
    return detail(404, "No " + std::string(className) + " matches the given query.");
}

Response forbidden() {
    return detail(403, "You do not have permission to perform this action.");
}

Response serverError() {
    auto response = bareText(500, std::string(serverErrorPage));
    response.variesByAccept = false;
    response.hasAllow = false;
    return response;
}

Response csrfFailure() {
    auto response = bareText(403, std::string(csrfPage));
    response.variesByAccept = false;
    response.hasAllow = false;
    return response;
}

Response redirect(std::string location) {
    auto response = bareText(302, {});
    response.variesByAccept = false;
    response.hasAllow = false;
    response.headers.emplace_back("location", std::move(location));
    return response;
}

std::string textOf(const Json& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void appendQuoted(std::string& to, std::string_view text) {
    to += '"';
    std::size_t done = 0;
    for (std::size_t at = 0; at < text.size(); ++at) {
        auto byte = static_cast<unsigned char>(text[at]);
        if (byte >= 0x20 && byte != '"' && byte != '\\') continue;
        to.append(text, done, at - done);
        done = at + 1;
        switch (byte) {
        case '"':
            to += "\\\"";
            break;
        case '\\':
            to += "\\\\";
            break;
        case '\n':
            to += "\\n";
            break;
        case '\r':
            to += "\\r";
            break;
        case '\t':
            to += "\\t";
            break;
        case '\b':
            to += "\\b";
            break;
        case '\f':
            to += "\\f";
            break;
        default: {
            constexpr std::string_view digits = "0123456789abcdef";
            to += "\\u00";
            to += digits[byte >> 4];
            to += digits[byte & 15];
        }
        }
    }
    to.append(text, done, text.size() - done);
    to += '"';
}

void appendNumber(std::string& to, std::int64_t number) {
    char digits[24];
    auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
    to.append(digits, end);
}

void appendId(std::string& to, const OptionalId& id) {
    if (id) {
        appendNumber(to, *id);
    } else {
        to += "null";
    }
}

void appendIds(std::string& to, const std::vector<Id>& ids) {
    to += '[';
    for (std::size_t index = 0; index < ids.size(); ++index) {
        if (index > 0) to += ',';
        appendNumber(to, ids[index]);
    }
    to += ']';
}

std::string unescapeUrl(std::string_view text, bool plusIsSpace) {
    std::string result;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text[at] == '%' && at + 2 < text.size() && hexDigit(text[at + 1]) >= 0 && hexDigit(text[at + 2]) >= 0) {
            result += char(hexDigit(text[at + 1]) * 16 + hexDigit(text[at + 2]));
            at += 2;
        } else {
            result += text[at] == '+' && plusIsSpace ? ' ' : text[at];
        }
    }
    return result;
}

std::string escapeQuery(std::string_view text) {
    return escapeWith(text, "", true);
}

std::string escapePath(std::string_view text, std::string_view safe) {
    return escapeWith(text, safe, false);
}

std::vector<std::pair<std::string, std::string>> parseQuery(std::string_view text) {
    std::vector<std::pair<std::string, std::string>> pairs;
    while (!text.empty()) {
        auto end = std::min(text.find('&'), text.size());
        auto pair = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (pair.empty()) continue;
        auto equals = std::min(pair.find('='), pair.size());
        auto value = pair.substr(std::min(equals + 1, pair.size()));
        pairs.emplace_back(unescapeUrl(pair.substr(0, equals), true), unescapeUrl(value, true));
    }
    return pairs;
}

Id Context::id(std::size_t index) const {
    Id value = 0;
    const auto& text = arguments.at(index);
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc{} && end == text.data() + text.size() ? value : -1;
}

ParsedBody parseBody(const Request& request) {
    auto type = std::string(request.header("content-type"));
    auto mediaType = lowerAscii(type.substr(0, std::min(type.find(';'), type.size())));
    if (request.body.empty() && request.parts.empty()) return {Json::object(), {}};
    if (mediaType == "application/x-www-form-urlencoded" || mediaType == "multipart/form-data") {
        Json form = Json::object();
        for (const auto& part : request.parts)
            form[part.name] = part.content;
        return {std::move(form), {}};
    }
    if (mediaType != "application/json")
        return {{}, detail(415, "Unsupported media type \"" + type + "\" in request.")};
    auto json = Json::parse(request.body, nullptr, false);
    if (json.is_discarded()) return {{}, detail(400, parseErrorText(request.body))};
    return {std::move(json), {}};
}

} // namespace ledgerfinch::support
