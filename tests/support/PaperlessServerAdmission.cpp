// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerAdmission.h"

#include <algorithm>
#include <charconv>

namespace ledgerfinch::support {

namespace {

std::string decodeBase64(std::string_view text) {
    constexpr std::string_view digits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    unsigned bits = 0;
    int count = 0;
    for (auto letter : text) {
        auto value = digits.find(letter);
        if (value == std::string_view::npos) break;
        bits = bits << 6 | unsigned(value);
        count += 6;
        if (count < 8) continue;
        count -= 8;
        result += char(bits >> count & 0xFF);
    }
    return result;
}

Login basicLogin(State& state, std::string_view credentials) {
    auto text = decodeBase64(credentials);
    auto colon = std::min(text.find(':'), text.size());
    const auto* user = state.userByName(text.substr(0, colon));
    auto isGood = user != nullptr && user->isActive && colon < text.size() && user->password == text.substr(colon + 1);
    return isGood ? Login{user, {}} : Login{nullptr, "Invalid username/password.", "Basic realm=\"api\""};
}

} // namespace

Negotiated negotiate(const Request& request, const Release& release) {
    Negotiated result;
    result.version = release.standard;
    auto accept = std::string(request.header("accept"));
    if (accept.empty()) return result;
    result.acceptable = false;
    std::string_view rest = accept;
    while (!rest.empty()) {
        auto end = std::min(rest.find(','), rest.size());
        auto type = lowerAscii(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
        type.erase(std::remove(type.begin(), type.end(), ' '), type.end());
        auto media = type.substr(0, std::min(type.find(';'), type.size()));
        if (media == "text/html") result.wantsHtml = !result.acceptable;
        if (media != "*/*" && media != "application/*" && media != "application/json" && media != "text/html") continue;
        result.acceptable = true;
        auto at = type.find("version=");
        if (at == std::string::npos || media == "*/*") continue;
        auto number = type.substr(at + 8);
        auto version = 0;
        auto [stop, error] = std::from_chars(number.data(), number.data() + number.size(), version);
        auto isGood = error == std::errc{} && version >= release.lowest && version <= release.highest;
        result.version = isGood ? version : 0;
        break;
    }
    return result;
}

Login loginOf(State& state, const Request& request) {
    constexpr std::string_view missing = "Authentication credentials were not provided.";
    auto header = request.header("authorization");
    auto space = std::min(header.find(' '), header.size());
    auto scheme = lowerAscii(header.substr(0, space));
    auto rest = header.substr(std::min(space + 1, header.size()));
    if (scheme == "basic") return basicLogin(state, rest);
    if (scheme != "token") return {nullptr, missing};
    if (rest.empty()) return {nullptr, "Invalid token header. No credentials provided."};
    if (rest.find(' ') != std::string_view::npos)
        return {nullptr, "Invalid token header. Token string should not contain spaces."};
    const auto* user = state.userByToken(rest);
    if (user == nullptr) return {nullptr, "Invalid token."};
    if (!user->isActive) return {nullptr, "User inactive or deleted."};
    return {user, {}};
}

} // namespace ledgerfinch::support
