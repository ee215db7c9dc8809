// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Attributes.h"

#include "connection/endpoints/Pages.h"
#include "records/Decoders.h"
#include "records/JsonReader.h"
#include "store/CoreDataHandler.h"

#include <iterator>

namespace ledgerfinch {

namespace {

/// One family of records: how its list is asked for, read and stored.
template <class Record, class Page>
struct Family {
    PageWalk walk;
    std::string_view unexpectedStatus; ///< log format
    Page (*decode)(std::string_view, const DecodeContext&);
    MergeOutcome (CoreDataHandler::*save)(const std::vector<Record>&, Delivery, ContextRef);
};

template <class Record, class Page>
int fetchFamily(ApiHandler& api, const FetchOptions& given, const Family<Record, Page>& family) {
    const auto options = withContext(api, given);
    std::vector<Record> records;
    bool delivered = false;
    bool whole = true;
    std::optional<std::int64_t> count;
    const int last = walkPages(api, family.walk, options, [&](const HttpResponse& response, const std::string&) {
        PageStep step{effectiveStatus(response), std::nullopt, {}};
        if (response.status == 401)
            api.log().error("server didn't accept stored token!");
        else if (response.status != 200 && response.status != 0)
            api.log().error(family.unexpectedStatus, response.status);
        if (step.status != 200) return step;
        Page page = family.decode(response.body, api.decodeContext());
        // No list at all: as if it had not been answered with success. A page with one odd record counts as partial.
        if (!page.decoded && !JsonObject::parse(response.body)) {
            step.status = api.noteUnreadable(response);
            return step;
        }
        whole = whole && page.decoded && page.hasResults;
        if (page.count) count = page.count;
        if (page.results) {
            delivered = true;
            records.insert(records.end(), std::make_move_iterator(page.results->begin()),
                           std::make_move_iterator(page.results->end()));
        }
        step.next = std::move(page.next);
        return step;
    });
    if (last != 200) return last;
    if (const auto ended = endedByCaller(options)) return *ended;
    // A list that is shorter than it says itself proves nothing about what is missing in it.
    if (count && static_cast<std::int64_t>(records.size()) < *count) whole = false;
    const auto delivery = !delivered ? Delivery::Absent : whole ? Delivery::Complete : Delivery::Partial;
    const auto outcome = (api.core().*family.save)(records, delivery, options.context);
    if (options.incomplete && (delivery != Delivery::Complete || !outcome.complete())) options.incomplete();
    return last;
}

constexpr auto kYes = ApiHandler::Accept::Yes;
constexpr auto kNo = ApiHandler::Accept::No;

} // namespace

int fetchGroups(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<PaperlessGroup, PaperlessGroups>(
        api, options,
        {{"/api/groups/", kYes, kNo},
         "received unexpected response from server while fetching groups: %{public}ld",
         decodeGroups,
         &CoreDataHandler::saveGroups});
}

int fetchUsers(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<User, Users>(api, options,
                                    {{"/api/users/?page_size=1000", kYes, kNo},
                                     "received unexpected response from server while fetching users: %{public}ld",
                                     decodeUsers,
                                     &CoreDataHandler::saveUsers});
}

int fetchTags(ApiHandler& api, const FetchOptions& options) {
    const int last =
        fetchFamily<Tag, Tags>(api, options,
                               {{"/api/tags/?full_perms=true&page_size=1000", kYes, kYes},
                                "received unexpected response from server while fetching tags: %{public}ld",
                                decodeTags,
                                &CoreDataHandler::saveTags});
    if (last == 401) api.eraseToken();
    return last;
}

int fetchDocumentTypes(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<Document_Type, Document_Types>(
        api, options,
        {{"/api/document_types/?full_perms=true&page_size=1000", kYes, kYes},
         "received unexpected response from server while fetching document types: %{public}ld",
         decodeDocumentTypes,
         &CoreDataHandler::saveDocumentTypes});
}

int fetchCorrespondents(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<Correspondent, Correspondents>(
        api, options,
        {{"/api/correspondents/?full_perms=true&page_size=1000", kYes, kYes},
         "received unexpected response from server while fetching correspondents: %{public}ld",
         decodeCorrespondents,
         &CoreDataHandler::saveCorrespondents});
}

int fetchStoragePaths(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<Storage_Path, Storage_Paths>(
        api, options,
        {{"/api/storage_paths/?full_perms=true&page_size=1000", kYes, kYes},
         "received unexpected response from server while fetching storage paths: %{public}ld",
         decodeStoragePaths,
         &CoreDataHandler::saveStoragePaths});
}

int fetchCustomFields(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<Custom_Field, Custom_Fields>(
        api, options,
        {{"/api/custom_fields/?page_size=1000", kYes, kYes},
         "received unexpected response from server while fetching custom fields: %{public}ld",
         decodeCustomFields,
         &CoreDataHandler::saveCustomFields});
}

int fetchSavedViews(ApiHandler& api, const FetchOptions& options) {
    return fetchFamily<Saved_view, Saved_views>(
        api, options,
        {{"/api/saved_views/?full_perms=true&page_size=1000", kYes, kNo},
         "received unexpected response from server while fetching saved views: %{public}ld",
         decodeSavedViews,
         &CoreDataHandler::saveSavedViews});
}

int fetchUserSettings(ApiHandler& api, Cancellation* cancellation) {
    const auto response = api.send(api.request("GET", "/api/ui_settings/", ApiHandler::Accept::Yes), cancellation);
    const int result = effectiveStatus(response);
    if (response.status == 401)
        api.log().error("server didn't accept stored token!");
    else if (response.status != 200 && response.status != 0)
        api.log().error("received unexpected response from server while fetching users: %{public}ld", response.status);
    if (result != 200) return result;
    const auto settings = decodeUISettings(response.body, api.decodeContext());
    if (!settings) return api.noteUnreadable(response);
    (void)api.services().defaults->set(api.Server() + "currentUserId", settings->user.id);
    return result;
}

} // namespace ledgerfinch
