// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

namespace ledgerfinch {
namespace {

// A list that somebody typing in a search field interrupts is asked for again.
constexpr int kAttempts = 3;

SortDescriptor byName(SortComparison comparison = SortComparison::Plain) {
    return {"name", SortOrder::Ascending, comparison};
}

/// The first object whose attribute equals the value.
template <class T>
Ref<T> firstEqual(const ContextRef& context, std::string_view format, Value value) {
    auto predicate = Predicate::parse(format, {std::move(value)});
    if (!predicate) return nullptr;
    FetchRequest request;
    request.predicate = std::move(*predicate);
    request.limit = 1;
    Ref<T> first;
    context->performAndWait([&] {
        auto found = context->fetch<T>(std::move(request));
        if (found && !found->empty()) first = std::move(found->front());
    });
    return first;
}

} // namespace

template <class T>
std::vector<Ref<T>> CoreDataHandler::sortedList(SortDescriptor sort, ContextRef context) {
    context = contextOrView(std::move(context));
    FetchRequest request;
    request.entity = T::kEntityName;
    request.sort.push_back(std::move(sort));
    auto ids = context->container().fetchIDs(request);
    for (int attempt = 1; !ids && ids.error().code == static_cast<int>(StoreErrorCode::Busy) && attempt < kAttempts;
         ++attempt)
        ids = context->container().fetchIDs(request);
    std::vector<Ref<T>> objects;
    if (!ids) {
        m_log.error("Couldn't list %{public}s: %@", T::kEntityName, ids.error().message);
        return objects;
    }
    context->performAndWait([&] {
        objects.reserve(ids->size());
        for (const auto& id : *ids) {
            auto object = context->existingObject(id);
            if (object && !object->isDeleted()) objects.push_back(std::static_pointer_cast<T>(std::move(object)));
        }
    });
    return objects;
}

template <class T>
Ref<T> CoreDataHandler::byID(std::int64_t id, ContextRef context) {
    context = contextOrView(std::move(context));
    Ref<T> object;
    context->performAndWait([&] { object = context->firstWithID<T>(id); });
    return object;
}

std::vector<Ref<CD_Tag>> CoreDataHandler::getTags(ContextRef context) {
    return sortedList<CD_Tag>(byName(SortComparison::LocalizedStandard), std::move(context));
}
std::vector<Ref<CD_Saved_View>> CoreDataHandler::getSavedViews(ContextRef context) {
    return sortedList<CD_Saved_View>(byName(), std::move(context));
}
std::vector<Ref<CD_Document_Type>> CoreDataHandler::getDocumentTypes(ContextRef context) {
    return sortedList<CD_Document_Type>(byName(), std::move(context));
}
std::vector<Ref<CD_Correspondent>> CoreDataHandler::getCorrespondents(ContextRef context) {
    return sortedList<CD_Correspondent>(byName(), std::move(context));
}
std::vector<Ref<CD_Storage_Path>> CoreDataHandler::getStoragePaths(ContextRef context) {
    return sortedList<CD_Storage_Path>(byName(), std::move(context));
}
std::vector<Ref<CD_Custom_Field>> CoreDataHandler::getCustomFields(ContextRef context) {
    return sortedList<CD_Custom_Field>(byName(), std::move(context));
}
std::vector<Ref<CD_User>> CoreDataHandler::getUsers(ContextRef context) {
    return sortedList<CD_User>({"username", SortOrder::Ascending, SortComparison::Plain}, std::move(context));
}
std::vector<Ref<CD_Group>> CoreDataHandler::getGroups(ContextRef context) {
    return sortedList<CD_Group>(byName(), std::move(context));
}

Ref<CD_Tag> CoreDataHandler::getTag(std::int64_t id, ContextRef context) {
    return byID<CD_Tag>(id, std::move(context));
}
Ref<CD_Document_Type> CoreDataHandler::getDocumentType(std::int64_t id, ContextRef context) {
    return byID<CD_Document_Type>(id, std::move(context));
}
Ref<CD_Correspondent> CoreDataHandler::getCorrespondent(std::int64_t id, ContextRef context) {
    return byID<CD_Correspondent>(id, std::move(context));
}
Ref<CD_Storage_Path> CoreDataHandler::getStoragePath(std::int64_t id, ContextRef context) {
    return byID<CD_Storage_Path>(id, std::move(context));
}
Ref<CD_Saved_View> CoreDataHandler::getSavedView(std::int64_t id, ContextRef context) {
    return byID<CD_Saved_View>(id, std::move(context));
}
Ref<CD_User> CoreDataHandler::getUser(std::int64_t id, ContextRef context) {
    return byID<CD_User>(id, std::move(context));
}
Ref<CD_Custom_Field> CoreDataHandler::getCustomField(std::int64_t id, ContextRef context) {
    return byID<CD_Custom_Field>(id, std::move(context));
}
Ref<CD_Group> CoreDataHandler::getGroup(std::int64_t id, ContextRef context) {
    return byID<CD_Group>(id, std::move(context));
}
Ref<CD_Note> CoreDataHandler::getNote(std::int64_t id, ContextRef context) {
    return byID<CD_Note>(id, std::move(context));
}
Ref<CD_Document> CoreDataHandler::getDocument(std::int64_t id, ContextRef context) {
    return byID<CD_Document>(id, std::move(context));
}

Ref<CD_Document> CoreDataHandler::getDocumentByUuid(const Uuid& uuid, ContextRef context) {
    return firstEqual<CD_Document>(contextOrView(std::move(context)), "uuid = %@", uuid);
}

Ref<CD_Document> CoreDataHandler::getDocumentByAsn(std::int64_t asn, ContextRef context) {
    // 0 stands for no number, and so names no document.
    if (asn == 0) return nullptr;
    return firstEqual<CD_Document>(contextOrView(std::move(context)), "archive_serial_number = %d", asn);
}

Ref<CD_Document> CoreDataHandler::getLatestDocument(ContextRef context) {
    context = contextOrView(std::move(context));
    FetchRequest request;
    request.sort.push_back({"id", SortOrder::Descending, SortComparison::Plain});
    request.limit = 1;
    Ref<CD_Document> latest;
    context->performAndWait([&] {
        auto found = context->fetch<CD_Document>(std::move(request));
        if (found && !found->empty()) latest = std::move(found->front());
    });
    return latest;
}

std::optional<std::int64_t> CoreDataHandler::getMaxAsn(ContextRef context) {
    context = contextOrView(std::move(context));
    std::optional<std::int64_t> highest;
    context->performAndWait([&] {
        if (const auto found = context->max(CD_Document::kEntityName, "archive_serial_number")) highest = *found;
    });
    return highest;
}

std::optional<std::int64_t> CoreDataHandler::getMaxId(std::string_view entityName, ContextRef context) {
    context = contextOrView(std::move(context));
    std::optional<std::int64_t> highest;
    context->performAndWait([&] {
        if (const auto found = context->max(entityName, "id")) highest = *found;
    });
    return highest;
}

} // namespace ledgerfinch
