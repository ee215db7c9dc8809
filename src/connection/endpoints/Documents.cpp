// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Documents.h"

#include "connection/endpoints/Pages.h"
#include "platform/Text.h"
#include "records/Decoders.h"
#include "store/CoreDataHandler.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ledgerfinch {

namespace {

constexpr std::string_view kPageQuery = "full_perms=true&order=descending&ordering=-id&page_size=100";

void report(const FetchOptions& options, const additionalLoadingInfo& info) {
    if (options.progress) options.progress(info);
}

/// A list of ids that disagrees with the number told beside it proves nothing.
bool isPlausible(const std::vector<std::int64_t>& all, std::optional<std::int64_t> count) {
    return !count || static_cast<std::int64_t>(all.size()) == *count;
}

/// What a pass over document pages gathered.
struct Pass {
    std::vector<std::int64_t> ids;                ///< of all pages
    std::optional<std::vector<std::int64_t>> all; ///< as the last page named them
    std::optional<std::int64_t> count;            ///< as the last page told it
    bool everyPageListed = true;                  ///< each page held a list
    bool stored = true;                           ///< the store kept every record
};

void logTransportError(const ApiHandler& api, const HttpResponse& response, std::string_view url) {
    api.log().error("Enountered an error while fetching documents:");
    api.log().error("%{public}s", response.error ? response.error->description : std::string("no answer"));
    api.log().error("URL: %{public}s", loggableUrl(url));
}

PageStep readDocumentPage(ApiHandler& api, const FetchOptions& options, const std::string& url,
                          const HttpResponse& response, Pass& pass) {
    PageStep step{effectiveStatus(response), std::nullopt, {}};
    if (response.error || response.status == 0) {
        report(options, additionalLoadingInfo::error(response.error ? response.error->description : "no answer"));
        logTransportError(api, response, url);
        return step;
    }
    if (response.status == 401)
        api.log().error("server didn't accept stored token!");
    else if (response.status != 200)
        api.log().error("received unexpected response from server: %{public}ld", response.status);
    if (response.status != 200) return step;

    auto page = decodeDocuments(response.body, api.decodeContext());
    if (!page) {
        api.log().error("Encountered an error while decoding documents: %{public}s", page.error().message);
        step.status = api.noteUnreadable(response);
        report(options, additionalLoadingInfo::error(api.reasonFor(step.status)));
        return step;
    }
    api.storeServerVersion(response);
    pass.everyPageListed = pass.everyPageListed && page->hasResults;
    pass.all = std::move(page->all);
    pass.count = page->count;
    auto results = std::move(page->results).value_or(std::vector<Document>());
    for (const auto& document : results)
        pass.ids.push_back(document.id);
    step.next = std::move(page->next);
    step.merge = [&api, &options, &pass, count = page->count.value_or(0), results = std::move(results)] {
        pass.stored = api.core().saveDocuments(results, options.context).complete() && pass.stored;
        report(options, additionalLoadingInfo::success("Received " + std::to_string(count) + " documents"));
    };
    return step;
}

int fetchDocumentPages(ApiHandler& api, const std::string& path, const FetchOptions& options, Pass& pass) {
    return walkPages(api, {path}, options, [&](const HttpResponse& response, const std::string& url) {
        return readDocumentPage(api, options, url, response, pass);
    });
}

/// The ids of everything on the server, where a whole pass told them.
std::optional<std::vector<std::int64_t>> idsOnServer(Pass pass) {
    if (!pass.everyPageListed) return std::nullopt;
    std::sort(pass.ids.begin(), pass.ids.end());
    pass.ids.erase(std::unique(pass.ids.begin(), pass.ids.end()), pass.ids.end());
    if (!pass.all) {
        // Without the list of ids, those of the pages count if they are as many as the server says there are.
        const bool complete = pass.count && static_cast<std::int64_t>(pass.ids.size()) == *pass.count;
        return complete ? std::optional(std::move(pass.ids)) : std::nullopt;
    }
    if (!isPlausible(*pass.all, pass.count)) return std::nullopt;
    // Documents may come and go while the pages are read: what a page brought is there as well.
    // Only the few that the list lacks are added, since the lists of a large server are long.
    auto& all = *pass.all;
    std::sort(all.begin(), all.end());
    std::vector<std::int64_t> unlisted;
    std::set_difference(pass.ids.begin(), pass.ids.end(), all.begin(), all.end(), std::back_inserter(unlisted));
    all.insert(all.end(), unlisted.begin(), unlisted.end());
    return std::move(pass.all);
}

} // namespace

int fetchAllDocuments(ApiHandler& api, const FetchOptions& given) {
    const auto options = withContext(api, given);
    // Only what was here before the server was asked: what somebody else stores meanwhile isn't on its list.
    const auto before = api.core().storedDocumentIds(options.context);
    Pass pass;
    const int last = fetchDocumentPages(api, "/api/documents/?" + std::string(kPageQuery), options, pass);
    if (last != 200) return last;
    const bool stored = pass.stored;
    if (const auto ended = endedByCaller(options)) return *ended;
    if (const auto there = idsOnServer(std::move(pass)))
        api.core().removeOutdatedDocuments(*there, before, options.context);
    return stored ? last : status::kNotStored;
}

int fetchChangedDocuments(ApiHandler& api, std::string_view modifiedSince, const FetchOptions& given) {
    const auto options = withContext(api, given);
    Pass pass;
    const std::string path =
        "/api/documents/?modified__gt=" + text::percentEncoded(modifiedSince) + "&" + std::string(kPageQuery);
    const int last = fetchDocumentPages(api, path, options, pass);
    return last == 200 && !pass.stored ? status::kNotStored : last;
}

DocumentCount fetchDocumentCount(ApiHandler& api, Cancellation* cancellation) {
    const std::string path = "/api/documents/?truncate_content=True&page_size=1";
    const auto response = api.send(api.request("GET", path, ApiHandler::Accept::Yes), cancellation);
    DocumentCount answer;
    answer.status = effectiveStatus(response);
    if (answer.status == status::kCancelled) return answer;
    if (response.error || response.status == 0)
        logTransportError(api, response, api.Server() + path);
    else if (response.status == 401)
        api.log().error("server didn't accept stored token!");
    else if (response.status != 200)
        api.log().error("received unexpected response from server: %{public}ld", response.status);
    if (answer.status != 200) return answer;
    auto page = decodeDocuments(response.body, api.decodeContext());
    if (!page) {
        api.log().error("Encountered an error while decoding documents: %{public}s", page.error().message);
        answer.status = api.noteUnreadable(response);
        return answer;
    }
    api.storeServerVersion(response);
    answer.count = page->count;
    if (page->all && isPlausible(*page->all, page->count)) answer.all = std::move(page->all);
    return answer;
}

namespace {

// More than this many are quicker fetched in pages.
constexpr std::size_t kFewDocuments = 100;

/// Documents that the server names and the store lacks: the store was lost, or they were hidden from this account and
/// are shown again. Neither moves their `modified`.
int fetchMissingDocuments(ApiHandler& api, const std::vector<std::int64_t>& there, const FetchOptions& options) {
    const auto missing = api.core().missingDocuments(there, options.context);
    if (missing.size() > kFewDocuments) return fetchAllDocuments(api, options);
    for (const auto id : missing) {
        if (const auto ended = endedByCaller(options)) return *ended;
        const int status = fetchDocument(api, id, options.context, options.cancellation);
        if (status != 200 && status != 404) return status;
    }
    return 200;
}

} // namespace

int removeOutdatedDocuments(ApiHandler& api, const FetchOptions& given) {
    const auto options = withContext(api, given);
    if (const auto ended = endedByCaller(options)) return *ended;
    const auto before = api.core().storedDocumentIds(options.context);
    const auto answer = fetchDocumentCount(api, options.cancellation);
    if (answer.status != 200) return answer.status;
    if (const auto ended = endedByCaller(options)) return *ended;
    if (!answer.all) return answer.status;
    api.core().removeOutdatedDocuments(*answer.all, before, options.context);
    return fetchMissingDocuments(api, *answer.all, options);
}

int fetchDocument(ApiHandler& api, std::int64_t id, Authority authority, std::shared_ptr<ManagedObjectContext> context,
                  Cancellation* cancellation) {
    if (!context) context = api.core().viewContext();
    const std::string path = "/api/documents/" + std::to_string(id) + "/?full_perms=true";
    const auto response = api.send(api.request("GET", path, ApiHandler::Accept::Yes), cancellation);
    if (effectiveStatus(response) == status::kCancelled) return status::kCancelled;
    if (response.error || response.status == 0)
        logTransportError(api, response, api.Server() + path);
    else if (response.status == 401)
        api.log().error("server didn't accept stored token!");
    else if (response.status != 200)
        api.log().error("received unexpected response from server: %{public}ld", response.status);
    if (effectiveStatus(response) != 200) return effectiveStatus(response);
    api.storeServerVersion(response);
    const auto document = decodeDocument(response.body, api.decodeContext());
    // An answer about another document would put its values into the wrong place.
    if (!document || document->id != id) return api.noteUnreadable(response);
    const auto saved = api.core().saveDocument(*document, std::move(context), authority);
    return saved.isValid() ? 200 : status::kNotStored;
}

int fetchDocument(ApiHandler& api, std::int64_t id, std::shared_ptr<ManagedObjectContext> context,
                  Cancellation* cancellation) {
    return fetchDocument(api, id, Authority::Merge, std::move(context), cancellation);
}

} // namespace ledgerfinch
