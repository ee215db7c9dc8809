// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/MergeSupport.h"

#include "platform/Dates.h"
#include "records/JsonReader.h"

#include <limits>
#include <random>

namespace ledgerfinch::merge {

Access resolveAccess(Finder& finder, const std::optional<Document_Permissions>& permissions) {
    Access access;
    if (!permissions) return access;
    if (permissions->view) {
        access.viewUsers = resolve<CD_User>(finder, permissions->view->users);
        access.viewGroups = resolve<CD_Group>(finder, permissions->view->groups);
    }
    if (permissions->change) {
        access.changeUsers = resolve<CD_User>(finder, permissions->change->users);
        access.changeGroups = resolve<CD_Group>(finder, permissions->change->groups);
    }
    return access;
}

bool deliveredAsNull(const std::string& raw, std::string_view member) {
    if (raw.empty()) return true;
    const auto delivered = JsonObject::parse(raw);
    return delivered && delivered->isNull(member);
}

std::optional<Timestamp> parseServerDate(std::string_view text) {
    if (const auto moment = dates::parseDateTime(text)) return moment;
    return dates::parseDateOnly(text);
}

bool endsTheList(const Error& error) {
    return error.code == static_cast<int>(StoreErrorCode::Full) ||
           error.code == static_cast<int>(StoreErrorCode::ReadOnly);
}

std::vector<Ref<CD_Document>> deliveredDocuments(Finder& finder, std::int64_t id) {
    std::vector<Ref<CD_Document>> documents;
    auto sameId = Predicate::parse("id = %d", {Value(id)});
    FetchRequest request;
    if (sameId) request.predicate = std::move(*sameId);
    auto found = sameId ? finder.context().fetch<CD_Document>(std::move(request)) : sameId.error();
    if (!found) {
        finder.fail(found.error());
        return documents;
    }
    for (auto& document : *found)
        if (document->server_shadow()) documents.push_back(std::move(document));
    return documents;
}

Result<std::int64_t> freeDocumentId(ManagedObjectContext& context) {
    const auto highest = context.max(CD_Document::kEntityName, "id");
    if (!highest) return highest.error();
    if (!*highest || **highest < 1) return 1;
    if (**highest < std::numeric_limits<std::int64_t>::max()) return **highest + 1;
    // A server took the very last one; somewhere below is room.
    std::random_device source;
    std::uniform_int_distribution<std::int64_t> below(1, **highest - 1);
    while (true) {
        const auto id = below(source);
        const auto taken = context.findWithID<CD_Document>(id);
        if (!taken) return taken.error();
        if (!*taken) return id;
    }
}

} // namespace ledgerfinch::merge
