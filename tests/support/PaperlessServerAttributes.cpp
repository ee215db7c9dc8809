// SPDX-License-Identifier: GPL-3.0-or-later
// Tags, correspondents, document types and storage paths.
#include "support/PaperlessServerEndpoints.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSerialize.h"
#include "support/PaperlessServerTasks.h"
#include "support/PaperlessServerValidation.h"

#include <algorithm>
#include <regex>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t longestName = 128;
constexpr std::size_t longestMatch = 256;
constexpr std::int64_t regexAlgorithm = 4;
constexpr std::int64_t lastAlgorithm = 6;

bool isColor(std::string_view text) {
    return text.size() == 7 && text.front() == '#' &&
           text.find_first_not_of("0123456789abcdefABCDEF", 1) == std::string_view::npos;
}

bool isRegex(const std::string& text) {
    try {
        std::regex compiled(text);
        return true;
    } catch (const std::regex_error&) {
        return false;
    }
}

/// Whether the braces of a template close.
bool isTemplate(std::string_view text) {
    std::size_t at = 0;
    while ((at = text.find("{{", at)) != std::string_view::npos) {
        at = text.find("}}", at);
        if (at == std::string_view::npos) return false;
    }
    return true;
}

/// Reads what the body gives into the attribute, on top of what it holds.
void readFields(BodyReader& body, const State& state, Kind kind, Attribute& attribute) {
    body.text("name", attribute.name, {.required = true, .mayBeBlank = false, .longest = longestName});
    if (kind == Kind::StoragePath) {
        auto hasPath = body.text("path", attribute.path, {.required = true, .mayBeBlank = false});
        if (hasPath && state.release.checksAttributes && !isTemplate(attribute.path))
            body.fail("path", "Invalid variable detected.");
    }
    if (kind == Kind::Tag && body.text("color", attribute.color, {.mayBeBlank = false}) && !isColor(attribute.color))
        body.fail("color", "Invalid color.");
    auto hasMatch = body.text("match", attribute.match, {.longest = longestMatch});
    body.choice("matching_algorithm", attribute.matchingAlgorithm, 0, lastAlgorithm);
    if (hasMatch && attribute.matchingAlgorithm == regexAlgorithm && !isRegex(attribute.match))
        body.fail("match", state.release.checksAttributes
                               ? "Invalid regular expression, see log for details."
                               : "Invalid regular expression: missing ), unterminated subpattern");
    body.boolean("is_insensitive", attribute.isInsensitive);
    body.relation("owner", attribute.owner, existsIn(state.users));
    body.permissions(state, attribute.permissions);
    if (kind != Kind::Tag) return;
    body.boolean("is_inbox_tag", attribute.isInboxTag);
    body.relation("parent", attribute.parent, existsIn(state.table(Kind::Tag)));
    if (attribute.id != 0 && attribute.parent == attribute.id) body.fail("parent", "Cannot set itself as parent.");
}

const Attribute* namesake(const State& state, Kind kind, const Attribute& attribute, bool ownerless) {
    for (const auto& [id, other] : state.table(kind)) {
        if (id == attribute.id || other.name != attribute.name) continue;
        if (ownerless ? !other.owner : other.owner && other.owner == attribute.owner) return &other;
    }
    return nullptr;
}

/// The rules on names: one ownerless object of a name, one per owner.
std::optional<Response> nameConflict(const BodyReader& body, const State& state, Kind kind,
                                     const Attribute& attribute) {
    constexpr auto violated = "Object violates owner / name unique constraint";
    if (!state.release.checksAttributes) {
        if (namesake(state, kind, attribute, false) == nullptr) return std::nullopt;
        return jsonResponse(Json{{"error", Json::array({violated})}}, 400);
    }
    if (body.has("name") && namesake(state, kind, attribute, true) != nullptr) {
        auto text = std::string(namesOf(kind).verbose) + " with this name already exists.";
        return jsonResponse(Json{{"name", Json::array({text})}}, 400);
    }
    if (namesake(state, kind, attribute, false) == nullptr) return std::nullopt;
    if (attribute.id == 0) return jsonResponse(Json{{"error", violated}}, 400);
    return jsonResponse(Json{{"non_field_errors", Json::array({"The fields name, owner must make a unique set."})}},
                        400);
}

std::int64_t countOf(const DocumentCounts& counts, Kind kind, Id id) {
    const auto& table = counts.byAttribute[std::size_t(kind)];
    auto found = table.find(id);
    return found == table.end() ? 0 : found->second;
}

Attribute* visible(Context& context, Kind kind) {
    auto& table = context.state.table(kind);
    auto found = table.find(context.id());
    if (found == table.end() || !maySee(*context.user, found->second.owner, found->second.permissions)) return nullptr;
    return &found->second;
}

Response show(Context& context, Kind kind, const Attribute& attribute, bool withLastCorrespondence) {
    auto counts = countDocuments(context.state, *context.user);
    AttributeShape shape{context.user, context.api, context.request.flag("full_perms"),
                         countOf(counts, kind, attribute.id), withLastCorrespondence};
    return jsonResponse(attributeJson(context.state, kind, attribute, shape, &counts));
}

/// Documents filed under a changed storage path are moved, which touches them.
void touchDocumentsOfPath(State& state, Id path) {
    for (auto& [id, document] : state.documents) {
        if (document.storagePath == path) document.modified = state.now();
    }
}

/// A tag under a new parent takes its documents along, and those that didn't have the parent are touched.
void addAncestorsToDocuments(State& state, Id tag) {
    const auto& tags = state.table(Kind::Tag);
    for (auto& [id, document] : state.documents) {
        auto before = document.tags.size();
        auto has = [&](Id wanted) {
            return std::find(document.tags.begin(), document.tags.end(), wanted) != document.tags.end();
        };
        if (!has(tag)) continue;
        for (auto parent = tags.at(tag).parent; parent; parent = tags.at(*parent).parent) {
            if (!has(*parent)) document.tags.push_back(*parent);
        }
        if (document.tags.size() != before) document.modified = state.now();
    }
}

std::vector<Id> listedIds(const Context& context, Kind kind) {
    std::vector<const Attribute*> list;
    auto part = lowerText(context.request.argument("name__icontains").value_or(""));
    for (const auto& [id, attribute] : context.state.table(kind)) {
        if (!maySee(*context.user, attribute.owner, attribute.permissions)) continue;
        if (!part.empty() && lowerText(attribute.name).find(part) == std::string::npos) continue;
        list.push_back(&attribute);
    }
    std::stable_sort(list.begin(), list.end(), [](const auto* left, const auto* right) {
        return lowerAscii(left->name) < lowerAscii(right->name);
    });
    if (context.request.argument("ordering") == "-name") std::reverse(list.begin(), list.end());
    std::vector<Id> ids;
    for (const auto* attribute : list)
        ids.push_back(attribute->id);
    return ids;
}

} // namespace

Response listAttributes(Context& context, Kind kind) {
    auto counts = countDocuments(context.state, *context.user);
    AttributeShape shape{context.user, context.api, context.request.flag("full_perms"), 0,
                         context.release.listsCorrespondence};
    auto ids = listedIds(context, kind);
    auto write = [&](std::string& to, Id id) {
        shape.documentCount = countOf(counts, kind, id);
        to += textOf(attributeJson(context.state, kind, context.state.table(kind).at(id), shape, &counts));
    };
    auto hasCount = kind == Kind::Tag && context.api.hasDisplayCount;
    return pagedResponse(context, ids, write, nullptr,
                         hasCount ? ",\"display_count\":" + std::to_string(ids.size()) : std::string());
}

Response createAttribute(Context& context, Kind kind) {
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, false);
    Attribute attribute;
    attribute.owner = context.user->id;
    readFields(body, context.state, kind, attribute);
    if (body.failed()) return body.errors();
    if (auto conflict = nameConflict(body, context.state, kind, attribute)) return *conflict;
    attribute.id = context.state.takeId(std::string(namesOf(kind).path));
    const auto& stored = context.state.table(kind)[attribute.id] = attribute;
    context.state.changed();
    AttributeShape shape{context.user, context.api, context.request.flag("full_perms"), std::nullopt, false};
    return jsonResponse(attributeJson(context.state, kind, stored, shape), 201);
}

Response getAttribute(Context& context, Kind kind) {
    const auto* attribute = visible(context, kind);
    if (attribute == nullptr) return noMatch(namesOf(kind).className);
    return show(context, kind, *attribute, true);
}

Response updateAttribute(Context& context, Kind kind) {
    auto* attribute = visible(context, kind);
    if (attribute == nullptr) return noMatch(namesOf(kind).className);
    if (!mayChange(*context.user, attribute->owner, attribute->permissions)) return forbidden();
    auto parsed = parseBody(context.request);
    if (parsed.error) return *parsed.error;
    BodyReader body(parsed.json, context.request.method == "PATCH");
    auto changed = *attribute;
    if (!body.isPartial() && context.release.checksAttributes) changed.owner.reset();
    readFields(body, context.state, kind, changed);
    if (body.failed()) return body.errors();
    if (auto conflict = nameConflict(body, context.state, kind, changed)) return *conflict;
    auto moved = changed.path != attribute->path;
    auto isReparented = changed.parent && changed.parent != attribute->parent;
    *attribute = changed;
    if (isReparented) {
        addAncestorsToDocuments(context.state, attribute->id);
        if (context.release.hasTaskQueue) finishAtOnce(context.state, addTask(context.state, TaskKind::BulkUpdate));
    }
    if (moved) touchDocumentsOfPath(context.state, attribute->id);
    context.state.changed();
    return show(context, kind, *attribute, context.release.listsCorrespondence);
}

Response deleteAttribute(Context& context, Kind kind) {
    auto* attribute = visible(context, kind);
    if (attribute == nullptr) return noMatch(namesOf(kind).className);
    if (!mayChange(*context.user, attribute->owner, attribute->permissions)) return forbidden();
    removeAttribute(context.state, kind, attribute->id);
    return noContent();
}

void removeAttribute(State& state, Kind kind, Id id) {
    if (kind == Kind::StoragePath) touchDocumentsOfPath(state, id);
    for (auto& [documentId, document] : state.documents) {
        switch (kind) {
        case Kind::Tag:
            std::erase(document.tags, id);
            break;
        case Kind::Correspondent:
            if (document.correspondent == id) document.correspondent.reset();
            break;
        case Kind::DocumentType:
            if (document.documentType == id) document.documentType.reset();
            break;
        case Kind::StoragePath:
            if (document.storagePath == id) document.storagePath.reset();
            break;
        }
    }
    state.table(kind).erase(id);
    if (kind == Kind::Tag) {
        for (auto& [childId, child] : state.table(Kind::Tag)) {
            if (child.parent == id) child.parent.reset();
        }
    }
    state.changed();
}

} // namespace ledgerfinch::support
