// SPDX-License-Identifier: GPL-3.0-or-later
// What looks at the whole: settings of the interface, statistics, global search, the rest.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerFilters.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSeed.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t searchedPerKind = 3;

template <typename Table>
std::vector<Id> visibleIds(const Table& table, const User& viewer) {
    std::vector<Id> ids;
    for (const auto& [id, record] : table) {
        if (maySee(viewer, record.owner, record.permissions)) ids.push_back(id);
    }
    return ids;
}

/// The views that a user has on the dashboard and in the sidebar are part of the settings.
void addShownViews(const State& state, const User& user, Json& settings) {
    auto dashboard = Json::array(), sidebar = Json::array();
    for (const auto& [id, view] : state.savedViews) {
        if (view.onDashboardOf.contains(user.id)) dashboard.push_back(id);
        if (view.inSidebarOf.contains(user.id)) sidebar.push_back(id);
    }
    if (dashboard.empty() && sidebar.empty()) return;
    settings["saved_views"]["dashboard_views_visible_ids"] = std::move(dashboard);
    settings["saved_views"]["sidebar_views_visible_ids"] = std::move(sidebar);
}

} // namespace

Response getUiSettings(Context& context) {
    const auto& user = *context.user;
    Json shown{{"id", user.id},
               {"username", user.username},
               {"is_staff", user.isStaff},
               {"is_superuser", user.isSuperuser},
               {"groups", user.groups}};
    if (!user.firstName.empty()) shown["first_name"] = user.firstName;
    if (!user.lastName.empty()) shown["last_name"] = user.lastName;
    auto settings = user.settings;
    if (context.api.hasPersonalViews) addShownViews(context.state, user, settings);
    settings["update_checking"] = Json{{"backend_setting", "default"}};
    settings["trash_delay"] = 30;
    settings["version"] = context.release.version;
    settings["app_title"] = nullptr;
    settings["app_logo"] = nullptr;
    settings["auditlog_enabled"] = true;
    settings["email_enabled"] = false;
    if (context.release.mode == ServerMode::V3) settings["ai_enabled"] = false;
    return jsonResponse(Json{{"user", std::move(shown)},
                             {"settings", std::move(settings)},
                             {"permissions", effectivePermissions(context.state, user)}});
}

Response setUiSettings(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    auto settings = parsed.json.is_object() ? parsed.json.value("settings", Json()) : Json();
    if (!settings.is_object()) return jsonResponse(Json{{"settings", Json::array({"This field is required."})}}, 400);
    auto& user = context.state.users.at(context.user->id);
    user.settings = std::move(settings);
    if (context.api.hasPersonalViews) takeShownViews(context.state, user);
    context.state.changed();
    return jsonResponse(Json{{"success", true}});
}

Response getStatistics(Context& context) {
    const auto& state = context.state;
    std::vector<Id> inbox;
    for (auto id : visibleIds(state.table(Kind::Tag), *context.user)) {
        if (state.table(Kind::Tag).at(id).isInboxTag) inbox.push_back(id);
    }
    auto counted = inbox;
    if (!context.release.checksRights) {
        // Inbox tags that the user doesn't see counted all the same.
        for (const auto& [id, tag] : state.table(Kind::Tag)) {
            if (tag.isInboxTag) counted.push_back(id);
        }
    }
    std::int64_t total = 0, inInbox = 0, characters = 0, largest = 0;
    std::map<std::string, std::int64_t> types;
    for (const auto& [id, document] : state.documents) {
        if (document.deletedAt) continue;
        largest = std::max(largest, document.archiveSerialNumber.value_or(0));
        if (!maySee(*context.user, document.owner, document.permissions)) continue;
        ++total;
        characters += std::int64_t(textLength(document.content));
        ++types[document.mimeType];
        inInbox += std::any_of(document.tags.begin(), document.tags.end(),
                               [&](Id tag) { return std::find(counted.begin(), counted.end(), tag) != counted.end(); });
    }
    std::vector<std::pair<std::string, std::int64_t>> byCount(types.begin(), types.end());
    std::stable_sort(byCount.begin(), byCount.end(),
                     [](const auto& left, const auto& right) { return left.second > right.second; });
    auto typeCounts = Json::array();
    for (const auto& [type, count] : byCount)
        typeCounts.push_back(Json{{"mime_type", type}, {"mime_type_count", count}});
    auto count = [&](Kind kind) {
        return visibleIds(state.table(kind), *context.user).size();
    };
    return jsonResponse(Json{{"documents_total", total},
                             {"documents_inbox", inbox.empty() ? Json(nullptr) : Json(inInbox)},
                             {"inbox_tag", inbox.empty() ? Json(nullptr) : Json(inbox.front())},
                             {"inbox_tags", inbox.empty() ? Json(nullptr) : Json(inbox)},
                             {"document_file_type_counts", std::move(typeCounts)},
                             {"character_count", characters},
                             {"tag_count", count(Kind::Tag)},
                             {"correspondent_count", count(Kind::Correspondent)},
                             {"document_type_count", count(Kind::DocumentType)},
                             {"storage_path_count", count(Kind::StoragePath)},
                             {"current_asn", largest}});
}

Response globalSearch(Context& context) {
    auto query = context.request.argument("query").value_or("");
    if (textLength(query) < 3) return bareText(400, "Query must be at least 3 characters");
    const auto& state = context.state;
    const auto& user = *context.user;
    auto part = lowerText(query);
    auto matches = [&](const std::string& name) {
        return lowerText(name).find(part) != std::string::npos;
    };
    std::int64_t total = 0;

    auto ids = [&] {
        auto byTitle = context.request;
        byTitle.query = {{"title__icontains", query}};
        return selectDocuments(state, byTitle, user).ids;
    }();
    ids.resize(std::min(ids.size(), searchedPerKind));
    std::string documents = "[";
    DocumentShape shape;
    shape.api = context.api;
    shape.truncated = context.request.flag("truncate_content");
    for (auto id : ids) {
        if (total++ > 0) documents += ',';
        if (!appendDocument(documents, state, state.documents.at(id), shape)) return serverError();
    }
    documents += ']';

    auto attributes = [&](Kind kind) {
        std::vector<const Attribute*> found;
        for (const auto& [id, attribute] : state.table(kind)) {
            if (matches(attribute.name) && maySee(user, attribute.owner, attribute.permissions))
                found.push_back(&attribute);
        }
        std::stable_sort(found.begin(), found.end(), [](const auto* left, const auto* right) {
            return lowerAscii(left->name) < lowerAscii(right->name);
        });
        found.resize(std::min(found.size(), searchedPerKind));
        auto list = Json::array();
        for (const auto* attribute : found) {
            AttributeShape plain{nullptr, context.api, false, std::nullopt, false};
            list.push_back(attributeJson(state, kind, *attribute, plain));
        }
        total += std::int64_t(list.size());
        return list;
    };
    auto views = Json::array();
    for (const auto& [id, view] : state.savedViews) {
        auto isVisible =
            context.api.hasPersonalViews ? maySee(user, view.owner, view.permissions) : view.owner == user.id;
        if (views.size() < searchedPerKind && isVisible && matches(view.name))
            views.push_back(savedViewJson(view, user, false, context.api));
    }
    auto fields = Json::array();
    for (const auto& [id, field] : state.customFields) {
        if (fields.size() < searchedPerKind && matches(field.name))
            fields.push_back(customFieldJson(field, context.api, std::nullopt));
    }
    auto users = Json::array();
    if (hasPermission(state, user, "view_user")) {
        for (const auto& [id, other] : state.users) {
            if (users.size() < searchedPerKind && matches(other.username)) users.push_back(userJson(state, other));
        }
    }
    auto groups = Json::array();
    if (hasPermission(state, user, "view_group")) {
        for (const auto& [id, group] : state.groups) {
            if (groups.size() < searchedPerKind && matches(group.name)) groups.push_back(groupJson(group));
        }
    }
    total += std::int64_t(views.size() + fields.size() + users.size() + groups.size());
    Json rest{{"saved_views", std::move(views)}, {"tags", attributes(Kind::Tag)}};
    rest["correspondents"] = attributes(Kind::Correspondent);
    rest["document_types"] = attributes(Kind::DocumentType);
    rest["storage_paths"] = attributes(Kind::StoragePath);
    rest["users"] = std::move(users);
    rest["groups"] = std::move(groups);
    rest["mail_rules"] = Json::array();
    rest["mail_accounts"] = Json::array();
    rest["workflows"] = Json::array();
    rest["custom_fields"] = std::move(fields);
    return rawJsonResponse("{\"total\":" + std::to_string(total) + ",\"documents\":" + documents + "," +
                           textOf(rest).substr(1));
}

Response autocomplete(Context& context) {
    auto limit = std::atoi(context.request.argument("limit").value_or("10").c_str());
    if (limit <= 0) return bareText(400, "Invalid limit");
    auto words = wordsOf(context.request.argument("term").value_or(""));
    if (words.empty()) return bareText(400, "Term required");
    std::map<std::string, std::size_t> found;
    for (const auto& [id, document] : context.state.documents) {
        if (document.deletedAt || !maySee(*context.user, document.owner, document.permissions)) continue;
        for (const auto& word : wordsOf(document.content)) {
            if (word.starts_with(words.back())) ++found[word];
        }
    }
    std::vector<std::pair<std::string, std::size_t>> ranked(found.begin(), found.end());
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& left, const auto& right) { return left.second > right.second; });
    auto list = Json::array();
    for (const auto& [word, hits] : ranked) {
        if (list.size() < std::size_t(limit)) list.push_back(word);
    }
    return jsonResponse(list);
}

Response emptyList(Context& context) {
    return pagedResponse(context, {}, [](std::string&, Id) {});
}

Response applicationConfig(Context&) {
    Json config{{"id", 1}};
    for (const char* key : {"user_args",          "barcode_tag_mapping",
                            "output_type",        "pages",
                            "language",           "mode",
                            "skip_archive_file",  "image_dpi",
                            "unpaper_clean",      "deskew",
                            "rotate_pages",       "rotate_pages_threshold",
                            "max_image_pixels",   "color_conversion_strategy",
                            "app_title",          "app_logo",
                            "barcodes_enabled",   "barcode_enable_tiff_support",
                            "barcode_string",     "barcode_retain_split_pages",
                            "barcode_enable_asn", "barcode_asn_prefix",
                            "barcode_upscale",    "barcode_dpi",
                            "barcode_max_pages",  "barcode_enable_tag"})
        config[key] = nullptr;
    return jsonResponse(Json::array({std::move(config)}));
}

Response logNames(Context&) {
    return jsonResponse(Json::array({"paperless", "mail", "celery"}));
}

} // namespace ledgerfinch::support
