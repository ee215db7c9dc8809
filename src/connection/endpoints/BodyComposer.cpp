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

std::vector<std::int64_t> mergedIds(const PermissionEdit& edit, const std::vector<std::int64_t>& deliveredIds) {
    auto ids = edit.now;
    for (const auto id : deliveredIds) {
        const bool wasHere = std::find(edit.linked.begin(), edit.linked.end(), id) != edit.linked.end();
        const bool isHere = std::find(ids.begin(), ids.end(), id) != ids.end();
        if (!wasHere && !isHere) ids.push_back(id);
    }
    return ids;
}

PermissionEdit BodyComposer::editOf(std::string_view relation) const {
    PermissionEdit edit;
    edit.now = relatedIds(m_object, relation);
    withSavedObject(m_object, [&](const ManagedObject& saved) { edit.linked = relatedIds(saved, relation); });
    return edit;
}

std::vector<std::int64_t> BodyComposer::idsNow(std::string_view relation,
                                               const std::vector<std::int64_t>& deliveredIds) const {
    return mergedIds(editOf(relation), deliveredIds);
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
    const auto note = [this](std::string_view side, std::string_view kind, std::string_view relation) {
        if (!changed(relation)) return;
        auto edit = editOf(relation);
        edit.side = side;
        edit.kind = kind;
        m_permissionEdits.push_back(std::move(edit));
    };
    note("view", "users", relations.viewUsers);
    note("view", "groups", relations.viewGroups);
    note("change", "users", relations.changeUsers);
    note("change", "groups", relations.changeGroups);
    const auto edited = editedPermissions(permissions, m_permissionEdits);
    if (!edited) return;
    m_permissionEdits.clear();
    add("set_permissions", edited, "permissions");
}

std::optional<std::string> editedPermissions(const std::optional<JsonObject>& delivered,
                                             const std::vector<PermissionEdit>& edits) {
    if (!delivered) return std::nullopt;
    JsonWriter writer;
    writer.beginObject();
    for (const auto* side : {"view", "change"}) {
        const auto lists = delivered->object(side);
        if (!lists) return std::nullopt;
        writer.key(side).beginObject();
        for (const auto* kind : {"users", "groups"}) {
            const auto ids = lists->integers(kind);
            if (!ids) return std::nullopt;
            const auto edit = std::find_if(edits.begin(), edits.end(), [&](const PermissionEdit& each) {
                return each.side == side && each.kind == kind;
            });
            writer.rawMember(kind, edit != edits.end() ? listFragment(mergedIds(*edit, *ids))
                                                       : std::string(*lists->raw(kind)));
        }
        writer.endObject();
    }
    return writer.endObject().take();
}

JsonObject BodyComposer::deliveredAfterwards() const {
    JsonObject result = m_delivered;
    for (const auto& [name, fragment] : m_accepted.members())
        result.setRaw(name, fragment);
    return result;
}

} // namespace ledgerfinch
