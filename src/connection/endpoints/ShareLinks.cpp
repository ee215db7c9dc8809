// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/ShareLinks.h"

#include "connection/endpoints/Pages.h"
#include "connection/endpoints/Refusals.h"
#include "records/Decoders.h"
#include "records/JsonWriter.h"

namespace ledgerfinch {

ShareLinkList fetchShareLinks(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    FetchOptions options;
    options.cancellation = cancellation;
    const auto now = api.services().clock->now();
    std::vector<PaperlessShareLink> found;
    const int last =
        walkPages(api, {"/api/share_links/"}, options, [&](const HttpResponse& response, const std::string&) {
            PageStep step{effectiveStatus(response), std::nullopt, {}};
            if (response.status == 401)
                api.log().error("server didn't accept stored token!");
            else if (response.status != 200 && response.status != 0)
                api.log().error("received unexpected response from server while fetching share links: %{public}ld",
                                response.status);
            if (step.status != 200) return step;
            auto page = decodeShareLinks(response.body, api.decodeContext());
            if (!page.decoded) {
                step.status = api.noteUnreadable(response);
                return step;
            }
            for (auto& link : page.results.value_or(std::vector<PaperlessShareLink>()))
                if (link.document == documentId && (!link.expiration || *link.expiration > now))
                    found.push_back(std::move(link));
            step.next = std::move(page.next);
            return step;
        });
    if (last != 200) found.clear();
    return {last, std::move(found)};
}

CreatedShareLink createShareLink(ApiHandler& api, std::int64_t documentId, std::optional<Timestamp> expiration,
                                 FileVersion version) {
    JsonWriter body;
    body.beginObject().key("expiration");
    if (expiration)
        body.string(dates::formatIso8601Utc(*expiration));
    else
        body.null();
    body.member("document", documentId)
        .member("file_version", version == FileVersion::archive ? "archive" : "original")
        .endObject();
    auto request = api.request("POST", "/api/share_links/", ApiHandler::Accept::Yes);
    ApiHandler::setJsonBody(request, body.take());
    const auto response = api.send(std::move(request));
    CreatedShareLink created{effectiveStatus(response), std::nullopt, {}};
    if (!status::isSuccess(created.status)) {
        logFailure(api, "Error creating share link %{public}s", response);
        return created;
    }
    created.link = decodeShareLink(response.body, api.decodeContext());
    if (created.link) created.url = api.Server() + "/share/" + created.link->slug;
    return created;
}

int deleteShareLink(ApiHandler& api, std::int64_t id) {
    const auto response =
        api.send(api.request("DELETE", "/api/share_links/" + std::to_string(id) + "/", ApiHandler::Accept::No));
    if (!status::isSuccess(effectiveStatus(response)))
        logFailure(api, "Error deleting share link %{public}s", response);
    return effectiveStatus(response);
}

} // namespace ledgerfinch
