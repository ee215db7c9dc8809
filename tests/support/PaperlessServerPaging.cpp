// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerPaging.h"

#include <algorithm>
#include <charconv>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t defaultPageSize = 25;
constexpr std::size_t largestPageSize = 100'000;

std::optional<std::size_t> positive(std::string_view text) {
    std::size_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size() || value == 0) return std::nullopt;
    return value;
}

/// The request's URL with another page; its parameters come out sorted, as the real server's do.
std::string pageUrl(const Request& request, std::size_t page) {
    std::vector<std::pair<std::string, std::string>> arguments;
    for (const auto& pair : request.query) {
        if (pair.first != "page") arguments.push_back(pair);
    }
    if (page > 1) arguments.emplace_back("page", std::to_string(page));
    std::stable_sort(arguments.begin(), arguments.end(),
                     [](const auto& left, const auto& right) { return left.first < right.first; });
    std::string url = "http://" + std::string(request.header("host")) + escapePath(request.path);
    auto separator = '?';
    for (const auto& [key, value] : arguments) {
        url += separator + escapeQuery(key) + "=" + escapeQuery(value);
        separator = '&';
    }
    return url;
}

void appendLink(std::string& to, const std::string& url) {
    if (url.empty()) {
        to += "null";
    } else {
        appendQuoted(to, url);
    }
}

} // namespace

std::optional<Page> pageOf(const Request& request, std::size_t count) {
    auto size =
        std::min(positive(request.argument("page_size").value_or("")).value_or(defaultPageSize), largestPageSize);
    auto pageCount = std::max<std::size_t>(1, (count + size - 1) / size);
    std::size_t number = 1;
    if (auto text = request.argument("page")) {
        auto wanted = *text == "last" ? pageCount : positive(*text).value_or(0);
        if (wanted == 0 || wanted > pageCount) return std::nullopt;
        number = wanted;
    }
    Page page;
    page.first = (number - 1) * size;
    page.last = std::min(page.first + size, count);
    if (number < pageCount) page.next = pageUrl(request, number + 1);
    if (number > 1) page.previous = pageUrl(request, number - 1);
    return page;
}

Response pagedResponse(const Context& context, const std::vector<Id>& ids, const RecordWriter& write,
                       const std::string* all, std::string_view extra) {
    auto page = pageOf(context.request, ids.size());
    if (!page) return detail(404, "Invalid page.");
    std::string body = "{\"count\":";
    appendNumber(body, std::int64_t(ids.size()));
    body += ",\"next\":";
    appendLink(body, page->next);
    body += ",\"previous\":";
    appendLink(body, page->previous);
    if (context.api.listsAll) {
        body += ",\"all\":";
        if (all != nullptr) {
            body += *all;
        } else {
            appendIds(body, ids);
        }
    }
    body += ",\"results\":[";
    for (auto index = page->first; index < page->last; ++index) {
        if (index > page->first) body += ',';
        write(body, ids[index]);
    }
    body += ']';
    body += extra;
    body += '}';
    return rawJsonResponse(std::move(body));
}

} // namespace ledgerfinch::support
