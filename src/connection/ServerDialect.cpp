// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ServerDialect.h"

#include <charconv>

namespace ledgerfinch {

namespace {
constexpr int kVersion = 2;
constexpr int kHighestBelieved = 1000;
} // namespace

std::string ServerDialect::acceptHeader() const {
    return acceptHeader(kVersion);
}

std::string ServerDialect::acceptHeader(int version) {
    return "application/json; version=" + std::to_string(version);
}

void ServerDialect::hear(const HttpResponse& response) {
    const auto text = header(response.headers, "x-api-version");
    if (!text) return;
    int version = 0;
    const auto [end, failure] = std::from_chars(text->data(), text->data() + text->size(), version);
    if (failure != std::errc() || end != text->data() + text->size()) return;
    if (version > 0 && version < kHighestBelieved) m_newest = version;
}

std::optional<int> ServerDialect::newestVersion() const {
    const int newest = m_newest;
    return newest > 0 ? std::optional(newest) : std::nullopt;
}

} // namespace ledgerfinch
