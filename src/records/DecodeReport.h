// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// For the decoders of this folder only: what they share around the reading of a body.

#include "records/Decoders.h"
#include "records/RecordReader.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ledgerfinch::decoding {

/// Mends a reverse proxy that terminates TLS: its server builds page links with the wrong scheme.
void mendNext(std::optional<std::string>& next, const DecodeContext& context);
/// The line of a failed decode, at error level. What the body brought is private in it.
void print(const DecodeContext& context, std::string_view message, const Failure& failure);

/// As many levels as records nest, their lists counted too, and some more.
inline constexpr int kRecordLevels = 8;
/// Far more than a page; a hostile body needn't be read and copied so often.
inline constexpr std::size_t kLargestSecondTry = std::size_t{32} << 20;
/// The JSON text with the last of the members of each name alone, so many levels deep; unchanged when it is no JSON.
std::string withoutOvertakenMembers(std::string_view text, int levels = kRecordLevels);

/// Reads a body. The reader checks every member it meets; only when one fails is it worth asking whether a later member
/// of the same name takes its place.
template <class Record>
std::optional<Failure> decodeLenient(std::string_view body, Record& out) {
    auto failure = decodeBody(body, out);
    if (failure && body.size() <= kLargestSecondTry && !decodeBody(withoutOvertakenMembers(body), out)) failure.reset();
    return failure;
}

template <class Record>
std::optional<Record> decodeOne(std::string_view body, const DecodeContext& context, std::string_view message) {
    std::optional<Record> record(std::in_place);
    if (const auto failure = decodeLenient(body, *record)) {
        print(context, message, *failure);
        record.reset();
    }
    return record;
}

/// Absent: the page is filled, its `next` mended.
template <class Page>
std::optional<Failure> readPage(std::string_view body, const DecodeContext& context, Page& page) {
    auto failure = decodeLenient(body, page);
    if (failure) {
        page = Page{};
        page.failure = failure->describe();
        return failure;
    }
    page.decoded = true;
    page.hasResults = page.results.has_value();
    mendNext(page.next, context);
    return std::nullopt;
}

template <class Page>
Page decodePage(std::string_view body, const DecodeContext& context, std::string_view message) {
    Page page;
    if (const auto failure = readPage(body, context, page)) print(context, message, *failure);
    return page;
}

template <class Page>
inline constexpr std::array kPageMembers{
    member<Page, &Page::count>("count"),
    member<Page, &Page::next>("next"),
    member<Page, &Page::previous>("previous"),
    member<Page, &Page::results>("results"),
};
template <class Page>
inline constexpr std::array kPageMembersWithIds{
    member<Page, &Page::count>("count"),       member<Page, &Page::next>("next"),
    member<Page, &Page::previous>("previous"), member<Page, &Page::all>("all"),
    member<Page, &Page::results>("results"),
};

template <>
struct Members<UsersGroupsDict> {
    static constexpr std::array table{
        member<UsersGroupsDict, &UsersGroupsDict::users>("users"),
        member<UsersGroupsDict, &UsersGroupsDict::groups>("groups"),
    };
};

template <>
struct Members<Document_Permissions> {
    static constexpr std::array table{
        member<Document_Permissions, &Document_Permissions::view>("view"),
        member<Document_Permissions, &Document_Permissions::change>("change"),
    };
};

} // namespace ledgerfinch::decoding
