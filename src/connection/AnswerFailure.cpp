// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/AnswerFailure.h"

#include "connection/Status.h"

#include <algorithm>
#include <array>
#include <cctype>

namespace ledgerfinch {

namespace {

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), [](unsigned char c) { return std::tolower(c); });
    return result;
}

bool isRedirect(int status) {
    static constexpr std::array<int, 5> kRedirects{301, 302, 303, 307, 308};
    return std::find(kRedirects.begin(), kRedirects.end(), status) != kRedirects.end();
}

std::string_view schemeOf(std::string_view origin) {
    return origin.substr(0, origin.find(':'));
}

/// "papers.example.org" of "https://papers.example.org:8443".
std::string_view hostOf(std::string_view origin) {
    const auto start = origin.find("://") + 3;
    const auto end = origin.find(':', origin.find(']', start) == std::string_view::npos ? start : origin.find(']'));
    return origin.substr(start, end == std::string_view::npos ? end : end - start);
}

bool leadsToLogin(std::string_view address) {
    const auto path = lowered(address.substr(0, address.find('?')));
    return path.find("login") != std::string::npos || path.find("signin") != std::string::npos ||
           path.find("sign_in") != std::string::npos;
}

AnswerFailure redirectFailure(const HttpResponse& response) {
    const auto target = originOf(response.redirect);
    const auto asked = originOf(response.url);
    if (target.empty()) return {status::kRedirected, "The server sends requests on, but to no usable address."};
    if (target == asked) {
        if (leadsToLogin(response.redirect))
            return {status::kWebPage, "The server sends requests on to the login page of " + target +
                                          ". Is this the address of the document server itself?"};
        return {status::kRedirected,
                "The server sends requests on to another place on " + target + ". Check the path of its address."};
    }
    if (hostOf(target) == hostOf(asked)) {
        if (schemeOf(asked) == "http" && schemeOf(target) == "https")
            return {status::kNeedsHttps, "The server wants a secure connection. Give its address as " + target + "."};
        if (schemeOf(asked) == "https" && schemeOf(target) == "http")
            return {status::kRedirected,
                    "The server sends requests on to " + target + ", which isn't secure. The token isn't sent there."};
    }
    return {status::kRedirected, "The server sends requests on to " + target +
                                     ". The token isn't sent there. If that is your server, give its address."};
}

bool looksLikeWebPage(std::string_view body) {
    const auto start = body.find_first_not_of(" \t\r\n");
    if (start == std::string_view::npos) return false;
    const auto beginning = lowered(body.substr(start, 15));
    return beginning.starts_with("<!doctype html") || beginning.starts_with("<html") ||
           beginning.starts_with("<head") || beginning.starts_with("<body");
}

} // namespace

int effectiveStatus(const HttpResponse& response) {
    if (response.error && response.error->kind == TransportErrorKind::Cancelled) return status::kCancelled;
    if (response.error || response.status == 0) return status::kNoAnswer;
    return isRedirect(response.status) ? redirectFailure(response).status : response.status;
}

AnswerFailure failureOf(const HttpResponse& response) {
    const int result = effectiveStatus(response);
    if (response.error && result != status::kCancelled) return {result, response.error->description};
    if (isRedirect(response.status)) return redirectFailure(response);
    return {result, status::reasonFor(result)};
}

AnswerFailure unreadable(const HttpResponse& response) {
    const auto type = header(response.headers, "content-type").value_or("");
    const bool page = isWebPageType(type) || looksLikeWebPage(response.body);
    const int result = page ? status::kWebPage : status::kUnreadable;
    return {result, status::reasonFor(result)};
}

bool isWebPageType(std::string_view contentType) {
    auto type = lowered(contentType.substr(0, contentType.find(';')));
    while (!type.empty() && type.back() == ' ')
        type.pop_back();
    return type == "text/html" || type == "application/xhtml+xml";
}

namespace status {

std::string reasonFor(int status) {
    switch (status) {
    case kUnreadable:
        return "The server's answer is damaged, or not what was asked for. Try again; if it stays so, check the "
               "server's address and version.";
    case kBadNextPage:
        return "The server's list leads to another server or has no end. Check how the server and the proxies in front "
               "of it build their addresses.";
    case kStopped:
        return "It was stopped.";
    case kNotSent:
        return "It was not sent, so that nothing else is changed on the server.";
    case kNotStored:
        return "Not all of what the server delivered could be kept on this device. Is its disk full?";
    case kCancelled:
        return "It was cancelled.";
    case kRedirected:
        return "The server sends requests on to another place. Check its address.";
    case kNeedsHttps:
        return "The server wants a secure connection. Give its address with https://.";
    case kWebPage:
        return "The server sent a web page in place of data. A proxy or a network in front of it may want a login of "
               "its own, or the address may be that of another service.";
    case 0:
    case kNoAnswer:
        return "The server didn't answer.";
    case 401:
        return "The server didn't accept the stored token. Please log in again.";
    case 403:
        return "The server, or a proxy in front of it, doesn't allow this (403). Check the rights of the account.";
    case 404:
        return "The server doesn't have this (404). Was it deleted there? Or is the address incomplete?";
    case 406:
        return "The server doesn't speak a version of its interface that is understood here (406).";
    case 413:
        return "The server finds this too large (413).";
    case 429:
        return "The server gets too many requests (429). Try again later.";
    case 500:
        return "The server met an error of its own (500). Its log tells more.";
    case 502:
    case 503:
    case 504:
        return "The server isn't ready (" + std::to_string(status) + "). Try again later.";
    default:
        return isSuccess(status) ? std::string() : "The server answered " + std::to_string(status) + ".";
    }
}

} // namespace status

} // namespace ledgerfinch
