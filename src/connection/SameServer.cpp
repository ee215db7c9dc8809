// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/SameServer.h"

#include "platform/Http.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace ledgerfinch {

namespace {

bool isHttps(std::string_view url) {
    constexpr std::string_view kScheme = "https:";
    return url.size() >= kScheme.size() && std::equal(kScheme.begin(), kScheme.end(), url.begin(), [](char a, char b) {
               return a == std::tolower(static_cast<unsigned char>(b));
           });
}

std::string_view pathOf(std::string_view url) {
    const auto scheme = url.find("://");
    if (scheme == std::string_view::npos) return {};
    const auto start = url.find_first_of("/?#", scheme + 3);
    if (start == std::string_view::npos || url[start] != '/') return {};
    return url.substr(start, url.find_first_of("?#", start) - start);
}

bool stepsUpwards(std::string_view path) {
    std::string plain;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const auto escape = path.substr(i, 3);
        const bool isDot = escape == "%2e" || escape == "%2E";
        plain += isDot ? '.' : path[i] == '\\' ? '/' : path[i];
        if (isDot) i += 2;
    }
    return plain.find("/../") != std::string::npos || plain.ends_with("/..");
}

} // namespace

bool isUnderPathOf(std::string_view url, std::string_view server) {
    const auto path = pathOf(url);
    auto prefix = pathOf(server);
    while (prefix.ends_with('/'))
        prefix.remove_suffix(1);
    return path.starts_with(prefix) && path.substr(prefix.size()).starts_with('/') && !stepsUpwards(path);
}

bool leadsToServer(std::string_view url, std::string_view server) {
    return isHttpUrl(url) && isSameServer(url, server) && (isHttps(url) || !isHttps(server));
}

} // namespace ledgerfinch
