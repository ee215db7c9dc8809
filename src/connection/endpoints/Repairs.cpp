// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Documents.h"
#include "connection/endpoints/Pages.h"
#include "records/Decoders.h"
#include "store/CoreDataHandler.h"
#include "store/RepairList.h"

#include <array>

namespace ledgerfinch {

namespace {

/// How one kind of attribute is fetched again and put in place.
struct Kind {
    std::string_view entityName;
    std::string_view path;
    std::string_view query;
    bool (*store)(ApiHandler&, std::string_view body, std::int64_t id, const ContextRef&);
};

template <class Record, std::optional<Record> (*decode)(std::string_view, const DecodeContext&),
          ObjectID (CoreDataHandler::*save)(const Record&, ContextRef, Authority)>
bool storeRecord(ApiHandler& api, std::string_view body, std::int64_t id, const ContextRef& context) {
    const auto record = decode(body, api.decodeContext());
    if (!record || record->id != id) return false;
    return (api.core().*save)(*record, context, Authority::ServerWins).isValid();
}

constexpr std::string_view kFullPermissions = "?full_perms=true";
constexpr auto kKinds = std::to_array<Kind>({
    {CD_Tag::kEntityName, "/api/tags/", kFullPermissions, storeRecord<Tag, decodeTag, &CoreDataHandler::saveTag>},
    {CD_Correspondent::kEntityName, "/api/correspondents/", kFullPermissions,
     storeRecord<Correspondent, decodeCorrespondent, &CoreDataHandler::saveCorrespondent>},
    {CD_Document_Type::kEntityName, "/api/document_types/", kFullPermissions,
     storeRecord<Document_Type, decodeDocumentType, &CoreDataHandler::saveDocumentType>},
    {CD_Storage_Path::kEntityName, "/api/storage_paths/", kFullPermissions,
     storeRecord<Storage_Path, decodeStoragePath, &CoreDataHandler::saveStoragePath>},
    {CD_Custom_Field::kEntityName,
     "/api/custom_fields/",
     {},
     storeRecord<Custom_Field, decodeCustomField, &CoreDataHandler::saveCustomField>},
    {CD_Saved_View::kEntityName, "/api/saved_views/", kFullPermissions,
     storeRecord<Saved_view, decodeSavedView, &CoreDataHandler::saveSavedView>},
    {CD_User::kEntityName, "/api/users/", {}, storeRecord<User, decodeUser, &CoreDataHandler::saveUser>},
    {CD_Group::kEntityName, "/api/groups/", {}, storeRecord<PaperlessGroup, decodeGroup, &CoreDataHandler::saveGroup>},
});

int fetchAgain(ApiHandler& api, const RepairItem& item, const FetchOptions& options) {
    if (item.kind == CD_Document::kEntityName)
        return fetchDocument(api, item.id, Authority::ServerWins, options.context, options.cancellation);
    for (const auto& kind : kKinds) {
        if (kind.entityName != item.kind) continue;
        const std::string path = std::string(kind.path) + std::to_string(item.id) + "/" + std::string(kind.query);
        const auto response = api.send(api.request("GET", path, ApiHandler::Accept::Yes), options.cancellation);
        const int result = effectiveStatus(response);
        if (result != 200) return result;
        return kind.store(api, response.body, item.id, options.context) ? 200 : api.noteUnreadable(response);
    }
    // An entry of no known kind can't be mended.
    return 404;
}

} // namespace

int runRepairs(ApiHandler& api, const FetchOptions& given) {
    const auto options = withContext(api, given);
    RepairList list(api.core());
    for (const auto& item : list.entries(RepairList::kRefused, options.context)) {
        if (const auto ended = endedByCaller(options)) return *ended;
        const int result = fetchAgain(api, item, options);
        if (result == status::kNoAnswer || result == status::kCancelled || result == 401) return result;
        // Mended, or gone. Anything else, a refusal too, leaves it in doubt.
        if (result != 200 && result != 404) continue;
        const auto removed = list.remove(item.kind, item.id, RepairList::kRefused, options.context);
        if (!removed) api.log().error("Couldn't note a repair: %{public}s", removed.error().message);
    }
    return 200;
}

} // namespace ledgerfinch
