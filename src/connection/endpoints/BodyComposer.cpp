// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/BodyComposer.h"

#include "objectstore/PersistentContainer.h"
#include "records/JsonWriter.h"

#include <algorithm>

namespace ledgerfinch {

namespace {

std::string fragmentOf(const Value& value) {
    JsonWriter writer;
    if (const auto* number = std::get_if<std::int64_t>(&value))
        writer.value(*number);
    else if (const auto* flag = std::get_if<bool>(&value))
        writer.value(*flag);
    else if (const auto* text = std::get_if<std::string>(&value))
        writer.value(*text);
    else
        writer.null();
    return writer.take();
}

template <class T>
std::string listFragment(const std::vector<T>& list) {
    JsonWriter writer;
    writer.value(list);
    return writer.take();
}

std::int64_t idOf(const ManagedObject& object) {
    const auto* id = std::get_if<std::int64_t>(&object.value("id"));
    return id != nullptr ? *id : 0;
}

std::vector<std::int64_t> deliveredList(const std::optional<JsonObject>& dictionary, std::string_view name) {
    return dictionary ? dictionary->integers(name).value_or(std::vector<std::int64_t>()) : std::vector<std::int64_t>();
}

} // namespace

std::vector<std::int64_t> relatedIds(const ManagedObject& object, std::string_view relation) {
    std::vector<std::int64_t> ids;
    const auto index = object.entity().relation(relation);
    if (!index) return ids;
    for (const auto& member : object.toMany(*index))
        ids.push_back(idOf(*member));
    return ids;
}

void withSavedObject(const ManagedObject& object, const std::function<void(const ManagedObject&)>& read) {
    if (object.context() == nullptr || object.isInserted()) return;
    const auto context = object.context()->container().newBackgroundContext();
    context->performAndWait([&] {
        if (const auto saved = context->existingObject(object.objectID())) read(*saved);
    });
}

std::optional<std::string> BodyComposer::delivered(std::string_view name) const {
    const auto fragment = m_delivered.raw(name);
    return fragment ? std::optional<std::string>(*fragment) : std::nullopt;
}

void BodyComposer::add(std::string_view key, const std::optional<std::string>& fragment,
                       std::string_view deliveredName) {
    if (!fragment) return;
    m_body.setRaw(key, *fragment);
    m_accepted.setRaw(deliveredName, *fragment);
}

void BodyComposer::add(std::string_view key, bool isChanged, const std::function<std::string()>& current) {
    add(key, isChanged ? std::optional(current()) : delivered(key), key);
}

void BodyComposer::addAttribute(std::string_view key) {
    add(key, changed(key), [&] { return fragmentOf(m_object.value(key)); });
}

void BodyComposer::addToOne(std::string_view key) {
    add(key, changed(key), [&] {
        const auto index = m_object.entity().relation(key);
        const auto target = index ? m_object.toOne(*index) : nullptr;
        return target ? std::to_string(idOf(*target)) : std::string("null");
    });
}

std::vector<std::int64_t> BodyComposer::idsNow(std::string_view relation,
                                               const std::vector<std::int64_t>& deliveredIds) const {
    auto ids = relatedIds(m_object, relation);
    std::vector<std::int64_t> linked;
    withSavedObject(m_object, [&](const ManagedObject& saved) { linked = relatedIds(saved, relation); });
    for (const auto id : deliveredIds) {
        const bool wasHere = std::find(linked.begin(), linked.end(), id) != linked.end();
        const bool isHere = std::find(ids.begin(), ids.end(), id) != ids.end();
        if (!wasHere && !isHere) ids.push_back(id);
    }
    return ids;
}

void BodyComposer::addIds(std::string_view key) {
    add(key, changed(key), [&] {
        const auto fragment = delivered(key);
        return listFragment(idsNow(key, fragment ? json::integers(*fragment).value_or(std::vector<std::int64_t>())
                                                 : std::vector<std::int64_t>()));
    });
}

void BodyComposer::addPermissionTexts(std::string_view key) {
    add(key, changed(key), [&] {
        std::vector<std::string> texts;
        const auto index = m_object.entity().relation(key);
        if (!index) return listFragment(texts);
        for (const auto& permission : m_object.toMany(*index))
            if (const auto* text = std::get_if<std::string>(&permission->value("stringRepresentation")))
                texts.push_back(*text);
        return listFragment(texts);
    });
}

void BodyComposer::addPermissions(const PermissionRelations& relations) {
    const auto permissions = m_delivered.object("permissions");
    const bool untouched = !changed(relations.viewUsers) && !changed(relations.viewGroups) &&
                           !changed(relations.changeUsers) && !changed(relations.changeGroups);
    if (untouched) {
        if (permissions) add("set_permissions", delivered("permissions"), "permissions");
        return;
    }
    // The server takes a missing list for an empty one, so all four go along.
    const auto list = [&](const std::optional<JsonObject>& dictionary, std::string_view name,
                          std::string_view relation) {
        const auto ids = deliveredList(dictionary, name);
        if (changed(relation) || !dictionary || !dictionary->has(name)) return listFragment(idsNow(relation, ids));
        return std::string(*dictionary->raw(name));
    };
    const auto view = permissions ? permissions->object("view") : std::nullopt;
    const auto change = permissions ? permissions->object("change") : std::nullopt;
    JsonWriter writer;
    writer.beginObject().key("view").beginObject();
    writer.rawMember("users", list(view, "users", relations.viewUsers));
    writer.rawMember("groups", list(view, "groups", relations.viewGroups)).endObject();
    writer.key("change").beginObject();
    writer.rawMember("users", list(change, "users", relations.changeUsers));
    writer.rawMember("groups", list(change, "groups", relations.changeGroups)).endObject();
    add("set_permissions", writer.endObject().take(), "permissions");
}

JsonObject BodyComposer::deliveredAfterwards() const {
    JsonObject result = m_delivered;
    for (const auto& [name, fragment] : m_accepted.members())
        result.setRaw(name, fragment);
    return result;
}

} // namespace ledgerfinch
