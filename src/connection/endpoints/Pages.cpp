// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Pages.h"

#include "connection/SameServer.h"

#include <set>

namespace ledgerfinch {

namespace {

constexpr std::size_t kMostPages = 100'000;

bool mayFollow(const ApiHandler& api, const std::string& next, const std::set<std::string>& read) {
    if (!leadsToServer(next, api.Server())) {
        api.log().error("The next page is on another server, not followed: %s", next);
        return false;
    }
    if (read.contains(next)) {
        api.log().error("The next page was read already, not followed: %s", next);
        return false;
    }
    if (read.size() >= kMostPages) {
        api.log().error("The list has no end, stopped after %ld pages", read.size());
        return false;
    }
    return true;
}

} // namespace

int effectiveStatus(const HttpResponse& response) {
    return response.error || response.status == 0 ? status::kNoAnswer : response.status;
}

int walkPages(ApiHandler& api, const PageWalk& walk, const FetchOptions& options,
              const std::function<PageStep(const HttpResponse&)>& read) {
    const auto stopped = [&] {
        return options.shouldStop && options.shouldStop();
    };
    if (stopped()) return status::kStopped;
    auto request = api.request("GET", walk.path, walk.firstPage);
    std::set<std::string> urls{request.url};
    auto pending = api.start(std::move(request));
    for (;;) {
        const auto response = api.finish(std::move(pending));
        if (stopped()) return status::kStopped;
        const PageStep step = read(response);
        const bool goesOn = step.status == 200 && step.next && mayFollow(api, *step.next, urls);
        if (goesOn) {
            urls.insert(*step.next);
            pending = api.start(api.requestTo("GET", *step.next, walk.nextPages));
        }
        if (step.merge) step.merge();
        if (step.status != 200) return step.status;
        if (step.next && !goesOn) return status::kBadNextPage;
        if (!goesOn) return step.status;
        if (stopped()) return status::kStopped;
    }
}

} // namespace ledgerfinch
