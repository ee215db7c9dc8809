// SPDX-License-Identifier: GPL-3.0-or-later
// Changes to many records at once.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerFiles.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerTasks.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

const std::vector<std::string_view>& methods() {
    static const std::vector<std::string_view> all{"set_correspondent",
                                                   "set_document_type",
                                                   "set_storage_path",
                                                   "add_tag",
                                                   "remove_tag",
                                                   "modify_tags",
                                                   "modify_custom_fields",
                                                   "delete",
                                                   "reprocess",
                                                   "set_permissions",
                                                   "rotate",
                                                   "merge",
                                                   "edit_pdf",
                                                   "split",
                                                   "delete_pages"};
    return all;
}

void addTo(std::vector<Id>& ids, Id id) {
    if (std::find(ids.begin(), ids.end(), id) == ids.end()) ids.push_back(id);
}

/// Adds a tag with its ancestors.
void addTag(const State& state, Document& document, Id tag) {
    for (OptionalId next = tag; next; next = state.table(Kind::Tag).at(*next).parent)
        addTo(document.tags, *next);
}

struct Change {
    std::function<void(Document&)> apply;
    std::optional<Response> error;
    bool touches = true; ///< whether it moves `modified`
};

Change relationChange(const State& state, Kind kind, const Json& parameters, std::string_view key,
                      OptionalId Document::*member) {
    BodyReader body(parameters, false);
    OptionalId id;
    body.relation(key, id, existsIn(state.table(kind)), true);
    if (body.failed()) return {{}, body.errors()};
    return {[member, id](Document& document) { document.*member = id; }, {}};
}

Change tagChange(const State& state, const Json& parameters, bool adds) {
    BodyReader body(parameters, false);
    OptionalId tag;
    body.relation("tag", tag, existsIn(state.table(Kind::Tag)), true, false);
    if (body.failed()) return {{}, body.errors()};
    return {[&state, tag, adds](Document& document) {
                if (adds) {
                    addTag(state, document, *tag);
                } else {
                    std::erase(document.tags, *tag);
                }
            },
            {}};
}

Change tagsChange(const State& state, const Json& parameters) {
    BodyReader body(parameters, false);
    std::vector<Id> added, removed;
    body.relations("add_tags", added, existsIn(state.table(Kind::Tag)), true);
    body.relations("remove_tags", removed, existsIn(state.table(Kind::Tag)), true);
    if (body.failed()) return {{}, body.errors()};
    return {[&state, added, removed](Document& document) {
                for (auto tag : removed)
                    std::erase(document.tags, tag);
                for (auto tag : added)
                    addTag(state, document, tag);
            },
            {}};
}

Change fieldsChange(const State& state, const Json& parameters) {
    BodyReader body(parameters, false);
    std::vector<Id> added, removed;
    body.relations("add_custom_fields", added, existsIn(state.customFields), true);
    body.relations("remove_custom_fields", removed, existsIn(state.customFields), true);
    if (body.failed()) return {{}, body.errors()};
    return {[added, removed](Document& document) {
                std::erase_if(document.customFields, [&](const CustomFieldValue& value) {
                    return std::find(removed.begin(), removed.end(), value.field) != removed.end();
                });
                for (auto field : added) {
                    auto has = std::any_of(document.customFields.begin(), document.customFields.end(),
                                           [&](const CustomFieldValue& value) { return value.field == field; });
                    if (!has) document.customFields.push_back({field, nullptr});
                }
            },
            {}};
}

Change permissionChange(const State& state, const Json& parameters) {
    BodyReader body(parameters, true);
    OptionalId owner;
    ObjectPermissions permissions;
    auto hasOwner = body.relation("owner", owner, existsIn(state.users));
    body.permissions(state, permissions);
    auto merges = false;
    body.boolean("merge", merges);
    if (body.failed()) return {{}, body.errors()};
    auto apply = [=](Document& document) {
        if (hasOwner && (!merges || !document.owner)) document.owner = owner;
        if (!merges) {
            document.permissions = permissions;
            return;
        }
        for (auto id : permissions.viewUsers)
            addTo(document.permissions.viewUsers, id);
        for (auto id : permissions.viewGroups)
            addTo(document.permissions.viewGroups, id);
        for (auto id : permissions.changeUsers)
            addTo(document.permissions.changeUsers, id);
        for (auto id : permissions.changeGroups)
            addTo(document.permissions.changeGroups, id);
        document.permissions.normalise();
    };
    return {apply, {}, false};
}

Change changeOf(State& state, const std::string& method, const Json& parameters) {
    if (method == "set_correspondent")
        return relationChange(state, Kind::Correspondent, parameters, "correspondent", &Document::correspondent);
    if (method == "set_document_type")
        return relationChange(state, Kind::DocumentType, parameters, "document_type", &Document::documentType);
    if (method == "set_storage_path")
        return relationChange(state, Kind::StoragePath, parameters, "storage_path", &Document::storagePath);
    if (method == "add_tag" || method == "remove_tag") return tagChange(state, parameters, method == "add_tag");
    if (method == "modify_tags") return tagsChange(state, parameters);
    if (method == "modify_custom_fields") return fieldsChange(state, parameters);
    if (method == "set_permissions") return permissionChange(state, parameters);
    if (method == "delete") return {[&state](Document& document) { document.deletedAt = state.now(); }, {}};
    // The methods that work on files leave the records as they are.
    return {[](Document&) {}, {}, false};
}

/// A file that the server makes out of documents and consumes again.
void addOwnFile(State& state, TaskKind kind, const std::string& name, const OptionalId& owner) {
    auto& task = addTask(state, kind);
    task.fileName = name;
    task.isOwnFile = true;
    task.owner = owner;
    task.upload.mimeType = "application/pdf";
    task.upload.file = std::make_shared<const std::string>(makePdf(name, name));
    finishAtOnce(state, task);
}

/// What is left to the worker. Before release 3 only new files make a task.
/// Documents are touched by the worker, which tests see only where they set its pace.
void addWork(Context& context, const std::string& method, const std::vector<Id>& ids) {
    auto& state = context.state;
    auto hasQueue = context.release.hasTaskQueue;
    if (method == "merge") {
        std::string name;
        for (auto id : ids)
            name += std::to_string(id) + "_";
        addOwnFile(state, TaskKind::Consume, name + "merged.pdf", context.user->id);
    } else if (hasQueue && method == "rotate") {
        for (auto id : ids)
            addOwnFile(state, TaskKind::Rotate, std::to_string(id) + "_rotated.pdf", state.documents.at(id).owner);
    } else if (hasQueue && method == "reprocess") {
        for (std::size_t count = 0; count < ids.size(); ++count)
            finishAtOnce(state, addTask(state, TaskKind::Reprocess));
    } else if (hasQueue && method != "delete") {
        auto& task = addTask(state, TaskKind::BulkUpdate);
        task.touches = ids;
        finishAtOnce(state, task);
    }
}

Json countsOf(const std::vector<Id>& ids, const std::map<Id, std::int64_t>& counts) {
    auto list = Json::array();
    for (auto id : ids) {
        auto found = counts.find(id);
        list.push_back(Json{{"id", id}, {"document_count", found == counts.end() ? 0 : found->second}});
    }
    return list;
}

template <typename Table>
std::vector<Id> keysOf(const Table& table) {
    std::vector<Id> ids;
    for (const auto& [id, record] : table)
        ids.push_back(id);
    return ids;
}

} // namespace

Response bulkEdit(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    auto& state = context.state;
    BodyReader body(parsed.json, false);
    std::vector<Id> ids;
    auto exists = [&](Id id) {
        return state.liveDocument(id) != nullptr;
    };
    body.relations("documents", ids, exists, true);
    if (body.has("documents") && body.failed())
        body.fail("documents", "Some documents in documents don't exist or were specified twice.");
    std::string method;
    body.choice("method", method, methods(), true);
    if (body.failed()) return body.errors();
    auto change = changeOf(state, method, parsed.json.value("parameters", Json::object()));
    if (change.error) return *change.error;
    auto permission = method == "delete" ? "delete_document" : "change_document";
    auto mayAll = hasPermission(state, *context.user, permission) && std::all_of(ids.begin(), ids.end(), [&](Id id) {
                      const auto& document = state.documents.at(id);
                      return mayChange(*context.user, document.owner, document.permissions);
                  });
    if (!mayAll) return bareText(403, "Insufficient permissions");
    addWork(context, method, ids);
    auto isLater = context.release.hasTaskQueue && state.taskPace == TaskPace::Manual;
    for (auto id : ids) {
        auto& document = state.documents.at(id);
        change.apply(document);
        if (change.touches && !isLater) document.modified = state.now();
    }
    state.changed();
    return jsonResponse(Json{{"result", "OK"}});
}

Response bulkDelete(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    auto request = context.request;
    parsed.json["method"] = "delete";
    request.body = textOf(parsed.json);
    Context asBulkEdit{context.state, request, context.user, context.release, context.api, context.arguments};
    return bulkEdit(asBulkEdit);
}

Response bulkEditObjects(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    auto& state = context.state;
    BodyReader body(parsed.json, false);
    std::string type, operation;
    body.choice("object_type", type, {"tags", "correspondents", "document_types", "storage_paths"}, true);
    body.choice("operation", operation, {"set_permissions", "delete"}, true);
    if (body.failed()) return body.errors();
    auto kind = *std::find_if(allKinds.begin(), allKinds.end(), [&](Kind one) { return namesOf(one).path == type; });
    std::vector<Id> ids;
    if (!body.relations("objects", ids, existsIn(state.table(kind)), true)) {
        body.fail("objects", "Some objects in objects don't exist or were specified twice.");
        return body.errors();
    }
    OptionalId owner;
    ObjectPermissions permissions;
    auto hasOwner = body.relation("owner", owner, existsIn(state.users));
    auto hasPermissions = body.has("permissions");
    if (hasPermissions) {
        Json renamed{{"set_permissions", parsed.json["permissions"]}};
        BodyReader(renamed, true).permissions(state, permissions);
    }
    auto action = std::string(operation == "delete" ? "delete_" : "change_") + std::string(namesOf(kind).codename);
    auto mayAll = hasPermission(state, *context.user, action) && std::all_of(ids.begin(), ids.end(), [&](Id id) {
                      const auto& attribute = state.table(kind).at(id);
                      return mayChange(*context.user, attribute.owner, attribute.permissions);
                  });
    if (!mayAll) return bareText(403, "Insufficient permissions");
    for (auto id : ids) {
        if (operation == "delete") {
            removeAttribute(state, kind, id);
            continue;
        }
        auto& attribute = state.table(kind).at(id);
        if (hasOwner) attribute.owner = owner;
        if (hasPermissions) attribute.permissions = permissions;
    }
    state.changed();
    return jsonResponse(Json{{"result", "OK"}});
}

Response selectionData(Context& context) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    auto& state = context.state;
    BodyReader body(parsed.json, false);
    std::vector<Id> ids;
    body.relations(
        "documents", ids, [&](Id id) { return state.liveDocument(id) != nullptr; }, true);
    if (body.failed()) return body.errors();
    State selected;
    for (auto id : ids) {
        auto copy = state.documents.at(id);
        copy.content.clear();
        selected.documents[id] = std::move(copy);
    }
    auto counts = countDocuments(selected, *context.user);
    auto list = [&](Kind kind) {
        return countsOf(keysOf(state.table(kind)), counts.byAttribute[std::size_t(kind)]);
    };
    return jsonResponse(Json{{"selected_correspondents", list(Kind::Correspondent)},
                             {"selected_tags", list(Kind::Tag)},
                             {"selected_document_types", list(Kind::DocumentType)},
                             {"selected_storage_paths", list(Kind::StoragePath)},
                             {"selected_custom_fields", countsOf(keysOf(state.customFields), counts.byCustomField)}});
}

} // namespace ledgerfinch::support
