// SPDX-License-Identifier: GPL-3.0-or-later
// Requests and answers between the HTTP side and the endpoints, and the bodies that errors have.
#pragma once

#include "support/PaperlessServerModes.h"
#include "support/PaperlessServerRecords.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch::support {

/// One part of a multipart body; `fileName` is empty for plain fields.
struct FormPart {
    std::string name;
    std::string fileName;
    std::string contentType;
    std::string content;
};

struct Request {
    std::string method;                                       ///< HEAD stays HEAD
    std::string target;                                       ///< as it came: path and query, still escaped
    std::string path;                                         ///< unescaped
    std::vector<std::pair<std::string, std::string>> query;   ///< unescaped, in order
    std::vector<std::pair<std::string, std::string>> headers; ///< names in lower case
    std::string body;
    std::vector<FormPart> parts; ///< of a multipart or URL-encoded form
    std::string clientAddress;

    std::string_view header(std::string_view lowerName) const;
    /// The last value of a query key, as Django's QueryDict gives it.
    std::optional<std::string> argument(std::string_view key) const;
    /// True for "true" and "1", in any case.
    bool flag(std::string_view key) const;
};

struct Response {
    int status = 200;
    std::string contentType = "application/json";
    std::string body;
    std::vector<std::pair<std::string, std::string>> headers;
    bool variesByAccept = true; ///< error pages and the login don't look at Accept
    bool hasAllow = true;
    bool isFile = false; ///< release 3 takes any length of one for worth compressing
};

Response jsonResponse(const Json& body, int status = 200);
Response rawJsonResponse(std::string body, int status = 200);
/// {"detail": text}
Response detail(int status, std::string_view text);
/// A bare text, sent as HTML.
Response bareText(int status, std::string text);
Response noContent();
Response notFound();
/// "No Tag matches the given query."
Response noMatch(std::string_view className);
Response forbidden();
/// The page of an unhandled exception.
Response serverError();
/// The page of a missing CSRF cookie: what a writing request to an unknown path gets.
Response csrfFailure();
Response redirect(std::string location);

/// Compact, UTF-8 unescaped; invalid UTF-8 becomes U+FFFD.
std::string textOf(const Json& json);
/// Appends a JSON string literal.
void appendQuoted(std::string& to, std::string_view text);
void appendId(std::string& to, const OptionalId& id);
void appendNumber(std::string& to, std::int64_t number);
void appendIds(std::string& to, const std::vector<Id>& ids);

std::string unescapeUrl(std::string_view text, bool plusIsSpace);
/// As Python's quote_plus.
std::string escapeQuery(std::string_view text);
/// As Python's quote with "/" kept.
std::string escapePath(std::string_view text, std::string_view safe = "/");
std::vector<std::pair<std::string, std::string>> parseQuery(std::string_view text);

/// What an endpoint works with. Everything happens under the server's lock.
struct Context {
    State& state;
    const Request& request;
    const User* user = nullptr; ///< empty for public endpoints only
    const Release& release;
    ApiShape api;
    std::vector<std::string> arguments; ///< the variable segments of the path

    Id id(std::size_t index = 0) const;
};

using Handler = std::function<Response(Context&)>;

/// The body of a request as JSON (a form becomes an object of texts), or the error to answer with.
struct ParsedBody {
    Json json;
    std::optional<Response> error;
};
ParsedBody parseBody(const Request& request);

} // namespace ledgerfinch::support
