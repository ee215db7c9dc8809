// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Removals.h"

#include "connection/Instances.h"
#include "connection/endpoints/Pages.h"
#include "connection/endpoints/Refusals.h"
#include "store/CoreDataHandler.h"

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch {

namespace {

struct Removal {
    std::string_view path;
    std::string_view entityName;
    std::string_view logFormat; ///< empty: not logged
};

using Bearers = std::set<std::int64_t>;

template <class T>
Bearers documentsOf(const ContextRef& context, std::int64_t id) {
    Bearers bearers;
    context->performAndWait([&] {
        const auto object = context->firstWithID<T>(id);
        if (!object) return;
        for (const auto& document : object->ofDocument())
            bearers.insert(document->id());
    });
    return bearers;
}

/// The store of the handler's server, also when that isn't the active one any more.
std::shared_ptr<PersistentContainer> storeOf(const ApiHandler& api) {
    const auto connected = ConnectedInstances::load(*api.services().defaults);
    if (const auto* entry = connected.find(api.Server()))
        if (auto store = api.core().containerFor(entry->second.store)) return std::move(store).value();
    return api.core().persistenceContainer();
}

int remove(ApiHandler& api, const Removal& removal, std::int64_t id,
           const std::function<Bearers(const ContextRef&)>& bearersOf = {}) {
    const auto store = storeOf(api);
    // Looked up first: once the caller has removed the local record nobody knows them any more.
    std::vector<PendingRepairs::Record> records{{std::string(removal.entityName), id}};
    if (bearersOf)
        for (const auto bearer : bearersOf(store->newBackgroundContext()))
            records.push_back({std::string(CD_Document::kEntityName), bearer});
    PendingRepairs repairs(api, store, std::move(records));
    const auto response =
        api.send(api.request("DELETE", std::string(removal.path) + std::to_string(id) + "/", ApiHandler::Accept::No));
    const int result = effectiveStatus(response);
    if (status::isSuccess(result)) {
        repairs.settle();
        return result;
    }
    if (!removal.logFormat.empty()) logFailure(api, removal.logFormat, response);
    // What is gone already needs no repair.
    if (result == 404)
        repairs.settle();
    else
        repairs.confirm();
    return result;
}

} // namespace

int deleteTag(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/tags/", CD_Tag::kEntityName, {}}, id,
                  [id](const ContextRef& context) { return documentsOf<CD_Tag>(context, id); });
}

int deleteCorrespondent(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/correspondents/", CD_Correspondent::kEntityName, {}}, id,
                  [id](const ContextRef& context) { return documentsOf<CD_Correspondent>(context, id); });
}

int deleteStoragePath(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/storage_paths/", CD_Storage_Path::kEntityName, "Error deleting storage path %{public}s"},
                  id, [id](const ContextRef& context) { return documentsOf<CD_Storage_Path>(context, id); });
}

int deleteCustomField(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/custom_fields/", CD_Custom_Field::kEntityName, {}}, id,
                  [id](const ContextRef& context) { return documentsOf<CD_Custom_Field>(context, id); });
}

int deleteSavedView(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/saved_views/", CD_Saved_View::kEntityName, "Error deleting saved view %{public}s"}, id);
}

int deleteDocumentType(ApiHandler& api, std::int64_t id) {
    return remove(api,
                  {"/api/document_types/", CD_Document_Type::kEntityName, "Error deleting document type %{public}s"},
                  id, [id](const ContextRef& context) { return documentsOf<CD_Document_Type>(context, id); });
}

int deleteDocument(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/documents/", CD_Document::kEntityName, {}}, id);
}

int deleteUser(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/users/", CD_User::kEntityName, "Error deleting user %{public}s"}, id);
}

int deleteGroup(ApiHandler& api, std::int64_t id) {
    return remove(api, {"/api/groups/", CD_Group::kEntityName, "Error deleting group %{public}s"}, id);
}

} // namespace ledgerfinch
