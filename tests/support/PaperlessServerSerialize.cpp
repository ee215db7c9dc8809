// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerSerialize.h"

#include "support/PaperlessServerFiles.h"
#include "support/PaperlessServerPermissions.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t truncatedLength = 550;

/// The palette of the first API version, which numbered its colours.
constexpr std::array<std::string_view, 13> oldColors{"#a6cee3", "#1f78b4", "#b2df8a", "#33a02c", "#fb9a99",
                                                     "#e31a1c", "#fdbf6f", "#ff7f00", "#cab2d6", "#6a3d9a",
                                                     "#b15928", "#000000", "#cccccc"};

std::int64_t oldColorNumber(std::string_view color) {
    auto found = std::find(oldColors.begin(), oldColors.end(), color);
    return found == oldColors.end() ? 1 : std::int64_t(found - oldColors.begin()) + 1;
}

void appendPermissions(std::string& to, const ObjectPermissions& permissions) {
    to += "{\"view\":{\"users\":";
    appendIds(to, permissions.viewUsers);
    to += ",\"groups\":";
    appendIds(to, permissions.viewGroups);
    to += "},\"change\":{\"users\":";
    appendIds(to, permissions.changeUsers);
    to += ",\"groups\":";
    appendIds(to, permissions.changeGroups);
    to += "}}";
}

std::vector<Id> tagsByName(const State& state, std::vector<Id> tags) {
    const auto& table = state.table(Kind::Tag);
    auto nameOf = [&](Id id) -> const std::string& {
        static const std::string none;
        auto found = table.find(id);
        return found == table.end() ? none : found->second.name;
    };
    std::sort(tags.begin(), tags.end(), [&](Id left, Id right) { return nameOf(left) < nameOf(right); });
    return tags;
}

Json noteAuthor(const State& state, const Note& note, const ApiShape& api) {
    if (!api.hasNoteAuthors) return *note.user;
    if (!note.user) return nullptr;
    const auto& user = state.users.at(*note.user);
    return Json{
        {"id", user.id}, {"username", user.username}, {"first_name", user.firstName}, {"last_name", user.lastName}};
}

/// Writes the keys of one object, skipping those that weren't asked for.
class FieldWriter {
public:
    FieldWriter(std::string& to, const std::vector<std::string>& fields) : m_to(to), m_fields(fields) { m_to += '{'; }

    /// True when the caller shall append the value now.
    bool key(std::string_view name) {
        if (!m_fields.empty() && std::find(m_fields.begin(), m_fields.end(), name) == m_fields.end()) return false;
        if (!m_first) m_to += ',';
        m_first = false;
        m_to += '"';
        m_to += name;
        m_to += "\":";
        return true;
    }
    void id(std::string_view name, const OptionalId& value) {
        if (key(name)) appendId(m_to, value);
    }
    void text(std::string_view name, std::string_view value) {
        if (key(name)) appendQuoted(m_to, value);
    }
    void boolean(std::string_view name, bool value) {
        if (key(name)) m_to += value ? "true" : "false";
    }

private:
    std::string& m_to;
    const std::vector<std::string>& m_fields;
    bool m_first = true;
};

void appendOptionalText(FieldWriter& writer, std::string& to, std::string_view key,
                        const std::optional<std::string>& text) {
    if (!writer.key(key)) return;
    if (text) {
        appendQuoted(to, *text);
    } else {
        to += "null";
    }
}

Micros timeOf(const Document& document) {
    return document.createdTime.value_or(parseTime(document.created).value_or(0));
}

bool isShared(const Document& document, const User& viewer) {
    return document.owner == viewer.id &&
           (!document.permissions.viewUsers.empty() || !document.permissions.viewGroups.empty());
}

/// Other documents with the same file, those in the trash included.
Json duplicatesJson(const State& state, const Document& document) {
    auto list = Json::array();
    for (const auto& [id, other] : state.documents) {
        if (id == document.id || document.checksum.empty() || other.checksum != document.checksum) continue;
        list.push_back(duplicateJson(other));
    }
    return list;
}

/// Every document here has the one version that it came with.
Json versionsJson(const Document& document) {
    return Json::array({Json{{"id", document.id},
                             {"added", utcTimeText(document.added)},
                             {"version_label", nullptr},
                             {"checksum", checksumOf(document, true)},
                             {"is_root", true}}});
}

/// Index of the option with this id, or -1.
std::int64_t optionIndex(const CustomField& field, const Json& value) {
    if (!value.is_string()) return -1;
    const auto& wanted = value.get_ref<const std::string&>();
    auto found = std::find_if(field.options.begin(), field.options.end(),
                              [&](const SelectOption& option) { return option.id == wanted; });
    return found == field.options.end() ? -1 : found - field.options.begin();
}

} // namespace

Json orNull(const OptionalId& id) {
    return id ? Json(*id) : Json(nullptr);
}

DocumentShape shapeOf(const Context& context) {
    DocumentShape shape;
    shape.viewer = context.user;
    shape.api = context.api;
    shape.fullPermissions = context.request.flag("full_perms");
    shape.truncated = context.request.flag("truncate_content");
    if (auto fields = context.request.argument("fields")) {
        std::string_view rest = *fields;
        while (!rest.empty()) {
            auto end = std::min(rest.find(','), rest.size());
            shape.fields.emplace_back(rest.substr(0, end));
            rest.remove_prefix(std::min(end + 1, rest.size()));
        }
    }
    return shape;
}

std::string documentLabel(const State& state, const Document& document) {
    auto label = document.created;
    if (document.correspondent) label += " " + state.table(Kind::Correspondent).at(*document.correspondent).name;
    if (!document.title.empty()) label += " " + document.title;
    return label;
}

std::string publicFileName(const State& state, const Document& document, std::string_view extension) {
    auto name = documentLabel(state, document) + std::string(extension);
    for (auto& letter : name) {
        if (std::string_view("/\\:*?\"<>|\n\r\t").find(letter) != std::string_view::npos) letter = '-';
    }
    return name;
}

Json customFieldValueJson(const State& state, const CustomFieldValue& value, const ApiShape& api) {
    auto field = state.customFields.find(value.field);
    if (field == state.customFields.end() || field->second.dataType != "select") return value.value;
    auto index = optionIndex(field->second, value.value);
    if (index < 0) return api.hasOptionIds && state.leavesRemovedOptions ? value.value : Json();
    return api.hasOptionIds ? value.value : Json(index);
}

std::optional<Json> notesJson(const State& state, const Document& document, const ApiShape& api) {
    auto list = Json::array();
    for (const auto& note : document.notes) {
        if (!note.user && !api.hasNoteAuthors) return std::nullopt;
        list.push_back(Json{{"id", note.id},
                            {"note", note.text},
                            {"created", localTimeText(note.created)},
                            {"user", noteAuthor(state, note, api)}});
    }
    return list;
}

bool appendDocument(std::string& to, const State& state, const Document& document, const DocumentShape& shape,
                    std::string_view extra) {
    FieldWriter writer(to, shape.fields);
    writer.id("id", document.id);
    writer.id("correspondent", document.correspondent);
    writer.id("document_type", document.documentType);
    writer.id("storage_path", document.storagePath);
    writer.text("title", document.title);
    if (shape.truncated) {
        writer.text("content", textPrefix(document.content, truncatedLength));
    } else {
        writer.text("content", document.content);
    }
    if (writer.key("tags")) appendIds(to, tagsByName(state, document.tags));
    if (shape.api.hasPlainDates) {
        writer.text("created", document.created);
    } else if (shape.api.keepsTimeOfDay && document.createdTime) {
        writer.text("created", localTimeText(*document.createdTime));
    } else {
        writer.text("created", localMidnightText(document.created));
    }
    writer.text("created_date", document.created);
    writer.text("modified", localTimeText(document.modified));
    writer.text("added", localTimeText(document.added));
    appendOptionalText(writer, to, "deleted_at",
                       document.deletedAt ? std::optional(localTimeText(*document.deletedAt)) : std::nullopt);
    writer.id("archive_serial_number", document.archiveSerialNumber);
    appendOptionalText(writer, to, "original_file_name", document.originalFileName);
    appendOptionalText(writer, to, "archived_file_name",
                       document.hasArchive ? std::optional(publicFileName(state, document, ".pdf")) : std::nullopt);
    if (shape.api.hasVersions && writer.key("duplicate_documents"))
        to += textOf(shape.withDuplicates ? duplicatesJson(state, document) : Json::array());
    writer.id("owner", document.owner);
    if (shape.fullPermissions) {
        if (writer.key("permissions")) appendPermissions(to, document.permissions);
    } else {
        writer.boolean("user_can_change", shape.viewer == nullptr
                                              ? !document.owner
                                              : mayChange(*shape.viewer, document.owner, document.permissions));
        writer.boolean("is_shared_by_requester", shape.viewer != nullptr && isShared(document, *shape.viewer));
    }
    if (writer.key("notes")) {
        auto notes = shape.withoutNotes ? Json::array() : notesJson(state, document, shape.api);
        if (!notes) return false;
        to += textOf(*notes);
    }
    if (writer.key("custom_fields")) {
        to += '[';
        for (std::size_t index = 0; index < document.customFields.size(); ++index) {
            const auto& value = document.customFields[index];
            to += index > 0 ? ",{\"value\":" : "{\"value\":";
            to += textOf(customFieldValueJson(state, value, shape.api));
            to += ",\"field\":";
            appendNumber(to, value.field);
            to += '}';
        }
        to += ']';
    }
    writer.id("page_count", document.pageCount);
    writer.text("mime_type", document.mimeType);
    if (shape.api.hasVersions) {
        writer.id("root_document", std::nullopt);
        if (writer.key("versions")) to += textOf(versionsJson(document));
    }
    to += extra;
    to += '}';
    return true;
}

Json permissionsJson(const ObjectPermissions& permissions) {
    return Json{{"view", {{"users", permissions.viewUsers}, {"groups", permissions.viewGroups}}},
                {"change", {{"users", permissions.changeUsers}, {"groups", permissions.changeGroups}}}};
}

Json attributeJson(const State& state, Kind kind, const Attribute& attribute, const AttributeShape& shape,
                   const DocumentCounts* counts) {
    Json json{{"id", attribute.id}, {"slug", slugOf(attribute.name)}, {"name", attribute.name}};
    if (kind == Kind::StoragePath) json["path"] = attribute.path;
    if (kind == Kind::Tag) {
        if (shape.api.hasNumberedColors) {
            json["colour"] = oldColorNumber(attribute.color);
        } else {
            json["color"] = attribute.color;
            json["text_color"] = textColorOn(attribute.color);
        }
    }
    json["match"] = attribute.match;
    json["matching_algorithm"] = attribute.matchingAlgorithm;
    json["is_insensitive"] = attribute.isInsensitive;
    if (kind == Kind::Tag) json["is_inbox_tag"] = attribute.isInboxTag;
    if (shape.documentCount) json["document_count"] = *shape.documentCount;
    if (kind == Kind::Correspondent && shape.withLastCorrespondence) {
        json["last_correspondence"] = nullptr;
        const Document* last = nullptr;
        for (const auto& [id, document] : state.documents) {
            if (document.deletedAt || document.correspondent != attribute.id) continue;
            if (last == nullptr || timeOf(*last) < timeOf(document)) last = &document;
        }
        if (last != nullptr)
            json["last_correspondence"] = shape.api.keepsTimeOfDay ? localTimeText(timeOf(*last)) : last->created;
    }
    json["owner"] = orNull(attribute.owner);
    if (shape.fullPermissions) {
        json["permissions"] = permissionsJson(attribute.permissions);
    } else {
        json["user_can_change"] = shape.viewer == nullptr
                                      ? !attribute.owner
                                      : mayChange(*shape.viewer, attribute.owner, attribute.permissions);
    }
    if (kind != Kind::Tag || !shape.api.hasNestedTags) return json;
    json["parent"] = orNull(attribute.parent);
    auto children = Json::array();
    for (const auto& [id, child] : state.table(Kind::Tag)) {
        if (child.parent != attribute.id) continue;
        auto childShape = shape;
        if (shape.documentCount && counts != nullptr) {
            const auto& byTag = counts->byAttribute[std::size_t(Kind::Tag)];
            auto found = byTag.find(id);
            childShape.documentCount = found == byTag.end() ? 0 : found->second;
        }
        children.push_back(attributeJson(state, kind, child, childShape, counts));
    }
    json["children"] = std::move(children);
    return json;
}

Json customFieldJson(const CustomField& field, const ApiShape& api, std::optional<std::int64_t> documentCount) {
    Json json{{"id", field.id}, {"name", field.name}, {"data_type", field.dataType}};
    if (field.dataType == "select") {
        auto options = Json::array();
        for (const auto& option : field.options) {
            if (api.hasOptionIds) {
                options.push_back(option.isIdFirst ? Json{{"id", option.id}, {"label", option.label}}
                                                   : Json{{"label", option.label}, {"id", option.id}});
            } else {
                options.push_back(option.label);
            }
        }
        json["extra_data"] = Json{{"select_options", std::move(options)}};
    } else {
        json["extra_data"] = field.extraData;
    }
    if (documentCount) json["document_count"] = *documentCount;
    return json;
}

Json duplicateJson(const Document& document) {
    return Json{{"id", document.id},
                {"title", document.title},
                {"deleted_at", document.deletedAt ? Json(utcTimeText(*document.deletedAt)) : Json(nullptr)}};
}

DocumentCounts countDocuments(const State& state, const User& viewer) {
    DocumentCounts counts;
    auto add = [&](Kind kind, const OptionalId& id) {
        if (id) ++counts.byAttribute[std::size_t(kind)][*id];
    };
    for (const auto& [id, document] : state.documents) {
        if (document.deletedAt || !maySee(viewer, document.owner, document.permissions)) continue;
        for (auto tag : document.tags)
            add(Kind::Tag, tag);
        add(Kind::Correspondent, document.correspondent);
        add(Kind::DocumentType, document.documentType);
        add(Kind::StoragePath, document.storagePath);
        for (const auto& value : document.customFields)
            ++counts.byCustomField[value.field];
    }
    return counts;
}

} // namespace ledgerfinch::support
