// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Pages.h"

#include "connection/SameServer.h"
#include "store/CoreDataHandler.h"

#include <set>

namespace ledgerfinch {

namespace {

constexpr std::size_t kMostPages = 100'000;

bool mayFollow(const ApiHandler& api, const std::string& next, const std::set<std::string>& read) {
    if (!leadsToServer(next, api.Server()) || !isUnderPathOf(next, api.Server())) {
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

FetchOptions withContext(const ApiHandler& api, FetchOptions options) {
    if (!options.context) options.context = api.core().viewContext();
    return options;
}

std::string loggableUrl(std::string_view url) {
    static const std::set<std::string_view> kHarmless{"page",       "page_size",        "order",       "ordering",
                                                      "full_perms", "truncate_content", "modified__gt"};
    const auto mark = url.find('?');
    std::string text(url.substr(0, mark));
    if (mark == std::string_view::npos) return text;
    char separator = '?';
    for (auto rest = url.substr(mark + 1);;) {
        const auto end = rest.find('&');
        const auto parameter = rest.substr(0, end);
        const auto equals = parameter.find('=');
        const auto name = parameter.substr(0, equals);
        text += separator;
        text += kHarmless.contains(name) || equals == std::string_view::npos ? std::string(parameter)
                                                                             : std::string(name) + "=<private>";
        if (end == std::string_view::npos) return text;
        rest.remove_prefix(end + 1);
        separator = '&';
    }
}

std::optional<int> endedByCaller(const FetchOptions& options) {
    if (options.cancellation != nullptr && options.cancellation->isCancelled()) return status::kCancelled;
    if (options.shouldStop && options.shouldStop()) return status::kStopped;
    return std::nullopt;
}

int walkPages(ApiHandler& api, const PageWalk& walk, const FetchOptions& options,
              const std::function<PageStep(const HttpResponse&, const std::string& url)>& read) {
    if (const auto ended = endedByCaller(options)) return *ended;
    auto request = api.request("GET", walk.path, walk.firstPage);
    std::string url = request.url;
    std::set<std::string> urls{url};
    auto pending = api.start(std::move(request));
    for (;;) {
        const auto response = api.finish(std::move(pending), options.cancellation);
        if (const auto ended = endedByCaller(options)) return *ended;
        if (effectiveStatus(response) == status::kCancelled) return status::kCancelled;
        const PageStep step = read(response, url);
        const bool goesOn = step.status == 200 && step.next && mayFollow(api, *step.next, urls);
        if (goesOn) {
            url = *step.next;
            urls.insert(url);
            pending = api.start(api.requestTo("GET", url, walk.nextPages));
        }
        if (step.merge) step.merge();
        if (step.status != 200) return step.status;
        if (step.next && !goesOn) return status::kBadNextPage;
        if (!goesOn) return step.status;
        if (const auto ended = endedByCaller(options)) return *ended;
    }
}

} // namespace ledgerfinch
