// SPDX-License-Identifier: GPL-3.0-or-later
// Lists of documents, single documents and the trash.
#include "support/PaperlessServerCustomValues.h"
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerFilters.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSearch.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t longestTitle = 128;
constexpr std::int64_t largestSerialNumber = 4294967295;
constexpr std::size_t cachedLists = 16;

Document* visible(Context& context) {
    auto* document = context.state.liveDocument(context.id());
    if (document == nullptr || !maySee(*context.user, document->owner, document->permissions)) return nullptr;
    return document;
}

/// Ids aren't checked before the look-up, so that a word in their place is simply not found.
Response noDocument(const Context& context) {
    return context.id() < 0 ? notFound() : noMatch("Document");
}

Response show(const State& state, const Document& document, const DocumentShape& shape) {
    std::string body;
    if (!appendDocument(body, state, document, shape)) return serverError();
    return rawJsonResponse(std::move(body));
}

void readCreated(BodyReader& body, const Release& release, std::string_view key, Document& target) {
    const auto* value = body.find(key);
    if (value == nullptr) return;
    if (value->is_null()) {
        body.fail(key, "This field may not be null.");
        return;
    }
    auto time = value->is_string() ? parseTime(value->get_ref<const std::string&>()) : std::nullopt;
    if (!time) {
        auto wantsTime = !release.hasRichFields && key == "created";
        body.fail(key, wantsTime ? "Datetime has wrong format. Use one of these formats instead: "
                                   "YYYY-MM-DDThh:mm[:ss[.uuuuuu]][+HH:MM|-HH:MM|Z]."
                                 : "Date has wrong format. Use one of these formats instead: YYYY-MM-DD.");
        return;
    }
    target.created = localDateText(*time);
    target.createdTime = time;
}

void readSerialNumber(BodyReader& body, const State& state, Document& document) {
    if (!body.integer("archive_serial_number", document.archiveSerialNumber, 0, largestSerialNumber)) return;
    if (!document.archiveSerialNumber) return;
    for (const auto& [id, other] : state.documents) {
        if (id != document.id && other.archiveSerialNumber == document.archiveSerialNumber)
            body.fail("archive_serial_number", "document with this archive serial number already exists.");
    }
}

/// A tag brings its ancestors along.
void addAncestors(const State& state, std::vector<Id>& tags) {
    for (std::size_t index = 0; index < tags.size(); ++index) {
        auto parent = state.table(Kind::Tag).at(tags[index]).parent;
        if (parent && std::find(tags.begin(), tags.end(), *parent) == tags.end()) tags.push_back(*parent);
    }
}

/// Inbox tags go, except those that this very request adds.
void removeInboxTags(const State& state, const std::vector<Id>& before, std::vector<Id>& tags) {
    std::erase_if(tags, [&](Id tag) {
        auto wasThere = std::find(before.begin(), before.end(), tag) != before.end();
        return wasThere && state.table(Kind::Tag).at(tag).isInboxTag;
    });
}

void readFields(BodyReader& body, const State& state, Document& document) {
    body.relation("correspondent", document.correspondent, existsIn(state.table(Kind::Correspondent)), true);
    body.relation("document_type", document.documentType, existsIn(state.table(Kind::DocumentType)), true);
    body.relation("storage_path", document.storagePath, existsIn(state.table(Kind::StoragePath)), true);
    body.text("title", document.title, {.longest = longestTitle});
    body.text("content", document.content);
    auto before = document.tags;
    auto givesTags = body.relations("tags", document.tags, existsIn(state.table(Kind::Tag)), true);
    if (!body.has("created")) readCreated(body, state.release, "created_date", document);
    readCreated(body, state.release, "created", document);
    readSerialNumber(body, state, document);
    body.relation("owner", document.owner, existsIn(state.users));
    body.permissions(state, document.permissions);
    auto clearInbox = false;
    body.boolean("remove_inbox_tags", clearInbox);
    if (clearInbox) removeInboxTags(state, before, document.tags);
    if (givesTags) addAncestors(state, document.tags);
}

std::string listKey(const Request& request, const User& user) {
    std::string key = std::to_string(user.id);
    for (const auto& [name, value] : request.query) {
        if (name != "page" && name != "page_size") key += "&" + name + "=" + value;
    }
    return key;
}

/// The oldest release told the ids in the order in which its database came upon them: along the index of owners, or
/// that of ids. Only an order that was asked for holds for both.
std::vector<Id> storedOrder(const Context& context, std::vector<Id> ids) {
    if (!std::is_sorted(ids.begin(), ids.end())) return ids;
    auto isFiltered = std::any_of(context.request.query.begin(), context.request.query.end(), [](const auto& argument) {
        return argument.first == "title_content" || argument.first.find("__") != std::string::npos;
    });
    auto byOwner = context.user->isSuperuser && !isFiltered;
    std::sort(ids.begin(), ids.end(), [&](Id left, Id right) {
        const auto& documents = context.state.documents;
        auto ownerOf = [&](Id id) {
            return byOwner ? documents.at(id).owner.value_or(0) : 0;
        };
        return std::pair(ownerOf(left), left) < std::pair(ownerOf(right), right);
    });
    return ids;
}

Response searchPage(Context& context, const SelectedDocuments& selected, const std::string& all) {
    auto shape = shapeOf(context);
    std::string query;
    for (const char* key : {"query", "text", "title_search"})
        query += context.request.argument(key).value_or("");
    auto crashed = false;
    std::size_t rank = pageOf(context.request, selected.ids.size()).value_or(Page{}).first;
    auto write = [&](std::string& to, Id id) {
        const auto& document = context.state.documents.at(id);
        auto hit = searchHit(context.state, document, query, selected.scores.at(rank), rank);
        ++rank;
        if (!appendDocument(to, context.state, document, shape, ",\"__search_hit__\":" + textOf(hit))) crashed = true;
    };
    auto response = pagedResponse(context, selected.ids, write, &all, ",\"corrected_query\":null");
    if (crashed) return bareText(400, "Error listing search results, check logs for more detail.");
    return response;
}

} // namespace

Response listDocuments(Context& context, ListCache& cache) {
    auto searches = [&](const char* key) {
        return context.request.argument(key).has_value();
    };
    if (context.release.hasSimpleSearch &&
        searches("text") + searches("title_search") + searches("query") + searches("more_like_id") > 1)
        return detail(400, "Specify only one of text, title_search, query, or more_like_id.");
    auto key = listKey(context.request, *context.user);
    auto cached = std::find_if(cache.entries.begin(), cache.entries.end(), [&](const auto& entry) {
        return entry.revision == context.state.revision && entry.key == key;
    });
    if (cached == cache.entries.end()) {
        auto selected = selectDocuments(context.state, context.request, *context.user);
        if (selected.error) return *selected.error;
        std::string all;
        if (selected.isSearch) {
            auto sorted = selected.ids;
            if (context.release.hasSimpleSearch) {
                appendIds(all, sorted);
                return searchPage(context, selected, all);
            }
            std::stable_sort(sorted.begin(), sorted.end(), [&](Id left, Id right) {
                const auto& one = context.state.documents.at(left);
                const auto& other = context.state.documents.at(right);
                return std::tie(one.created, one.id) > std::tie(other.created, other.id);
            });
            appendIds(all, sorted);
            return searchPage(context, selected, all);
        }
        appendIds(all, context.release.ordersLists ? selected.ids : storedOrder(context, selected.ids));
        if (cache.entries.size() >= cachedLists) cache.entries.erase(cache.entries.begin());
        cache.entries.push_back({key, context.state.revision, std::move(selected.ids), std::move(all)});
        cached = std::prev(cache.entries.end());
    }
    auto shape = shapeOf(context);
    auto crashed = false;
    auto response = pagedResponse(
        context, cached->ids,
        [&](std::string& to, Id id) {
            if (!appendDocument(to, context.state, context.state.documents.at(id), shape)) crashed = true;
        },
        &cached->all);
    return crashed ? serverError() : response;
}

Response getDocument(Context& context) {
    const auto* document = visible(context);
    if (document == nullptr) return noDocument(context);
    auto shape = shapeOf(context);
    shape.withDuplicates = true;
    return show(context.state, *document, shape);
}

Response updateDocument(Context& context) {
    auto* document = visible(context);
    if (document == nullptr) return noDocument(context);
    if (!mayChange(*context.user, document->owner, document->permissions)) return forbidden();
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    if (!parsed.json.is_object()) {
        auto text = "Invalid data. Expected a dictionary, but got " + std::string(typeName(parsed.json)) + ".";
        return jsonResponse(Json{{"non_field_errors", Json::array({text})}}, 400);
    }
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *document;
    readFields(body, context.state, changed);
    CheckedValues values;
    const auto* given = body.find("custom_fields");
    if (given != nullptr) {
        values = checkCustomValues(context.state, *given, context.api);
        if (!values.errors.is_null()) body.failWith("custom_fields", values.errors);
    }
    if (values.crashes) return serverError();
    if (body.failed()) return body.errors();
    *document = std::move(changed);
    if (given != nullptr) storeCustomValues(context.state, *document, values.values);
    document->modified = context.state.now();
    context.state.changed();
    auto shape = shapeOf(context);
    shape.fullPermissions = true;
    return show(context.state, *document, shape);
}

Response deleteDocument(Context& context) {
    auto* document = visible(context);
    if (document == nullptr) return noDocument(context);
    if (!mayChange(*context.user, document->owner, document->permissions)) return forbidden();
    document->deletedAt = context.state.now();
    document->modified = context.state.now();
    context.state.changed();
    return noContent();
}

Response nextSerialNumber(Context& context) {
    std::int64_t largest = 0;
    for (const auto& [id, document] : context.state.documents)
        largest = std::max(largest, document.archiveSerialNumber.value_or(0));
    return rawJsonResponse(std::to_string(largest + 1));
}

Response listTrash(Context& context) {
    std::vector<Id> ids;
    for (const auto& [id, document] : context.state.documents) {
        if (document.deletedAt && maySee(*context.user, document.owner, document.permissions)) ids.push_back(id);
    }
    auto shape = shapeOf(context);
    shape.withoutNotes = true;
    return pagedResponse(context, ids, [&](std::string& to, Id id) {
        appendDocument(to, context.state, context.state.documents.at(id), shape);
    });
}

Response changeTrash(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    std::string action;
    body.choice("action", action, {"restore", "empty"}, true);
    std::vector<Id> ids;
    auto isTrashed = [&](Id id) {
        auto found = context.state.documents.find(id);
        return found != context.state.documents.end() && found->second.deletedAt.has_value();
    };
    if (!body.relations("documents", ids, isTrashed) && !body.has("documents")) {
        for (const auto& [id, document] : context.state.documents) {
            if (document.deletedAt) ids.push_back(id);
        }
    }
    if (body.failed("documents")) body.fail("documents", "Some documents in the list have not yet been deleted.");
    if (body.failed()) return body.errors();
    for (auto id : ids) {
        auto& document = context.state.documents.at(id);
        if (!mayChange(*context.user, document.owner, document.permissions))
            return bareText(403, "Insufficient permissions");
        if (action == "empty") {
            context.state.documents.erase(id);
        } else {
            document.deletedAt.reset();
            document.modified = context.state.now();
        }
    }
    context.state.changed();
    return jsonResponse(Json{{"result", "OK"}, {"doc_ids", ids}});
}

} // namespace ledgerfinch::support
