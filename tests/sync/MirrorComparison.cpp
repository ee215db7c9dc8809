// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/MirrorComparison.h"

#include "platform/Dates.h"
#include "store/entities/Entities.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace ledgerfinch::test {
namespace {

using nlohmann::json;

class Comparison {
public:
    Comparison(ManagedObjectContext& context, HttpSession& http, const ServerAddress& server)
        : m_context(context), m_http(http), m_server(server) {}

    void compareAll();
    [[nodiscard]] std::string text() const;

private:
    void note(const std::string& line) {
        ++m_count;
        if (m_lines.size() < 12) m_lines.push_back(line);
    }
    json results(const std::string& path);

    /// Pairs the server's records of one kind with the store's objects and compares each pair.
    void compareList(const std::string& path, std::string_view entity,
                     void (Comparison::*compare)(const json&, const ManagedObject&));
    void compareGroup(const json& record, const ManagedObject& object);
    void compareUser(const json& record, const ManagedObject& object);
    void compareAttribute(const json& record, const ManagedObject& object);
    void compareCustomField(const json& record, const ManagedObject& object);
    void compareSavedView(const json& record, const ManagedObject& object);
    void compareDocument(const json& record, const ManagedObject& object);
    void compareNotes(const json& notes, const ManagedObject& object);
    void compareCustomFieldValues(const json& values, const ManagedObject& object);

    /// Every attribute that both sides have under the same name.
    void compareFields(const json& record, const ManagedObject& object, const std::set<std::string>& except = {});
    void compareField(const json& value, const ManagedObject& object, const std::string& name);
    void compareTexts(const json& texts, const ManagedObject& object, std::string_view relation);
    void compareToOne(const json& id, const ManagedObject& object, std::string_view relation);
    void compareToMany(const json& ids, const ManagedObject& object, std::string_view relation);
    void comparePermissions(const json& permissions, const ManagedObject& object, const std::string& plural);
    void expect(bool equal, const ManagedObject& object, const std::string& what, const json& delivered);

    ManagedObjectContext& m_context;
    HttpSession& m_http;
    ServerAddress m_server;
    std::map<std::int64_t, std::string> m_dataTypes;
    std::vector<std::string> m_lines;
    std::size_t m_count = 0;
};

std::int64_t idOf(const ManagedObject& object) {
    const auto* id = std::get_if<std::int64_t>(&object.value("id"));
    return id ? *id : -1;
}

std::optional<std::string> textOf(const Value& value) {
    const auto* text = std::get_if<std::string>(&value);
    return text ? std::optional(*text) : std::nullopt;
}

bool equalTime(const json& delivered, const Value& value) {
    const auto* time = std::get_if<Timestamp>(&value);
    if (delivered.is_null()) return !time;
    auto parsed = dates::parseDateTime(delivered.get<std::string>());
    if (!parsed) parsed = dates::parseDateOnly(delivered.get<std::string>());
    return time && parsed && *time == *parsed;
}

/// The value of one custom field, against what the store keeps of it.
bool equalCustomValue(const std::string& type, const json& delivered, const Value& kept, const Value& keptText) {
    const auto* blob = std::get_if<Blob>(&kept);
    if (delivered.is_null()) return !blob;
    if (!blob) return false;
    const auto value = json::parse(blob->bytes, nullptr, false);
    const auto text = textOf(keptText);
    if (type == "string") return value == delivered && text == delivered.get<std::string>();
    if (type == "url") return text == delivered.get<std::string>();
    if (type == "date") {
        const auto day = dates::parseDateOnly(delivered.get<std::string>());
        return day && text == dates::formatNumericDate(*day);
    }
    if (type == "boolean") return value == delivered && text == (delivered.get<bool>() ? "true" : "false");
    if (type == "integer" || type == "float" || type == "select")
        return value.is_number() &&
               static_cast<float>(value.get<double>()) == static_cast<float>(delivered.get<double>());
    if (type == "monetary") {
        const auto amount = delivered.get<std::string>();
        const auto digits = amount.substr(std::min(amount.size(), amount.find_first_of("0123456789.")));
        return text == digits;
    }
    if (type == "documentlink") return value == delivered;
    return false;
}

json Comparison::results(const std::string& path) {
    HttpRequest request;
    request.url = m_server.url + path;
    request.headers = {{"Authorization", "Token " + m_server.token}, {"Accept", "application/json; version=2"}};
    const auto answer = m_http.send(std::move(request));
    auto body = json::parse(answer.body, nullptr, false);
    if (answer.status != 200 || !body.is_object()) {
        note("the server answers " + path + " with " + std::to_string(answer.status));
        return json::array();
    }
    return body["results"];
}

void Comparison::compareAll() {
    compareList("/api/groups/?page_size=100000", CD_Group::kEntityName, &Comparison::compareGroup);
    compareList("/api/users/?page_size=100000", CD_User::kEntityName, &Comparison::compareUser);
    for (const auto& [path, entity] :
         std::vector<std::pair<std::string, std::string_view>>{{"tags", CD_Tag::kEntityName},
                                                               {"correspondents", CD_Correspondent::kEntityName},
                                                               {"document_types", CD_Document_Type::kEntityName},
                                                               {"storage_paths", CD_Storage_Path::kEntityName}})
        compareList("/api/" + path + "/?full_perms=true&page_size=100000", entity, &Comparison::compareAttribute);
    compareList("/api/custom_fields/?page_size=100000", CD_Custom_Field::kEntityName, &Comparison::compareCustomField);
    compareList("/api/saved_views/?page_size=100000", CD_Saved_View::kEntityName, &Comparison::compareSavedView);
    compareList("/api/documents/?full_perms=true&page_size=100000", CD_Document::kEntityName,
                &Comparison::compareDocument);
}

void Comparison::compareList(const std::string& path, std::string_view entity,
                             void (Comparison::*compare)(const json&, const ManagedObject&)) {
    FetchRequest request;
    request.entity = entity;
    auto fetched = m_context.fetch(request);
    if (!fetched) return note(std::string(entity) + " can't be read: " + fetched.error().message);
    std::map<std::int64_t, Ref<ManagedObject>> objects;
    for (const auto& object : *fetched)
        if (!objects.emplace(idOf(*object), object).second)
            note(request.entity + " " + std::to_string(idOf(*object)) + " is there twice");
    for (const json& record : results(path)) {
        const auto id = record.at("id").get<std::int64_t>();
        const auto found = objects.find(id);
        if (found == objects.end()) {
            note(request.entity + " " + std::to_string(id) + " is missing");
            continue;
        }
        (this->*compare)(record, *found->second);
        objects.erase(found);
    }
    for (const auto& [id, object] : objects)
        note(request.entity + " " + std::to_string(id) + " is not on the server");
}

void Comparison::compareGroup(const json& record, const ManagedObject& object) {
    compareFields(record, object);
    compareTexts(record["permissions"], object, "permissions");
}

void Comparison::compareUser(const json& record, const ManagedObject& object) {
    compareFields(record, object);
    compareToMany(record["groups"], object, "groups");
    compareTexts(record["user_permissions"], object, "user_permissions");
    compareTexts(record["inherited_permissions"], object, "inherited_permissions");
}

void Comparison::compareAttribute(const json& record, const ManagedObject& object) {
    // Counts and the text's colour are this program's own.
    compareFields(record, object, {"document_count", "text_color"});
    if (object.entity().name != CD_Correspondent::kEntityName) compareToOne(record["owner"], object, "owner");
    comparePermissions(record["permissions"], object, "s");
}

void Comparison::compareCustomField(const json& record, const ManagedObject& object) {
    compareFields(record, object, {"extra_data"});
    m_dataTypes[idOf(object)] = record.at("data_type").get<std::string>();
    const auto* blob = std::get_if<Blob>(&object.value("extra_data"));
    const auto kept = blob ? json::parse(blob->bytes, nullptr, false) : json();
    const auto& delivered = record["extra_data"];
    for (const auto* name : {"select_options", "default_currency"}) {
        const auto value = delivered.is_object() ? delivered.value(name, json()) : json();
        const bool empty = value.is_null() || value == json::array() || value == json::array({nullptr});
        if (!empty) expect(kept.is_object() && kept.value(name, json()) == value, object, name, value);
    }
}

void Comparison::compareSavedView(const json& record, const ManagedObject& object) {
    compareFields(record, object);
    std::multiset<std::string> delivered;
    std::multiset<std::string> kept;
    for (const auto& rule : record.at("filter_rules"))
        delivered.insert(rule.at("rule_type").dump() + " " +
                         (rule.at("value").is_null() ? "-" : rule.at("value").get<std::string>()));
    for (const auto& rule : object.toMany(*object.entity().relation("filter_rules")))
        kept.insert(std::to_string(std::get<std::int64_t>(rule->value("rule_type"))) + " " +
                    textOf(rule->value("value")).value_or("-"));
    expect(delivered == kept, object, "filter_rules", record.at("filter_rules"));
}

void Comparison::compareDocument(const json& record, const ManagedObject& object) {
    compareFields(record, object, {"content", "created"});
    const auto* created = std::get_if<Timestamp>(&object.value("created"));
    expect(created && dates::formatDateOnly(*created) == record.at("created_date").get<std::string>(), object,
           "created", record["created_date"]);
    const auto content = object.toOne(*object.entity().relation("content"));
    expect(content && textOf(content->value("content")) == record.at("content").get<std::string>(), object, "content",
           "a text");
    for (const auto* relation : {"correspondent", "document_type", "storage_path", "owner"})
        compareToOne(record.at(relation), object, relation);
    compareToMany(record.at("tags"), object, "tags");
    comparePermissions(record["permissions"], object, "");
    compareNotes(record["notes"], object);
    if (record.contains("custom_fields")) compareCustomFieldValues(record["custom_fields"], object);
}

void Comparison::compareNotes(const json& notes, const ManagedObject& object) {
    if (!notes.is_array()) return;
    std::map<std::int64_t, Ref<ManagedObject>> kept;
    for (const auto& note : object.toMany(*object.entity().relation("notes")))
        kept.emplace(idOf(*note), note);
    expect(kept.size() == notes.size(), object, "notes", notes);
    for (const auto& delivered : notes) {
        const auto found = kept.find(delivered.at("id").get<std::int64_t>());
        if (found == kept.end()) {
            expect(false, object, "notes", delivered);
            continue;
        }
        compareField(delivered.at("note"), *found->second, "note");
        compareField(delivered.at("created"), *found->second, "created");
        compareToOne(delivered.at("user"), *found->second, "user");
    }
}

void Comparison::compareCustomFieldValues(const json& values, const ManagedObject& object) {
    std::map<std::int64_t, Ref<ManagedObject>> kept;
    std::size_t count = 0;
    for (const auto& value : object.toMany(*object.entity().relation("custom_field_values"))) {
        // Of a field that was deleted on the server a value without a field is left.
        if (const auto field = value->toOne(*value->entity().relation("ofField"))) {
            kept.emplace(idOf(*field), value);
            ++count;
        }
    }
    expect(count == values.size() && kept.size() == values.size(), object, "custom_fields", values);
    for (const auto& delivered : values) {
        const auto field = delivered.at("field").get<std::int64_t>();
        const auto found = kept.find(field);
        const bool equal = found != kept.end() &&
                           equalCustomValue(m_dataTypes[field], delivered.at("value"), found->second->value("value"),
                                            found->second->value("value_as_string"));
        expect(equal, object, "custom_fields", delivered);
    }
}

void Comparison::compareFields(const json& record, const ManagedObject& object, const std::set<std::string>& except) {
    for (const auto& attribute : object.entity().attributes)
        if (record.contains(attribute.name) && !except.contains(attribute.name))
            compareField(record[attribute.name], object, attribute.name);
}

void Comparison::compareField(const json& value, const ManagedObject& object, const std::string& name) {
    const Value& kept = object.value(name);
    switch (object.entity().attributes[*object.entity().attribute(name)].type) {
    case AttributeType::Int64:
        return expect(std::get<std::int64_t>(kept) == (value.is_null() ? 0 : value.get<std::int64_t>()), object, name,
                      value);
    case AttributeType::Boolean:
        return expect(std::get<bool>(kept) == (value == true), object, name, value);
    case AttributeType::Date:
        return expect(equalTime(value, kept), object, name, value);
    default:
        return expect(value.is_null() ? !textOf(kept) : textOf(kept) == value.get<std::string>(), object, name, value);
    }
}

void Comparison::compareTexts(const json& texts, const ManagedObject& object, std::string_view relation) {
    if (!texts.is_array()) return;
    std::multiset<std::string> kept;
    for (const auto& member : object.toMany(*object.entity().relation(relation)))
        kept.insert(textOf(member->value("stringRepresentation")).value_or(""));
    const auto delivered = texts.get<std::vector<std::string>>();
    expect(kept == std::multiset<std::string>(delivered.begin(), delivered.end()), object, std::string(relation),
           texts);
}

void Comparison::compareToOne(const json& id, const ManagedObject& object, std::string_view relation) {
    const auto target = object.toOne(*object.entity().relation(relation));
    expect(id.is_null() ? !target : target && idOf(*target) == id.get<std::int64_t>(), object, std::string(relation),
           id);
}

void Comparison::compareToMany(const json& ids, const ManagedObject& object, std::string_view relation) {
    if (!ids.is_array()) return;
    std::set<std::int64_t> kept;
    for (const auto& member : object.toMany(*object.entity().relation(relation)))
        kept.insert(idOf(*member));
    expect(kept == ids.get<std::set<std::int64_t>>(), object, std::string(relation), ids);
}

void Comparison::comparePermissions(const json& permissions, const ManagedObject& object, const std::string& plural) {
    if (!permissions.is_object()) return;
    compareToMany(permissions["view"]["users"], object, "viewable_by_user" + plural);
    compareToMany(permissions["view"]["groups"], object, "viewable_by_group" + plural);
    compareToMany(permissions["change"]["users"], object, "editable_by_user" + plural);
    compareToMany(permissions["change"]["groups"], object, "editable_by_group" + plural);
}

void Comparison::expect(bool equal, const ManagedObject& object, const std::string& what, const json& delivered) {
    if (!equal)
        note(object.entity().name + " " + std::to_string(idOf(object)) + ": " + what + " is not " + delivered.dump());
}

std::string Comparison::text() const {
    std::string text;
    for (const auto& line : m_lines)
        text += line + "\n";
    if (m_count > m_lines.size()) text += "and " + std::to_string(m_count - m_lines.size()) + " more\n";
    return text;
}

} // namespace

std::string mirrorDifferences(PersistentContainer& container, HttpSession& http, const ServerAddress& server) {
    const auto context = container.newBackgroundContext();
    std::string text;
    context->performAndWait([&] {
        Comparison comparison(*context, http, server);
        comparison.compareAll();
        text = comparison.text();
    });
    return text;
}

} // namespace ledgerfinch::test
