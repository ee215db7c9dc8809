// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/DecodeReport.h"

namespace ledgerfinch {
namespace decoding {

bool read(Cursor& cursor, Value& value, Data_Type& out) {
    std::string_view text;
    if (!cursor.text(value, "a text", text)) return false;
    // Newer servers have a kind of text for several lines. It behaves as the short one; `raw` keeps its name.
    const auto type = dataTypeFromRawValue(text == "longtext" ? "string" : text);
    if (!type) return cursor.fail("one of the known data types was expected");
    out = *type;
    return true;
}

template <>
struct Members<Tag> {
    static constexpr std::array table{
        member<Tag, &Tag::id>("id"),
        member<Tag, &Tag::slug>("slug"),
        member<Tag, &Tag::name>("name", Keep::yes),
        member<Tag, &Tag::color>("color", Keep::yes),
        member<Tag, &Tag::text_color>("text_color"),
        member<Tag, &Tag::match>("match", Keep::yes),
        member<Tag, &Tag::matching_algorithm>("matching_algorithm", Keep::yes),
        member<Tag, &Tag::is_insensitive>("is_insensitive", Keep::yes),
        member<Tag, &Tag::is_inbox_tag>("is_inbox_tag", Keep::yes),
        member<Tag, &Tag::document_count>("document_count"),
        member<Tag, &Tag::owner>("owner", Keep::yes),
        member<Tag, &Tag::permissions>("permissions", Keep::yes),
    };
};

template <>
struct Members<Correspondent> {
    static constexpr std::array table{
        member<Correspondent, &Correspondent::id>("id"),
        member<Correspondent, &Correspondent::slug>("slug"),
        member<Correspondent, &Correspondent::name>("name", Keep::yes),
        member<Correspondent, &Correspondent::match>("match", Keep::yes),
        member<Correspondent, &Correspondent::matching_algorithm>("matching_algorithm", Keep::yes),
        member<Correspondent, &Correspondent::is_insensitive>("is_insensitive", Keep::yes),
        member<Correspondent, &Correspondent::document_count>("document_count"),
        member<Correspondent, &Correspondent::last_correspondence>("last_correspondence"),
        member<Correspondent, &Correspondent::owner>("owner", Keep::yes),
        member<Correspondent, &Correspondent::permissions>("permissions", Keep::yes),
    };
};

template <>
struct Members<Document_Type> {
    static constexpr std::array table{
        member<Document_Type, &Document_Type::id>("id"),
        member<Document_Type, &Document_Type::slug>("slug"),
        member<Document_Type, &Document_Type::name>("name", Keep::yes),
        member<Document_Type, &Document_Type::match>("match", Keep::yes),
        member<Document_Type, &Document_Type::matching_algorithm>("matching_algorithm", Keep::yes),
        member<Document_Type, &Document_Type::is_insensitive>("is_insensitive", Keep::yes),
        member<Document_Type, &Document_Type::document_count>("document_count"),
        member<Document_Type, &Document_Type::owner>("owner", Keep::yes),
        member<Document_Type, &Document_Type::permissions>("permissions", Keep::yes),
    };
};

template <>
struct Members<Storage_Path> {
    static constexpr std::array table{
        member<Storage_Path, &Storage_Path::id>("id"),
        member<Storage_Path, &Storage_Path::slug>("slug"),
        member<Storage_Path, &Storage_Path::name>("name", Keep::yes),
        member<Storage_Path, &Storage_Path::path>("path", Keep::yes),
        member<Storage_Path, &Storage_Path::match>("match", Keep::yes),
        member<Storage_Path, &Storage_Path::matching_algorithm>("matching_algorithm", Keep::yes),
        member<Storage_Path, &Storage_Path::is_insensitive>("is_insensitive", Keep::yes),
        member<Storage_Path, &Storage_Path::document_count>("document_count"),
        member<Storage_Path, &Storage_Path::owner>("owner", Keep::yes),
        member<Storage_Path, &Storage_Path::permissions>("permissions", Keep::yes),
    };
};

template <>
struct Members<Custom_Field_Extra_Data> {
    static constexpr std::array table{
        member<Custom_Field_Extra_Data, &Custom_Field_Extra_Data::select_options>("select_options"),
        member<Custom_Field_Extra_Data, &Custom_Field_Extra_Data::default_currency>("default_currency"),
    };
};

template <>
struct Members<Custom_Field> {
    static constexpr std::array table{
        member<Custom_Field, &Custom_Field::id>("id"),
        member<Custom_Field, &Custom_Field::name>("name", Keep::yes),
        member<Custom_Field, &Custom_Field::data_type>("data_type", Keep::yes),
        member<Custom_Field, &Custom_Field::extra_data>("extra_data", Keep::yes),
    };
};

template <>
struct Members<Tags> {
    static constexpr auto table = kPageMembers<Tags>;
};
template <>
struct Members<Correspondents> {
    static constexpr auto table = kPageMembers<Correspondents>;
};
template <>
struct Members<Document_Types> {
    static constexpr auto table = kPageMembers<Document_Types>;
};
template <>
struct Members<Storage_Paths> {
    static constexpr auto table = kPageMembers<Storage_Paths>;
};
template <>
struct Members<Custom_Fields> {
    static constexpr auto table = kPageMembers<Custom_Fields>;
};

} // namespace decoding

using decoding::decodeOne;
using decoding::decodePage;

Tags decodeTags(std::string_view body, const DecodeContext& context) {
    return decodePage<Tags>(body, context, "Encountered error while serializing Tags: ");
}

Correspondents decodeCorrespondents(std::string_view body, const DecodeContext& context) {
    return decodePage<Correspondents>(body, context,
                                      "enountered an error while decoding api response for correspondents: ");
}

Document_Types decodeDocumentTypes(std::string_view body, const DecodeContext& context) {
    return decodePage<Document_Types>(body, context,
                                      "enountered an error while decoding api response for document_types: ");
}

Storage_Paths decodeStoragePaths(std::string_view body, const DecodeContext& context) {
    return decodePage<Storage_Paths>(body, context,
                                     "enountered an error while decoding api response for storage paths: ");
}

Custom_Fields decodeCustomFields(std::string_view body, const DecodeContext& context) {
    return decodePage<Custom_Fields>(body, context,
                                     "enountered an error while decoding api response for custom fields: ");
}

std::optional<Tag> decodeTag(std::string_view body, const DecodeContext& context) {
    return decodeOne<Tag>(body, context, "enountered an error while decoding tag: ");
}

std::optional<Correspondent> decodeCorrespondent(std::string_view body, const DecodeContext& context) {
    return decodeOne<Correspondent>(body, context, "enountered an error while decoding correspondent: ");
}

std::optional<Document_Type> decodeDocumentType(std::string_view body, const DecodeContext& context) {
    return decodeOne<Document_Type>(body, context, "enountered an error while decoding document type: ");
}

std::optional<Storage_Path> decodeStoragePath(std::string_view body, const DecodeContext& context) {
    return decodeOne<Storage_Path>(body, context, "enountered an error while decoding storage path: ");
}

std::optional<Custom_Field> decodeCustomField(std::string_view body, const DecodeContext& context) {
    return decodeOne<Custom_Field>(body, context, "enountered an error while decoding api response for custom field: ");
}

} // namespace ledgerfinch
