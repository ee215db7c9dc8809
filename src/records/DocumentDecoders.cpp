// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/DecodeReport.h"

#include <algorithm>
#include <limits>

namespace ledgerfinch {
namespace decoding {
namespace {

/// A number beyond 32 bits becomes the largest there is, not infinity: it can still be sorted, shown and stored, and
/// its digits stay in the document's `raw`.
bool readFloat(Cursor& cursor, Value& value, float& out) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    const std::string_view token = value.raw_json_token();
    double number = 0;
    if (value.get_double().get(number) != simdjson::SUCCESS) {
        // A well-formed number that even 64 bits can't hold, or no number at all.
        if (!isJsonNumber(token)) return cursor.fail(simdjson::NUMBER_ERROR, "a number");
        number = token.starts_with('-') ? -kLargest : kLargest;
    }
    out = static_cast<float>(std::clamp(number, -kLargest, kLargest));
    return true;
}

bool fail(Cursor& cursor, Field_Value::Custom_Field_Error error) {
    switch (error) {
    case Field_Value::Custom_Field_Error::missingValue:
        return cursor.fail("missingValue");
    }
    return false;
}

} // namespace

/// Text, truth value, number, list of integers: the first that fits. Anything else has no value.
bool read(Cursor& cursor, Value& value, Field_Value& out) {
    simdjson::ondemand::json_type type{};
    if (const auto error = value.type().get(type)) return cursor.fail(error, "a value");
    switch (type) {
    case simdjson::ondemand::json_type::string:
        return read(cursor, value, out.value.emplace<std::string>());
    case simdjson::ondemand::json_type::boolean:
        return read(cursor, value, out.value.emplace<bool>());
    case simdjson::ondemand::json_type::number:
        return readFloat(cursor, value, out.value.emplace<float>());
    case simdjson::ondemand::json_type::array: {
        const std::string_view token = value.raw_json_token();
        if (read(cursor, value, out.value.emplace<std::vector<std::int64_t>>())) return true;
        cursor.at(token); // the list is at fault, not the element where that showed
        break;
    }
    default:
        break;
    }
    return fail(cursor, Field_Value::Custom_Field_Error::missingValue);
}

template <>
struct Members<Note> {
    static constexpr std::array table{
        member<Note, &Note::id>("id"),           member<Note, &Note::note>("note"),
        member<Note, &Note::created>("created"), member<Note, &Note::document>("document"),
        member<Note, &Note::user>("user"),
    };
};

template <>
struct Members<Custom_Field_of_Document> {
    static constexpr std::array table{
        member<Custom_Field_of_Document, &Custom_Field_of_Document::value>("value"),
        member<Custom_Field_of_Document, &Custom_Field_of_Document::field>("field"),
    };
};

template <>
struct Members<Document> {
    static constexpr std::array table{
        member<Document, &Document::id>("id"),
        member<Document, &Document::correspondent>("correspondent", Keep::yes),
        member<Document, &Document::document_type>("document_type", Keep::yes),
        member<Document, &Document::storage_path>("storage_path", Keep::yes),
        member<Document, &Document::title>("title", Keep::yes),
        member<Document, &Document::content>("content"),
        member<Document, &Document::tags>("tags", Keep::yes),
        member<Document, &Document::created>("created", Keep::yes),
        keptOnly<Document>("created_date"),
        member<Document, &Document::modified>("modified"),
        member<Document, &Document::added>("added"),
        unread<Document>("deleted_at"),
        member<Document, &Document::archive_serial_number>("archive_serial_number", Keep::yes),
        member<Document, &Document::original_file_name>("original_file_name"),
        unread<Document>("archived_file_name"),
        member<Document, &Document::owner>("owner", Keep::yes),
        member<Document, &Document::permissions>("permissions", Keep::yes),
        member<Document, &Document::user_can_change>("user_can_change"),
        unread<Document>("is_shared_by_requester"),
        member<Document, &Document::notes>("notes"),
        member<Document, &Document::custom_fields>("custom_fields", Keep::yes),
        unread<Document>("page_count"),
        unread<Document>("mime_type"),
    };
};

template <>
struct Members<Documents> {
    static constexpr auto table = kPageMembersWithIds<Documents>;
};

} // namespace decoding

Result<Documents> decodeDocuments(std::string_view body, const DecodeContext& context) {
    Documents page;
    if (const auto failure = decoding::readPage(body, context, page)) return Error{failure->describe()};
    return page;
}

std::optional<Document> decodeDocument(std::string_view body, const DecodeContext& context) {
    return decoding::decodeOne<Document>(body, context, "enountered an error while decoding document: ");
}

std::optional<std::vector<Note>> decodeNotes(std::string_view body, const DecodeContext& context) {
    return decoding::decodeOne<std::vector<Note>>(body, context, "encountered an error while decoding notes: ");
}

} // namespace ledgerfinch
