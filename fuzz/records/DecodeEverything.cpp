// SPDX-License-Identifier: GPL-3.0-or-later
#include "DecodeEverything.h"

#include "platform/Text.h"
#include "records/Decoders.h"
#include "records/Encoders.h"
#include "records/JsonReader.h"

#include <cstdlib>

namespace ledgerfinch::fuzz {
namespace {

void require(bool promise) {
    if (!promise) std::abort();
}

void checkRaw(const std::string& raw) {
    const auto object = JsonObject::parse(raw);
    require(object.has_value());
    require(object->toText() == raw);
}

template <class Page>
void checkPage(const Page& page) {
    require(page.decoded || (!page.results && !page.next && !page.count));
    require(page.hasResults == page.results.has_value());
    if (!page.results) return;
    for (const auto& record : *page.results)
        if constexpr (requires { record.raw; }) checkRaw(record.raw);
}

template <class Record>
void checkOne(const std::optional<Record>& record) {
    if constexpr (requires { record->raw; })
        if (record) checkRaw(record->raw);
}

} // namespace

void decodeAsDocuments(std::string_view body) {
    const DecodeContext context{nullptr, "https://papers.example"};
    if (const auto page = decodeDocuments(body, context)) {
        checkPage(page.value());
        if (page->results)
            for (const Document& document : *page->results)
                require(text::isValidUtf8(document.title));
    }
    checkOne(decodeDocument(body, context));
    static_cast<void>(decodeNotes(body, context));
}

void decodeAsAttributes(std::string_view body) {
    const DecodeContext context{nullptr, "https://papers.example"};
    checkPage(decodeTags(body, context));
    checkPage(decodeCorrespondents(body, context));
    checkPage(decodeDocumentTypes(body, context));
    checkPage(decodeStoragePaths(body, context));
    checkPage(decodeCustomFields(body, context));
    checkPage(decodeUsers(body, context));
    checkPage(decodeGroups(body, context));
    const auto links = decodeShareLinks(body, context);
    checkPage(links);
    if (links.results)
        for (const auto& link : *links.results)
            require(json::isValid(encode(link)));
    const auto views = decodeSavedViews(body, context);
    checkPage(views);
    if (views.results)
        for (const auto& view : *views.results)
            require(decodeSavedView(encode(view), context).has_value());
    checkOne(decodeTag(body, context));
    checkOne(decodeCustomField(body, context));
    if (const auto tasks = decodeTasks(body, context))
        for (const auto& task : *tasks)
            if (task.result) static_cast<void>(docIDFromResult(*task.result));
    static_cast<void>(decodeSuggestions(body, context));
    static_cast<void>(decodeUISettings(body, context));
    if (const auto object = JsonObject::parse(body)) require(JsonObject::parse(object->toText()).has_value());
}

} // namespace ledgerfinch::fuzz
