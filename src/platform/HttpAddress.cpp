// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/HttpAddress.h"

#include "platform/Http.h"

#include <QUrl>

#include <algorithm>
#include <array>

namespace ledgerfinch {

namespace {

char lowered(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool sameName(std::string_view first, std::string_view second) {
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](char left, char right) { return lowered(left) == lowered(right); });
}

bool isSecure(const QUrl& url) {
    return url.scheme() == QStringLiteral("https");
}

} // namespace

void setHeader(HttpHeaders& headers, std::string_view name, std::string_view value) {
    std::erase_if(headers, [name](const auto& entry) { return sameName(entry.first, name); });
    headers.emplace_back(name, value);
}

std::optional<std::string> header(const HttpHeaders& headers, std::string_view name) {
    for (const auto& [key, value] : headers) {
        if (sameName(key, name)) return value;
    }
    return std::nullopt;
}

QUrl parseHttpUrl(std::string_view text) {
    QUrl url(QString::fromUtf8(text.data(), static_cast<qsizetype>(text.size())), QUrl::StrictMode);
    const bool known = url.scheme() == QStringLiteral("http") || url.scheme() == QStringLiteral("https");
    if (!url.isValid() || !known || url.host().isEmpty() || url.port(1) == 0) return {};
    return url;
}

bool isSameServer(const QUrl& first, const QUrl& second) {
    if (first.isEmpty() || second.isEmpty() || first.host() != second.host()) return false;
    const auto portOf = [](const QUrl& url) {
        return url.port(isSecure(url) ? 443 : 80);
    };
    if (portOf(first) == portOf(second)) return true;
    const auto hasDefaultPort = [&](const QUrl& url) {
        return portOf(url) == (isSecure(url) ? 443 : 80);
    };
    return hasDefaultPort(first) && hasDefaultPort(second);
}

bool isHttpUrl(std::string_view url) {
    return !parseHttpUrl(url).isEmpty();
}

std::string originOf(std::string_view url) {
    auto parsed = parseHttpUrl(url);
    if (parsed.isEmpty()) return {};
    if (parsed.port() == (isSecure(parsed) ? 443 : 80)) parsed.setPort(-1);
    const auto text =
        parsed.toString(QUrl::RemoveUserInfo | QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment);
    return text.toStdString();
}

bool isSameServer(std::string_view firstUrl, std::string_view secondUrl) {
    return isSameServer(parseHttpUrl(firstUrl), parseHttpUrl(secondUrl));
}

bool isHttpToken(std::string_view text) {
    static constexpr std::string_view kMarks = "!#$%&'*+-.^_`|~";
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        const char letter = lowered(character);
        return (letter >= 'a' && letter <= 'z') || (character >= '0' && character <= '9') ||
               kMarks.find(character) != std::string_view::npos;
    });
}

bool isSendableHeader(std::string_view name, std::string_view value) {
    // Those two are the transport's own; a second opinion about the length would let one request pass for two.
    static constexpr std::array<std::string_view, 2> kOwn{"content-length", "transfer-encoding"};
    const bool own = std::any_of(kOwn.begin(), kOwn.end(), [name](auto entry) { return sameName(entry, name); });
    const bool clean = std::none_of(value.begin(), value.end(), [](char character) {
        const auto byte = static_cast<unsigned char>(character);
        return (byte < 0x20 && byte != '\t') || byte == 0x7F;
    });
    return !own && clean && isHttpToken(name);
}

} // namespace ledgerfinch
