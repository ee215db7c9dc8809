// SPDX-License-Identifier: GPL-3.0-or-later
// What hangs on a document: notes, history, metadata, suggestions, files.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerFiles.h"
#include "support/PaperlessServerMatching.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>
#include <cstdio>

namespace ledgerfinch::support {

namespace {

/// The document, or why it isn't shown.
struct Found {
    Document* document = nullptr;
    Response error;
};

Found find(Context& context) {
    auto* document = context.state.liveDocument(context.id());
    if (document == nullptr) return {nullptr, notFound()};
    if (!maySee(*context.user, document->owner, document->permissions))
        return {nullptr, bareText(403, "Insufficient permissions")};
    return {document, {}};
}

/// Newest first, with whole authors and times in UTC.
Response showNewestFirst(const Context& context, const Document& document) {
    auto api = context.api;
    api.hasNoteAuthors = true;
    auto notes = *notesJson(context.state, document, api);
    for (auto& note : notes)
        note["created"] = utcTimeText(*parseTime(note["created"].get<std::string>()));
    std::reverse(notes.begin(), notes.end());
    return jsonResponse(notes);
}

Response showNotes(const Context& context, const Document& document) {
    if (context.api.hasNewestNotesFirst) return showNewestFirst(context, document);
    auto notes = notesJson(context.state, document, context.api);
    if (!notes) return jsonResponse(Json{{"error", "Error retrieving notes, check logs for more detail."}});
    return jsonResponse(*notes);
}

Response addNote(Context& context, Document& document) {
    if (!hasPermission(context.state, *context.user, "add_note") ||
        !mayChange(*context.user, document.owner, document.permissions))
        return bareText(403, "Insufficient permissions to create notes");
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    auto text = parsed.json.is_object() ? parsed.json.value("note", Json()) : Json();
    if (!text.is_string()) return jsonResponse(Json{{"error", "Error saving note, check logs for more detail."}});
    document.notes.push_back(
        {context.state.takeId("notes"), text.get<std::string>(), context.state.now(), context.user->id});
    document.modified = context.state.now();
    context.state.changed();
    return showNotes(context, document);
}

Response removeNote(Context& context, Document& document) {
    if (!hasPermission(context.state, *context.user, "delete_note") ||
        !mayChange(*context.user, document.owner, document.permissions))
        return bareText(403, "Insufficient permissions to delete notes");
    auto wanted = context.request.argument("id");
    if (!wanted && !context.release.checksAttributes) return serverError();
    if (!wanted) return jsonResponse(Json{{"id", "This field is required."}}, 400);
    auto id = keyNumber(Json(*wanted));
    auto note =
        std::find_if(document.notes.begin(), document.notes.end(), [&](const Note& one) { return one.id == id; });
    if (note == document.notes.end()) return context.release.checksAttributes ? noMatch("Note") : serverError();
    document.notes.erase(note);
    ++document.deletedNotes;
    document.modified = context.state.now();
    context.state.changed();
    return showNotes(context, document);
}

std::string storedName(const Document& document, std::string_view extension) {
    char name[32];
    std::snprintf(name, sizeof name, "%07lld", static_cast<long long>(document.id));
    return name + std::string(extension);
}

/// Django's file answers: a plain ASCII name and the real one.
std::string disposition(std::string_view kind, const std::string& name) {
    auto quoted = name;
    std::replace(quoted.begin(), quoted.end(), '"', '\'');
    return std::string(kind) + "; filename=\"" + asciiOf(quoted) + "\"; filename*=utf-8''" + escapePath(name);
}

struct File {
    std::string bytes;
    std::string mimeType;
    std::string name;
};

File fileOf(const State& state, const Document& document, bool original) {
    if (document.hasArchive && !original)
        return {archiveFile(document), "application/pdf", publicFileName(state, document, ".pdf")};
    auto extension = extensionOf(document.mimeType);
    return {originalFile(document), document.mimeType, publicFileName(state, document, extension)};
}

Response fileResponse(File file, std::string_view kind) {
    auto response = rawJsonResponse(std::move(file.bytes));
    response.contentType = file.mimeType;
    response.isFile = true;
    response.headers.emplace_back("content-disposition", disposition(kind, file.name));
    return response;
}

/// 304 when the client's copy is as new; HTTP dates count whole seconds.
bool isUnchanged(const Context& context, Micros time, const std::string& etag) {
    auto match = context.request.header("if-none-match");
    if (!match.empty() && !etag.empty()) return match == etag;
    if (!match.empty()) return false;
    auto since = parseHttpDate(context.request.header("if-modified-since"));
    return since && time / second <= *since / second;
}

Response notModified(Response response) {
    response.status = 304;
    std::erase_if(response.headers, [](const auto& header) { return header.first == "content-disposition"; });
    response.contentType.clear();
    response.body.clear();
    return response;
}

} // namespace

Response documentNotes(Context& context) {
    auto [document, error] = find(context);
    if (document == nullptr) return error;
    if (context.request.method == "POST") return addNote(context, *document);
    if (context.request.method == "DELETE") return removeNote(context, *document);
    if (!hasPermission(context.state, *context.user, "view_note"))
        return bareText(403, "Insufficient permissions to view notes");
    return showNotes(context, *document);
}

Response documentHistory(Context& context) {
    auto [document, error] = find(context);
    if (document == nullptr) return error;
    auto list = Json::array();
    for (auto entry = document->history.rbegin(); entry != document->history.rend(); ++entry) {
        Json actor;
        if (entry->actor && context.state.users.contains(*entry->actor)) {
            const auto& user = context.state.users.at(*entry->actor);
            actor = Json{{"id", user.id}, {"username", user.username}};
        }
        list.push_back(Json{{"id", entry->id},
                            {"timestamp", utcTimeText(entry->time)},
                            {"action", entry->action},
                            {"changes", entry->changes},
                            {"actor", std::move(actor)}});
    }
    return jsonResponse(list);
}

Response documentMetadata(Context& context) {
    auto [document, error] = find(context);
    if (document == nullptr) return error;
    auto checksum = checksumOf(*document, context.release.hasSha256);
    auto archive = archiveFile(*document);
    Json json{{"original_checksum", checksum},
              {"original_size", originalFile(*document).size()},
              {"original_mime_type", document->mimeType},
              {"media_filename", storedName(*document, extensionOf(document->mimeType))},
              {"has_archive_version", document->hasArchive},
              {"original_metadata", Json::array()},
              {"archive_checksum", nullptr},
              {"archive_media_filename", nullptr},
              {"original_filename", document->originalFileName ? Json(*document->originalFileName) : Json(nullptr)},
              {"archive_size", nullptr},
              {"archive_metadata", nullptr},
              {"lang", "de"}};
    if (document->hasArchive) {
        json["archive_checksum"] = context.release.hasSha256 ? sha256Hex(archive) : md5Hex(archive);
        json["archive_media_filename"] = storedName(*document, ".pdf");
        json["archive_size"] = archive.size();
        json["archive_metadata"] = Json::array();
    }
    auto response = jsonResponse(json);
    auto etag = "\"" + checksum + "\"";
    response.headers.emplace_back("last-modified", httpDateText(document->modified));
    response.headers.emplace_back("etag", etag);
    response.headers.emplace_back("cache-control", "no-cache");
    return isUnchanged(context, document->modified, etag) ? notModified(std::move(response)) : response;
}

Response documentSuggestions(Context& context) {
    auto* document = context.state.liveDocument(context.id());
    if (document == nullptr) return noMatch("Document");
    if (!maySee(*context.user, document->owner, document->permissions))
        return bareText(403, "Insufficient permissions");
    auto ids = [&](Kind kind) {
        return matchingAttributes(context.state, kind, *document, *context.user);
    };
    auto response = jsonResponse(Json{{"correspondents", ids(Kind::Correspondent)},
                                      {"tags", ids(Kind::Tag)},
                                      {"document_types", ids(Kind::DocumentType)},
                                      {"storage_paths", ids(Kind::StoragePath)},
                                      {"dates", Json::array()}});
    response.headers.emplace_back("cache-control", "no-cache");
    return response;
}

Response documentRoot(Context& context) {
    auto [document, error] = find(context);
    return document == nullptr ? error : jsonResponse(Json{{"root_id", document->id}});
}

Response documentThumbnail(Context& context) {
    auto [document, error] = find(context);
    if (document == nullptr) return error;
    auto isWebp = context.state.thumbnailsAreWebp;
    auto response = rawJsonResponse(isWebp ? makeWebp(document->id) : makePng(document->id));
    response.contentType = isWebp ? "image/webp" : "image/png";
    std::string etag;
    if (context.release.hasSha256) {
        etag = "\"" + checksumOf(*document, true) + "\"";
        auto name = storedName(*document, isWebp ? ".webp" : ".png");
        response.headers.emplace_back("content-disposition", "inline; filename=\"" + name + "\"");
        response.headers.emplace_back("etag", etag);
    }
    response.headers.emplace_back("last-modified", httpDateText(document->filed));
    response.headers.emplace_back("cache-control", "no-cache");
    return isUnchanged(context, document->filed, etag) ? notModified(std::move(response)) : response;
}

Response documentPreview(Context& context) {
    auto [document, error] = find(context);
    if (document == nullptr) return error;
    auto response = fileResponse(fileOf(context.state, *document, context.request.flag("original")), "inline");
    response.headers.emplace_back("last-modified", httpDateText(document->modified));
    auto etag = document->hasArchive ? "\"" + md5Hex(response.body) + "\"" : std::string();
    if (!etag.empty()) response.headers.emplace_back("etag", etag);
    response.headers.emplace_back("cache-control", "no-cache");
    return isUnchanged(context, document->modified, etag) ? notModified(std::move(response)) : response;
}

Response documentDownload(Context& context) {
    auto [document, error] = find(context);
    if (document == nullptr) return error;
    auto original = context.request.argument("original") == "true";
    return fileResponse(fileOf(context.state, *document, original), "attachment");
}

Response openShareLink(Context& context) {
    const auto& slug = context.arguments.front();
    for (const auto& [id, link] : context.state.shareLinks) {
        if (link.slug != slug) continue;
        if (link.expiration && *link.expiration <= context.state.clock())
            return redirect("/accounts/login/?sharelink_expired=1");
        const auto* document = context.state.liveDocument(link.document);
        if (document == nullptr) break;
        return fileResponse(fileOf(context.state, *document, link.fileVersion == "original"), "inline");
    }
    return redirect("/accounts/login/?sharelink_notfound=1");
}

} // namespace ledgerfinch::support
