// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/Permissions.h"
#include "records/RecordPage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

// Each record's `raw` is a compact JSON object with the members that may be sent back, each value to the byte as it
// came; a member that wasn't delivered is absent.

struct Tag {
    std::int64_t id = 0;
    std::optional<std::string> slug;
    std::optional<std::string> name;
    std::optional<std::string> color; ///< hexadecimal, "#a6cee3"
    std::optional<std::string> text_color;
    std::optional<std::string> match;
    std::optional<std::int64_t> matching_algorithm;
    std::optional<bool> is_insensitive;
    std::optional<bool> is_inbox_tag;
    std::optional<std::int64_t> document_count;
    std::optional<std::int64_t> owner;
    std::optional<Document_Permissions> permissions;

    /// "name", "color", "match", "matching_algorithm", "is_insensitive", "is_inbox_tag", "owner", "permissions".
    std::string raw;
};

struct Correspondent {
    std::int64_t id = 0;
    std::optional<std::string> slug;
    std::optional<std::string> name;
    std::optional<std::string> match;
    std::optional<std::int64_t> matching_algorithm;
    std::optional<bool> is_insensitive;
    std::optional<std::int64_t> document_count;
    std::optional<std::string> last_correspondence; ///< date text as it came
    std::optional<std::int64_t> owner;
    std::optional<Document_Permissions> permissions;

    /// "name", "match", "matching_algorithm", "is_insensitive", "owner", "permissions".
    std::string raw;
};

struct Document_Type {
    std::optional<std::int64_t> document_count;
    std::int64_t id = 0;
    std::optional<bool> is_insensitive;
    std::optional<std::string> match;
    std::optional<std::int64_t> matching_algorithm;
    std::optional<std::string> name;
    std::optional<std::string> slug;
    std::optional<std::int64_t> owner;
    std::optional<Document_Permissions> permissions;

    /// As for `Correspondent`.
    std::string raw;
};

struct Storage_Path {
    std::optional<std::int64_t> document_count;
    std::int64_t id = 0;
    std::optional<bool> is_insensitive;
    std::optional<std::string> match;
    std::optional<std::int64_t> matching_algorithm;
    std::optional<std::string> name;
    std::optional<std::string> slug;
    std::optional<std::string> path;
    std::optional<std::int64_t> owner;
    std::optional<Document_Permissions> permissions;

    /// As for `Correspondent`, and "path".
    std::string raw;
};

enum class Data_Type { string, url, date, boolean, integer, float_, monetary, documentlink, select };

/// The text on the wire ("float" for `float_`).
[[nodiscard]] std::string_view rawValue(Data_Type type);
/// Absent for a text that isn't one of the nine.
[[nodiscard]] std::optional<Data_Type> dataTypeFromRawValue(std::string_view text);

struct Custom_Field_Extra_Data {
    /// The position is the value stored in a document's custom field; an empty slot was null.
    std::optional<std::vector<std::optional<std::string>>> select_options;
    std::optional<std::string> default_currency;
};

struct Custom_Field {
    std::int64_t id = 0;
    std::string name;
    Data_Type data_type = Data_Type::string;
    std::optional<Custom_Field_Extra_Data> extra_data;

    /// "name", "data_type", "extra_data".
    std::string raw;
};

struct Tags : RecordPage<Tag> {};
struct Correspondents : RecordPage<Correspondent> {};
struct Document_Types : RecordPage<Document_Type> {};
struct Storage_Paths : RecordPage<Storage_Path> {};
struct Custom_Fields : RecordPage<Custom_Field> {};

} // namespace ledgerfinch
