// SPDX-License-Identifier: GPL-3.0-or-later
// Saved views, tasks, share links and suggestions.
#include "records/DecodeReport.h"

namespace ledgerfinch {
namespace decoding {

/// Never a failure of its own: what isn't a text is an unknown status.
bool read(Cursor& cursor, Value& value, PaperlessTaskStatus& out) {
    simdjson::ondemand::json_type type{};
    if (const auto error = value.type().get(type)) return cursor.fail(error, "a value");
    if (type != simdjson::ondemand::json_type::string) {
        out = PaperlessTaskStatus::fromText("unknown");
        return cursor.skip(value);
    }
    std::string_view text;
    if (!cursor.text(value, "a text", text)) return false;
    out = PaperlessTaskStatus::fromText(text);
    return true;
}

namespace {

bool readDays(Cursor& cursor, Value& value, Suggestions& out) {
    simdjson::ondemand::array array;
    if (const auto error = value.get_array().get(array)) return cursor.fail(error, "a list");
    out.dates.clear();
    for (auto element : array) {
        Value item;
        if (const auto error = std::move(element).get(item)) return cursor.fail(error, "a date");
        cursor.at(item);
        if (!readDate(cursor, item, &dates::parseDateOnly, out.dates.emplace_back()))
            return cursor.failedAt(out.dates.size() - 1);
    }
    return true;
}

} // namespace

template <>
struct Members<Filter_rule> {
    static constexpr std::array table{
        member<Filter_rule, &Filter_rule::rule_type>("rule_type"),
        member<Filter_rule, &Filter_rule::value>("value"),
    };
};

template <>
struct Members<Saved_view> {
    static constexpr std::array table{
        member<Saved_view, &Saved_view::id>("id"),
        member<Saved_view, &Saved_view::name>("name", Keep::yes),
        member<Saved_view, &Saved_view::show_on_dashboard>("show_on_dashboard", Keep::yes),
        member<Saved_view, &Saved_view::show_in_sidebar>("show_in_sidebar", Keep::yes),
        member<Saved_view, &Saved_view::sort_field>("sort_field", Keep::yes),
        member<Saved_view, &Saved_view::sort_reverse>("sort_reverse", Keep::yes),
        member<Saved_view, &Saved_view::filter_rules>("filter_rules", Keep::yes),
    };
};

template <>
struct Members<PaperlessTask> {
    static constexpr std::array table{
        member<PaperlessTask, &PaperlessTask::id>("id"),
        member<PaperlessTask, &PaperlessTask::name>("name"),
        member<PaperlessTask, &PaperlessTask::task_file_name>("task_file_name"),
        dateMember<PaperlessTask, &PaperlessTask::date_created, &dates::parseFractional>("date_created"),
        dateMember<PaperlessTask, &PaperlessTask::date_done, &dates::parseFractional>("date_done"),
        member<PaperlessTask, &PaperlessTask::type>("type"),
        member<PaperlessTask, &PaperlessTask::status>("status"),
        member<PaperlessTask, &PaperlessTask::result>("result"),
        member<PaperlessTask, &PaperlessTask::ackknowledged>("ackknowledged"),
        member<PaperlessTask, &PaperlessTask::related_document>("related_document"),
    };
};

template <>
struct Members<PaperlessShareLink> {
    static constexpr std::array table{
        member<PaperlessShareLink, &PaperlessShareLink::id>("id"),
        dateMember<PaperlessShareLink, &PaperlessShareLink::created, &dates::parseDateTime>("created"),
        dateMember<PaperlessShareLink, &PaperlessShareLink::expiration, &dates::parseDateTime>("expiration"),
        member<PaperlessShareLink, &PaperlessShareLink::slug>("slug"),
        member<PaperlessShareLink, &PaperlessShareLink::document>("document"),
        member<PaperlessShareLink, &PaperlessShareLink::fileVersion>("file_version"),
    };
};

template <>
struct Members<Suggestions> {
    static constexpr std::array table{
        member<Suggestions, &Suggestions::correspondents>("correspondents"),
        member<Suggestions, &Suggestions::tags>("tags"),
        member<Suggestions, &Suggestions::document_types>("document_types"),
        member<Suggestions, &Suggestions::storage_paths>("storage_paths"),
        Member<Suggestions>{"dates", &readDays, true, Keep::no},
    };
};

template <>
struct Members<Saved_views> {
    static constexpr auto table = kPageMembers<Saved_views>;
};
template <>
struct Members<PaperlessShareLinks> {
    static constexpr auto table = kPageMembersWithIds<PaperlessShareLinks>;
};

} // namespace decoding

using decoding::decodeOne;
using decoding::decodePage;

Saved_views decodeSavedViews(std::string_view body, const DecodeContext& context) {
    return decodePage<Saved_views>(body, context, "enountered an error while decoding api response for saved views: ");
}

std::optional<Saved_view> decodeSavedView(std::string_view body, const DecodeContext& context) {
    return decodeOne<Saved_view>(body, context, "enountered an error while decoding saved view: ");
}

PaperlessShareLinks decodeShareLinks(std::string_view body, const DecodeContext& context) {
    return decodePage<PaperlessShareLinks>(body, context,
                                           "enountered an error while decoding api response for share links: ");
}

std::optional<PaperlessShareLink> decodeShareLink(std::string_view body, const DecodeContext& context) {
    return decodeOne<PaperlessShareLink>(body, context, "encountered an error while decoding share link: ");
}

std::optional<std::vector<PaperlessTask>> decodeTasks(std::string_view body, const DecodeContext& context) {
    return decodeOne<std::vector<PaperlessTask>>(body, context,
                                                 "enountered an error while decoding api response for tasks: ");
}

std::optional<Suggestions> decodeSuggestions(std::string_view body, const DecodeContext& context) {
    return decodeOne<Suggestions>(body, context, "enountered an error while decoding suggestions: ");
}

} // namespace ledgerfinch
