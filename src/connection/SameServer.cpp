// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/SameServer.h"

#include "platform/Http.h"

#include <algorithm>
#include <cctype>

namespace ledgerfinch {

namespace {

bool isHttps(std::string_view url) {
    constexpr std::string_view kScheme = "https:";
    return url.size() >= kScheme.size() && std::equal(kScheme.begin(), kScheme.end(), url.begin(), [](char a, char b) {
               return a == std::tolower(static_cast<unsigned char>(b));
           });
}

} // namespace

bool leadsToServer(std::string_view url, std::string_view server) {
    return isHttpUrl(url) && isSameServer(url, server) && (isHttps(url) || !isHttps(server));
}

} // namespace ledgerfinch
