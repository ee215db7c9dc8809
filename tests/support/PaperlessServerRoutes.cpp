// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerRoutes.h"

#include "support/PaperlessServerAdmission.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerTwoSeven.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

/// From this length on, an answer depends on Accept-Encoding because it could be compressed.
constexpr std::size_t compressedLength = 500;

enum class Access {
    Public,   ///< no login
    LoggedIn, ///< any user
    Model,    ///< the model's permission for the method
};

/// Which releases have an endpoint.
enum class Lives { Everywhere, SinceTwoTwenty, InTwoSeven, InThree };

bool livesIn(Lives lives, ServerMode mode) {
    switch (lives) {
    case Lives::SinceTwoTwenty:
        return mode != ServerMode::V2_7;
    case Lives::InTwoSeven:
        return mode == ServerMode::V2_7;
    case Lives::InThree:
        return mode == ServerMode::V3;
    case Lives::Everywhere:
        break;
    }
    return true;
}

std::vector<std::string> segmentsOf(std::string_view path) {
    std::vector<std::string> segments;
    while (!path.empty()) {
        auto end = std::min(path.find('/'), path.size());
        segments.emplace_back(path.substr(0, end));
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return segments;
}

std::string_view actionOf(std::string_view method) {
    if (method == "POST") return "add_";
    if (method == "PUT" || method == "PATCH") return "change_";
    if (method == "DELETE") return "delete_";
    return "view_";
}

/// A browser's question before a request from another origin; answered before anything else looks at it.
bool isPreflight(const Request& request) {
    return request.method == "OPTIONS" && !request.header("origin").empty() &&
           !request.header("access-control-request-method").empty();
}

Answer preflightAnswer(const State& state) {
    Answer answer;
    answer.headers = {{"date", httpDateText(state.clock())},
                      {"server", "uvicorn"},
                      {"content-type", "text/html; charset=utf-8"},
                      {"vary", "origin"}};
    return answer;
}

/// What OPTIONS says about an endpoint: "Document Type List" for api/document_types.
Response describe(const std::vector<std::string>& segments) {
    auto isItem = segments.back() == "*";
    auto word = segments.size() > 1 ? segments[1] : std::string();
    if (word.ends_with('s')) word.pop_back();
    std::string name;
    auto startsWord = true;
    for (auto letter : word == "document" ? std::string("unified_search") : word) {
        name += letter == '_' ? ' ' : startsWord ? char(std::toupper(letter)) : letter;
        startsWord = letter == '_';
    }
    return jsonResponse(Json{
        {"name", name + (isItem ? " Instance" : " List")},
        {"description", ""},
        {"renders", Json::array({"application/json", "text/html"})},
        {"parses", Json::array({"application/json", "application/x-www-form-urlencoded", "multipart/form-data"})}});
}

std::string languageOf(const Request& request) {
    return request.header("accept-language").starts_with("de") ? "de-de" : "en-us";
}

} // namespace

struct Routes::Route {
    std::vector<std::string> segments; ///< "*" stands for a variable one
    std::string allow;
    Access access = Access::Model;
    std::string model;
    std::vector<std::pair<std::string, Handler>> handlers;
    bool isOutsideApi = false; ///< a plain page: no negotiation, no version headers
    Lives lives = Lives::Everywhere;
};

struct Routes::Match {
    const Route* route = nullptr;
    std::vector<std::string> arguments;
    bool isAuthenticated = false;
    bool endsInSlash = false;
};

Routes::Routes() {
    addRecordRoutes();
    addDocumentRoutes();
    addOtherRoutes();
}

Routes::~Routes() = default;

void Routes::addRecordRoutes() {
    constexpr auto listMethods = "GET, POST, HEAD, OPTIONS";
    constexpr auto itemMethods = "GET, PUT, PATCH, DELETE, HEAD, OPTIONS";
    auto add = [&](std::string path, std::string model, Handler list, Handler create, Handler get, Handler update,
                   Handler remove) {
        m_routes.push_back(
            {{"api", path}, listMethods, Access::Model, model, {{"GET", list}, {"POST", create}}, false});
        m_routes.push_back({{"api", path, "*"},
                            itemMethods,
                            Access::Model,
                            model,
                            {{"GET", get}, {"PUT", update}, {"PATCH", update}, {"DELETE", remove}},
                            false});
    };
    for (auto kind : allKinds) {
        const auto& names = namesOf(kind);
        add(
            std::string(names.path), std::string(names.codename),
            [kind](Context& context) { return listAttributes(context, kind); },
            [kind](Context& context) { return createAttribute(context, kind); },
            [kind](Context& context) { return getAttribute(context, kind); },
            [kind](Context& context) { return updateAttribute(context, kind); },
            [kind](Context& context) { return deleteAttribute(context, kind); });
    }
    add("custom_fields", "customfield", listCustomFields, createCustomField, getCustomField, updateCustomField,
        deleteCustomField);
    add("saved_views", "savedview", listSavedViews, createSavedView, getSavedView, updateSavedView, deleteSavedView);
    add("users", "user", listUsers, createUser, getUser, updateUser, deleteUser);
    add("groups", "group", listGroups, createGroup, getGroup, updateGroup, deleteGroup);
    m_routes.push_back({{"api", "share_links"},
                        listMethods,
                        Access::Model,
                        "sharelink",
                        {{"GET", listShareLinks}, {"POST", createShareLink}},
                        false});
    m_routes.push_back({{"api", "share_links", "*"},
                        "GET, DELETE, HEAD, OPTIONS",
                        Access::Model,
                        "sharelink",
                        {{"GET", getShareLink}, {"DELETE", deleteShareLink}},
                        false});
}

void Routes::addDocumentRoutes() {
    constexpr auto readOnly = "GET, HEAD, OPTIONS";
    constexpr auto postOnly = "POST, OPTIONS";
    auto list = [this](Context& context) {
        return listDocuments(context, m_documentLists);
    };
    auto add = [&](std::vector<std::string> path, std::string allow, Access access,
                   std::vector<std::pair<std::string, Handler>> handlers) {
        path.insert(path.begin(), {"api", "documents"});
        m_routes.push_back({std::move(path), std::move(allow), access, "document", std::move(handlers), false});
    };
    add({}, readOnly, Access::Model, {{"GET", list}});
    add({"next_asn"}, readOnly, Access::Model, {{"GET", nextSerialNumber}});
    add({"post_document"}, postOnly, Access::LoggedIn, {{"POST", uploadDocument}});
    add({"bulk_edit"}, postOnly, Access::LoggedIn, {{"POST", bulkEdit}});
    add({"selection_data"}, postOnly, Access::LoggedIn, {{"POST", selectionData}});
    add({"delete"}, postOnly, Access::LoggedIn, {{"POST", bulkDelete}});
    m_routes.back().lives = Lives::InThree;
    add({"*"}, "GET, PUT, PATCH, DELETE, HEAD, OPTIONS", Access::Model,
        {{"GET", getDocument}, {"PUT", updateDocument}, {"PATCH", updateDocument}, {"DELETE", deleteDocument}});
    add({"*", "notes"}, "GET, POST, DELETE, HEAD, OPTIONS", Access::Model,
        {{"GET", documentNotes}, {"POST", documentNotes}, {"DELETE", documentNotes}});
    add({"*", "metadata"}, readOnly, Access::Model, {{"GET", documentMetadata}});
    add({"*", "suggestions"}, readOnly, Access::Model, {{"GET", documentSuggestions}});
    add({"*", "history"}, readOnly, Access::Model, {{"GET", documentHistory}});
    m_routes.back().lives = Lives::SinceTwoTwenty;
    add({"*", "share_links"}, readOnly, Access::Model, {{"GET", documentShareLinks}});
    add({"*", "thumb"}, readOnly, Access::Model, {{"GET", documentThumbnail}});
    add({"*", "preview"}, readOnly, Access::Model, {{"GET", documentPreview}});
    add({"*", "download"}, readOnly, Access::Model, {{"GET", documentDownload}});
    m_routes.push_back({{"share", "*"}, readOnly, Access::Public, "", {{"GET", openShareLink}}, true});
    add({"*", "root"}, readOnly, Access::Model, {{"GET", documentRoot}});
    m_routes.back().lives = Lives::InThree;
}

void Routes::addOtherRoutes() {
    constexpr auto readOnly = "GET, HEAD, OPTIONS";
    constexpr auto listMethods = "GET, POST, HEAD, OPTIONS";
    constexpr auto postOnly = "POST, OPTIONS";
    auto add = [&](std::vector<std::string> path, std::string allow, Access access, std::string model,
                   std::vector<std::pair<std::string, Handler>> handlers) {
        path.insert(path.begin(), "api");
        m_routes.push_back({std::move(path), std::move(allow), access, std::move(model), std::move(handlers), false});
    };
    add({"token"}, postOnly, Access::Public, "", {{"POST", login}});
    add({"tasks"}, readOnly, Access::Model, "paperlesstask", {{"GET", listTasks}});
    add({"tasks", "acknowledge"}, postOnly, Access::LoggedIn, "", {{"POST", acknowledgeTasks}});
    m_routes.back().lives = Lives::SinceTwoTwenty;
    add({"acknowledge_tasks"}, postOnly, Access::LoggedIn, "", {{"POST", acknowledgeTasks}});
    m_routes.back().lives = Lives::InTwoSeven;
    add({"tasks", "active"}, readOnly, Access::Model, "paperlesstask", {{"GET", activeTasks}});
    m_routes.back().lives = Lives::InThree;
    add({"tasks", "*"}, readOnly, Access::Model, "paperlesstask", {{"GET", getTask}});
    add({"share_link_bundles"}, listMethods, Access::Model, "sharelinkbundle", {{"GET", emptyList}});
    m_routes.back().lives = Lives::InThree;
    add({"trash"}, listMethods, Access::LoggedIn, "", {{"GET", listTrash}, {"POST", changeTrash}});
    m_routes.back().lives = Lives::SinceTwoTwenty;
    add({"ui_settings"}, listMethods, Access::Model, "uisettings", {{"GET", getUiSettings}, {"POST", setUiSettings}});
    add({"statistics"}, readOnly, Access::LoggedIn, "", {{"GET", getStatistics}});
    add({"search"}, readOnly, Access::LoggedIn, "", {{"GET", globalSearch}});
    m_routes.back().lives = Lives::SinceTwoTwenty;
    add({"search", "autocomplete"}, readOnly, Access::LoggedIn, "", {{"GET", autocomplete}});
    add({"bulk_edit_objects"}, postOnly, Access::LoggedIn, "", {{"POST", bulkEditObjects}});
    add({"profile"}, "GET, PATCH, HEAD, OPTIONS", Access::LoggedIn, "", {{"GET", getProfile}});
    add({"profile", "generate_auth_token"}, postOnly, Access::LoggedIn, "", {{"POST", renewToken}});
    add({"config"}, listMethods, Access::Model, "applicationconfiguration", {{"GET", applicationConfig}});
    add({"logs"}, readOnly, Access::LoggedIn, "", {{"GET", logNames}});
    add({"workflows"}, listMethods, Access::Model, "workflow", {{"GET", emptyList}});
    add({"mail_accounts"}, listMethods, Access::Model, "mailaccount", {{"GET", emptyList}});
    add({"mail_rules"}, listMethods, Access::Model, "mailrule", {{"GET", emptyList}});
    add({"processed_mail"}, readOnly, Access::Model, "processedmail", {{"GET", emptyList}});
    m_routes.back().lives = Lives::SinceTwoTwenty;
}

Response Routes::respond(State& state, const Request& request, Match& match) {
    const auto& release = state.release;
    const auto& route = *match.route;
    Context context{state, request, nullptr, release, apiShapeOf(release.mode, release.standard), match.arguments};
    auto method = request.method == "HEAD" ? std::string("GET") : request.method;
    auto handler = std::find_if(route.handlers.begin(), route.handlers.end(),
                                [&](const auto& entry) { return entry.first == method; });
    if (route.isOutsideApi) return handler == route.handlers.end() ? csrfFailure() : handler->second(context);

    auto negotiated = negotiate(request, release);
    if (!negotiated.acceptable) return detail(406, "Could not satisfy the request Accept header.");
    if (negotiated.version == 0) return detail(406, "Invalid version in \"Accept\" header.");
    context.api = apiShapeOf(release.mode, negotiated.version);
    if (route.access != Access::Public) {
        auto login = loginOf(state, request);
        if (login.user == nullptr) {
            auto response = detail(401, login.error);
            response.headers.emplace_back("www-authenticate", login.challenge);
            return response;
        }
        match.isAuthenticated = true;
        context.user = login.user;
        auto needsModel = route.access == Access::Model && handler != route.handlers.end();
        if (!release.checksRights && (route.model == "paperlesstask" || route.model == "uisettings"))
            needsModel = false;
        if (needsModel && !hasPermission(state, *login.user, std::string(actionOf(method)) + route.model))
            return forbidden();
    }
    if (method == "OPTIONS") return describe(route.segments);
    if (handler == route.handlers.end()) return detail(405, "Method \"" + request.method + "\" not allowed.");
    return handler->second(context);
}

Answer Routes::answer(State& state, const Request& request) {
    const auto& release = state.release;
    if (isPreflight(request)) return preflightAnswer(state);
    Match match;
    auto path = std::string_view(request.path);
    match.endsInSlash = path.ends_with('/');
    auto segments = segmentsOf(path.substr(std::min<std::size_t>(1, path.size())));
    for (const auto& route : m_routes) {
        if (!match.endsInSlash && !route.isOutsideApi) continue;
        if (route.segments.size() != segments.size() || !livesIn(route.lives, release.mode)) continue;
        match.arguments.clear();
        auto fits = true;
        for (std::size_t index = 0; fits && index < segments.size(); ++index) {
            if (route.segments[index] == "*") {
                match.arguments.push_back(segments[index]);
            } else {
                fits = route.segments[index] == segments[index];
            }
        }
        if (!fits) continue;
        match.route = &route;
        break;
    }

    Response response;
    auto isReading = request.method == "GET" || request.method == "HEAD";
    if (match.route != nullptr) {
        response = respond(state, request, match);
        if (release.mode == ServerMode::V2_7) response = asTwoSeven(std::move(response), segments);
    } else if (request.path == "/api/") {
        response = redirect("schema/view/");
    } else if (isReading) {
        response = redirect("/accounts/login/?next=" + escapePath(unescapeUrl(request.target, false)));
    } else {
        response = csrfFailure();
    }

    Answer answer;
    answer.status = response.status;
    answer.isAuthenticated = match.isAuthenticated;
    auto& headers = answer.headers;
    headers.emplace_back("date", httpDateText(state.clock()));
    headers.emplace_back("server", "uvicorn");
    if (!response.contentType.empty()) headers.emplace_back("content-type", response.contentType);
    headers.insert(headers.end(), response.headers.begin(), response.headers.end());
    auto isApi = match.route != nullptr && !match.route->isOutsideApi;
    auto variesByAccept = isApi && response.variesByAccept && match.route->access != Access::Public;
    std::string vary = variesByAccept ? "Accept, " : "";
    vary += "Accept-Language, origin, Cookie";
    auto isLong = response.body.size() >= compressedLength || (response.isFile && release.compressesAnyFile);
    if (isLong && response.status != 304) vary += ", Accept-Encoding";
    headers.emplace_back("vary", vary);
    if (isApi && response.hasAllow) headers.emplace_back("allow", match.route->allow);
    headers.emplace_back("x-frame-options", "SAMEORIGIN");
    if (match.isAuthenticated) {
        headers.emplace_back("x-api-version", std::to_string(release.highest));
        headers.emplace_back("x-version", release.version);
    }
    headers.emplace_back("content-language", languageOf(request));
    headers.emplace_back("x-content-type-options", "nosniff");
    headers.emplace_back("referrer-policy", "same-origin");
    headers.emplace_back("cross-origin-opener-policy", "same-origin");
    answer.body = std::move(response.body);
    return answer;
}

} // namespace ledgerfinch::support
