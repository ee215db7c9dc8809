// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/Instances.h"
#include "connection/endpoints/Pages.h"
#include "connection/endpoints/Refusals.h"
#include "connection/endpoints/SelectOptions.h"
#include "connection/endpoints/Writes.h"
#include "objectstore/PersistentContainer.h"
#include "records/Decoders.h"
#include "records/JsonReader.h"
#include "store/entities/Entities.h"

namespace ledgerfinch {

namespace {

template <class Record>
std::string rawOf(const std::optional<Record>& record) {
    return record ? record->raw : std::string();
}

/// What the answer of an update delivers; empty when it can't be read.
std::string deliveredByAnswer(const ApiHandler& api, std::string_view entityName, std::string_view body) {
    const auto context = api.decodeContext();
    if (entityName == CD_Document::kEntityName) return rawOf(decodeDocument(body, context));
    if (entityName == CD_Tag::kEntityName) return rawOf(decodeTag(body, context));
    if (entityName == CD_Correspondent::kEntityName) return rawOf(decodeCorrespondent(body, context));
    if (entityName == CD_Document_Type::kEntityName) return rawOf(decodeDocumentType(body, context));
    if (entityName == CD_Storage_Path::kEntityName) return rawOf(decodeStoragePath(body, context));
    if (entityName == CD_Custom_Field::kEntityName) return rawOf(decodeCustomField(body, context));
    if (entityName == CD_Saved_View::kEntityName) return rawOf(decodeSavedView(body, context));
    if (entityName == CD_User::kEntityName) return rawOf(decodeUser(body, context));
    if (entityName == CD_Group::kEntityName) return rawOf(decodeGroup(body, context));
    return {};
}

std::string overlaid(const std::string& below, const std::string& above) {
    auto result = JsonObject::parse(below).value_or(JsonObject());
    const auto members = JsonObject::parse(above);
    if (members)
        for (const auto& [name, fragment] : members->members())
            result.setRaw(name, fragment);
    return result.toText();
}

/// Whether the handler's server is the one whose records the store holds.
bool isStoreOf(const ApiHandler& api, const PersistentContainer& store) {
    const auto name = store.file().stem().string();
    const auto connected = ConnectedInstances::load(*api.services().defaults);
    if (const auto* entry = connected.find(api.Server())) return entry->second.store == name;
    return !connected.storeNames().contains(name);
}

/// Why it may not be sent; absent when it may.
std::optional<std::string> objection(const ApiHandler& api, const PreparedWrite& write) {
    if (write.neverDelivered) return "no server has it";
    if (write.store && !isStoreOf(api, *write.store)) return "it belongs to another server";
    return std::nullopt;
}

/// Body and record of what the server then holds, where the permissions weren't all delivered: the others are asked for
/// now. False when the server doesn't tell them.
bool completePermissions(ApiHandler& api, const PreparedWrite& write, std::string& body, std::string& delivered) {
    const auto response = api.send(api.request("GET", write.path + "?full_perms=true", ApiHandler::Accept::Yes));
    const auto record = effectiveStatus(response) == 200 ? JsonObject::parse(response.body) : std::nullopt;
    if (!record || record->integer("id") != write.id) return false;
    const auto permissions = editedPermissions(record->object("permissions"), write.permissionEdits);
    if (!permissions) return false;
    body = overlaid(body, R"({"set_permissions":)" + *permissions + "}");
    delivered = overlaid(delivered, R"({"permissions":)" + *permissions + "}");
    return true;
}

template <class T>
int updateObject(ApiHandler& api, const std::shared_ptr<T>& object, const OptionRenames& renames = {}) {
    auto* context = object->context();
    if (context == nullptr) return status::kNotSent;
    PreparedWrite write;
    context->performAndWait([&] { write = prepareUpdate(*object); });
    write.renamedOptions = renames;
    const auto answer = send(api, write);
    if (answer.accepted()) context->performAndWait([&] { keepDelivered(*object, answer.delivered); });
    return answer.status;
}

} // namespace

WriteAnswer send(ApiHandler& api, const PreparedWrite& write) {
    if (const auto reason = objection(api, write)) {
        api.log().error(write.logFormat, "not sent: " + *reason);
        return {status::kNotSent, {}, {}};
    }
    PendingRepairs repairs(api, write.store, {{write.entityName, write.id}});
    auto request = api.request("PATCH", write.path, ApiHandler::Accept::Yes);
    std::string body = write.body;
    std::string delivered = write.delivered;
    if (!write.permissionEdits.empty() && !completePermissions(api, write, body, delivered)) {
        api.log().error(write.logFormat, "not sent: its permissions could not be learnt");
        return {status::kNotSent, {}, {}};
    }
    bool speaksOptionIds = false;
    if (write.entityName == CD_Custom_Field::kEntityName && isSelectField(body)) {
        auto translated = withOptionIds(api, write.path, body, write.changesExtraData, write.renamedOptions);
        if (!translated.mayBeSent) {
            api.log().error(write.logFormat, "the ids of its options could not be learnt");
            return {translated.status, {}, {}};
        }
        speaksOptionIds = translated.version.has_value();
        if (speaksOptionIds) setHeader(request.headers, "Accept", ServerDialect::acceptHeader(*translated.version));
        body = std::move(translated.body);
    }
    ApiHandler::setJsonBody(request, std::move(body));
    auto response = api.send(std::move(request));
    WriteAnswer answer{effectiveStatus(response), std::move(response.body), {}};
    if (!answer.accepted()) {
        logFailure(api, write.logFormat, response);
        repairs.confirm();
        return answer;
    }
    repairs.settle();
    if (write.entityName == CD_Document::kEntityName) api.storeServerVersion(response);
    // With option ids the answer isn't in the form that is kept.
    answer.delivered =
        speaksOptionIds ? delivered : overlaid(delivered, deliveredByAnswer(api, write.entityName, answer.body));
    return answer;
}

void keepDelivered(ManagedObject& object, const std::string& delivered) {
    const auto shadow = object.entity().attribute("server_shadow");
    if (shadow && !delivered.empty()) object.setValue(*shadow, Blob{delivered});
}

int updateDocument(ApiHandler& api, const std::shared_ptr<CD_Document>& document) {
    return updateObject(api, document);
}
int updateTag(ApiHandler& api, const std::shared_ptr<CD_Tag>& tag) {
    return updateObject(api, tag);
}
int updateCorrespondent(ApiHandler& api, const std::shared_ptr<CD_Correspondent>& correspondent) {
    return updateObject(api, correspondent);
}
int updateDocumentType(ApiHandler& api, const std::shared_ptr<CD_Document_Type>& type) {
    return updateObject(api, type);
}
int updateStoragePath(ApiHandler& api, const std::shared_ptr<CD_Storage_Path>& path) {
    return updateObject(api, path);
}
int updateCustomField(ApiHandler& api, const std::shared_ptr<CD_Custom_Field>& field) {
    return updateObject(api, field);
}
int updateCustomField(ApiHandler& api, const std::shared_ptr<CD_Custom_Field>& field,
                      const OptionRenames& renamedOptions) {
    return updateObject(api, field, renamedOptions);
}
int updateSavedView(ApiHandler& api, const std::shared_ptr<CD_Saved_View>& view) {
    return updateObject(api, view);
}
int updateUser(ApiHandler& api, const std::shared_ptr<CD_User>& user) {
    return updateObject(api, user);
}
int updateGroup(ApiHandler& api, const std::shared_ptr<CD_Group>& group) {
    return updateObject(api, group);
}

} // namespace ledgerfinch
