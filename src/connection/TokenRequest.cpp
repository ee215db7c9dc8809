// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/TokenRequest.h"

#include "connection/ApiHandler.h"
#include "connection/Status.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"

#include <algorithm>

namespace ledgerfinch {

HttpRequest tokenRequest(const std::string& server, std::string_view user, std::string_view password) {
    HttpRequest request;
    request.method = "POST";
    request.url = server + "/api/token/";
    JsonWriter body;
    body.beginObject().key("username").string(user).key("password").string(password).endObject();
    ApiHandler::setJsonBody(request, body.take());
    return request;
}

TokenAnswer readTokenAnswer(std::string_view body) {
    TokenAnswer answer;
    const auto object = JsonObject::parse(body);
    if (!object) return answer;
    answer.isObject = true;
    auto token = object->text("token");
    answer.namesToken = object->has("token");
    if (token && isPlausibleToken(*token)) answer.token = std::move(token);
    const auto errors = object->texts("non_field_errors");
    answer.namesNonFieldErrors =
        errors && !errors->empty() &&
        std::all_of(object->members().begin(), object->members().end(),
                    [&](const auto& member) { return object->texts(member.first).has_value(); });
    return answer;
}

ApiError tokenFailure(const HttpResponse& response, const TokenAnswer& answer) {
    const int status = response.status;
    if (status == 200 && answer.isObject) return ApiError::invalidCredentials();
    if ((status == 400 && answer.isObject) || status == 401) return ApiError::invalidCredentials();
    if (status == 404 || status == 405)
        return ApiError::unexpectedResponse(status, {},
                                            "There is no document server at this address (" + std::to_string(status) +
                                                "). Check it, and whether a path belongs to it.");
    auto failure = status::isSuccess(status) ? unreadable(response) : failureOf(response);
    return ApiError::unexpectedResponse(status, {}, std::move(failure.reason));
}

bool isPlausibleToken(std::string_view token) {
    return !token.empty() && std::all_of(token.begin(), token.end(), [](char c) { return c > 0x20 && c < 0x7f; });
}

} // namespace ledgerfinch
