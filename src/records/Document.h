// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/Permissions.h"
#include "records/RecordPage.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace ledgerfinch {

/// The value of a custom field as the wire tells it apart: text, truth value, number (32 bit: integers above 16777216
/// lose digits; `Document::raw` keeps them) or list of document ids.
struct Field_Value {
    /// Why a value could not be read.
    enum class Custom_Field_Error { missingValue };
    /// In the order of the alternatives of `value`.
    enum class Case { string, boolean, float_, docLink };

    std::variant<std::string, bool, float, std::vector<std::int64_t>> value;

    [[nodiscard]] Case kind() const { return static_cast<Case>(value.index()); }

    static Field_Value makeString(std::string text) { return {std::move(text)}; }
    static Field_Value makeBoolean(bool flag) { return {flag}; }
    static Field_Value makeFloat(float number) { return {number}; }
    static Field_Value makeDocLink(std::vector<std::int64_t> documents) { return {std::move(documents)}; }

    /// Each is null when the value is of another kind.
    [[nodiscard]] const std::string* asString() const { return std::get_if<std::string>(&value); }
    [[nodiscard]] const bool* asBoolean() const { return std::get_if<bool>(&value); }
    [[nodiscard]] const float* asFloat() const { return std::get_if<float>(&value); }
    [[nodiscard]] const std::vector<std::int64_t>* asDocLink() const {
        return std::get_if<std::vector<std::int64_t>>(&value);
    }

    bool operator==(const Field_Value&) const = default;
};

struct Custom_Field_of_Document {
    std::optional<Field_Value> value;
    std::int64_t field = 0; ///< id of a `Custom_Field`
};

struct Note {
    std::int64_t id = 0;
    std::optional<std::string> note;
    std::optional<std::string> created; ///< date text as it came
    std::optional<std::int64_t> document;
    std::optional<std::int64_t> user;
};

/// A document as the server delivered it. Texts may hold NUL.
struct Document {
    std::int64_t id = 0;
    std::optional<std::int64_t> correspondent;
    std::optional<std::int64_t> storage_path;
    std::optional<std::int64_t> document_type;
    std::string title;
    std::optional<std::string> content;
    std::optional<std::vector<std::int64_t>> tags;
    std::optional<std::string> created;  ///< date text as it came
    std::optional<std::string> modified; ///< date text as it came
    std::optional<std::string> added;    ///< date text as it came
    std::optional<std::int64_t> archive_serial_number;
    std::optional<std::string> original_file_name;
    std::optional<std::int64_t> owner;
    std::optional<bool> user_can_change;
    std::optional<Document_Permissions> permissions;
    std::optional<std::vector<Note>> notes;
    std::optional<std::vector<Custom_Field_of_Document>> custom_fields;

    /// A compact JSON object with the members that may be sent back, each value to the byte as it came: "title",
    /// "correspondent", "document_type", "storage_path", "tags", "created", "created_date", "archive_serial_number",
    /// "owner", "permissions", "custom_fields". A member that wasn't delivered is absent. Read it with `JsonObject`.
    std::string raw;
};

struct Documents : RecordPageWithIds<Document> {};

} // namespace ledgerfinch
