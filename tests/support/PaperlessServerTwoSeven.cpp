// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerTwoSeven.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

/// Keys of records that came with later releases, by the list they stand in.
const std::map<std::string, std::vector<std::string>>& laterKeys() {
    static const std::map<std::string, std::vector<std::string>> keys{
        {"documents", {"deleted_at", "page_count", "mime_type", "selected_custom_fields"}},
        {"custom_fields", {"extra_data", "document_count"}},
        {"saved_views", {"page_size", "display_mode", "display_fields"}},
        {"users", {"is_mfa_enabled"}},
        {"profile", {"is_mfa_enabled"}},
        {"statistics", {"inbox_tags", "current_asn"}},
        {"config",
         {"barcode_tag_mapping", "barcodes_enabled", "barcode_enable_tiff_support", "barcode_string",
          "barcode_retain_split_pages", "barcode_enable_asn", "barcode_asn_prefix", "barcode_upscale", "barcode_dpi",
          "barcode_max_pages", "barcode_enable_tag"}},
    };
    return keys;
}

void removeKeys(Json& record, const std::vector<std::string>& keys) {
    for (const auto& key : keys)
        record.erase(key);
}

/// A note in a document names it: id, note, created, document, user.
void nameDocumentInNotes(Json& document) {
    if (!document.contains("notes") || !document.contains("id")) return;
    for (auto& note : document["notes"]) {
        auto user = note["user"];
        note.erase("user");
        note["document"] = document["id"];
        note["user"] = std::move(user);
    }
}

void cutRecord(Json& record, const std::string& table) {
    if (!record.is_object()) return;
    auto keys = laterKeys().find(table);
    if (keys != laterKeys().end()) removeKeys(record, keys->second);
    if (table == "documents") nameDocumentInNotes(record);
    if (record.contains("password") && record["password"].is_string() && (table == "users" || table == "profile"))
        record["password"] = "**********";
}

/// A page of hits tells the ids on it, not those of all.
void cutSearch(Json& page) {
    page.erase("corrected_query");
    auto ids = Json::array();
    for (const auto& hit : page["results"])
        ids.push_back(hit.value("id", Json()));
    page["all"] = std::move(ids);
}

void cutSettings(Json& json) {
    if (json.contains("user")) removeKeys(json["user"], {"is_staff"});
    if (json.contains("settings"))
        removeKeys(json["settings"], {"trash_delay", "version", "auditlog_enabled", "email_enabled"});
}

/// Of a document's links only this much, in UTC.
void cutShareLinks(Json& links) {
    for (auto& link : links) {
        removeKeys(link, {"document", "file_version"});
        for (const char* key : {"created", "expiration"}) {
            auto time = link[key].is_string() ? parseTime(link[key].get<std::string>()) : std::nullopt;
            if (time) link[key] = utcTimeText(*time);
        }
    }
}

void cut(Json& json, const std::vector<std::string>& segments) {
    const auto& table = segments.at(1);
    if (segments.size() == 4) {
        if (segments[3] == "share_links") cutShareLinks(json);
        return;
    }
    if (table == "ui_settings") return cutSettings(json);
    if (table == "logs") return json.erase(json.size() - 1);
    if (json.is_array() || json.contains("results")) {
        for (auto& record : json.is_array() ? json : json["results"])
            cutRecord(record, table);
        if (json.contains("corrected_query")) cutSearch(json);
    } else {
        cutRecord(json, table);
    }
}

/// It wrote the bytes of the plain name as Python shows them.
void spoilName(std::string& disposition) {
    auto start = disposition.find("filename=\"");
    auto end = start == std::string::npos ? start : disposition.find('"', start + 10);
    if (end == std::string::npos) return;
    disposition.insert(end, "'");
    disposition.insert(start + 10, "b'");
}

void cutHeaders(Response& response, const std::vector<std::string>& segments) {
    auto part = segments.size() == 4 ? segments[3] : std::string();
    for (auto& [name, value] : response.headers) {
        if (name == "content-disposition") spoilName(value);
        if (name == "www-authenticate") value = "Basic realm=\"api\"";
        if (name == "cache-control" && part == "thumb") value = "public=False, max-age=3000";
        if (name == "cache-control" && part == "preview") value = "public=False, max-age=300";
    }
    if (part == "thumb" || part == "preview") return;
    std::erase_if(response.headers, [](const auto& header) { return header.first == "cache-control"; });
}

} // namespace

Response asTwoSeven(Response response, const std::vector<std::string>& segments) {
    cutHeaders(response, segments);
    if (response.contentType != "application/json") return response;
    if (response.status == 404 && response.body.find(" matches the given query.") != std::string::npos)
        response.body = notFound().body;
    if (response.status >= 300 || segments.size() < 2) return response;
    auto json = Json::parse(response.body, nullptr, false);
    if (!json.is_structured()) return response;
    cut(json, segments);
    response.body = textOf(json);
    return response;
}

} // namespace ledgerfinch::support
