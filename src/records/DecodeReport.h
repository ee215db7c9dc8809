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
/// The line of a failed decode, at error level.
void print(const DecodeContext& context, std::string_view message, const Failure& failure);

template <class Record>
std::optional<Record> decodeOne(std::string_view body, const DecodeContext& context, std::string_view message) {
    std::optional<Record> record(std::in_place);
    if (const auto failure = decodeBody(body, *record)) {
        print(context, message, *failure);
        record.reset();
    }
    return record;
}

/// Absent: the page is filled, its `next` mended.
template <class Page>
std::optional<Failure> readPage(std::string_view body, const DecodeContext& context, Page& page) {
    auto failure = decodeBody(body, page);
    if (failure) {
        page = Page{};
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
