// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CustomFieldValues.h"

#include "platform/Dates.h"
#include "records/Attributes.h"
#include "records/JsonWriter.h"
#include "store/MergeSupport.h"
#include "store/MonetaryText.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <utility>

namespace ledgerfinch {
namespace {

/// A number in JSON: the description without a fraction of zero.
std::string jsonFloat(float number) {
    auto text = describeFloat(number);
    if (text.ends_with(".0")) text.resize(text.size() - 2);
    return text;
}

/// RFC 3986: some text of the characters that a URI may hold; letters beyond ASCII are taken as they come.
bool isUrl(std::string_view text) {
    if (text.empty()) return false;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const auto byte = static_cast<unsigned char>(text[index]);
        if (byte <= 0x20 || byte == 0x7F ||
            std::string_view(R"("<>\^`{|})").find(text[index]) != std::string_view::npos)
            return false;
        const auto isHex = [](char digit) {
            return std::string_view("0123456789abcdefABCDEF").find(digit) != std::string_view::npos;
        };
        if (byte == '%' && (index + 2 >= text.size() || !isHex(text[index + 1]) || !isHex(text[index + 2])))
            return false;
    }
    return true;
}

std::optional<EncodedFieldValue> encodeInteger(float number, std::string_view fieldName, const Logger& log) {
    // 2^63 itself is out of range; its neighbour below is the largest float that fits.
    if (!std::isfinite(number) || number < -0x1p63F || number >= 0x1p63F) {
        log.error("Value for custom field %s has invalid type", fieldName);
        return EncodedFieldValue{};
    }
    return EncodedFieldValue{std::to_string(static_cast<std::int64_t>(number)), describeFloat(number), std::nullopt};
}

std::optional<EncodedFieldValue> encodeNumber(float number, bool withText, std::string_view fieldName,
                                              const Logger& log) {
    if (!std::isfinite(number)) {
        log.error("Value for custom field %s has invalid type", fieldName);
        return EncodedFieldValue{};
    }
    return EncodedFieldValue{jsonFloat(number), withText ? std::optional(describeFloat(number)) : std::nullopt,
                             std::nullopt};
}

EncodedFieldValue encodeMonetary(std::string_view text) {
    const auto parts = splitMonetary(text);
    return {parts.number ? jsonFloat(*parts.number) : "null", parts.amount, parts.currency};
}

/// Nothing when the value isn't of the type's kind.
std::optional<EncodedFieldValue> encodeAs(Data_Type type, const Field_Value& value, std::string_view fieldName,
                                          const Logger& log) {
    const auto* text = value.asString();
    const auto* number = value.asFloat();
    switch (type) {
    case Data_Type::string:
        if (text) return EncodedFieldValue{jsonQuoted(*text), *text, std::nullopt};
        break;
    case Data_Type::url:
        if (text && isUrl(*text)) return EncodedFieldValue{jsonQuoted(*text), *text, std::nullopt};
        break;
    case Data_Type::date:
        if (const auto date = text ? dates::parseDateOnly(*text) : std::nullopt)
            return EncodedFieldValue{JsonWriter().number(dates::secondsSinceReferenceDate(*date)).take(),
                                     dates::formatNumericDate(*date), std::nullopt};
        break;
    case Data_Type::boolean:
        if (const auto* flag = value.asBoolean()) {
            const std::string name = *flag ? "true" : "false";
            return EncodedFieldValue{name, name, std::nullopt};
        }
        break;
    case Data_Type::integer:
        if (number) return encodeInteger(*number, fieldName, log);
        break;
    case Data_Type::float_:
        if (number) return encodeNumber(*number, true, fieldName, log);
        break;
    case Data_Type::monetary:
        if (text) return encodeMonetary(*text);
        break;
    case Data_Type::documentlink:
        if (const auto* documents = value.asDocLink())
            return EncodedFieldValue{JsonWriter().value(*documents).take(), std::nullopt, std::nullopt};
        break;
    case Data_Type::select:
        if (number) return encodeNumber(*number, false, fieldName, log);
        break;
    }
    return std::nullopt;
}

struct FieldSlot {
    Ref<CD_Custom_Field> field;
    EncodedFieldValue encoded;
};

/// One slot for each entry whose field is known, in order. A field that comes twice has its last fitting value in both.
std::vector<FieldSlot> slotsOf(merge::Finder& finder, const CD_Document& document,
                               const std::vector<Custom_Field_of_Document>& entries, const Logger& log) {
    std::vector<FieldSlot> slots;
    for (const auto& entry : entries) {
        auto field = finder.find<CD_Custom_Field>(entry.field);
        if (!field) continue;
        auto encoded = encodeFieldValue(field->data_type(), entry.value, field->name().value_or(""),
                                        document.title().value_or(""), log);
        const auto earlier =
            std::find_if(slots.begin(), slots.end(), [&](const FieldSlot& slot) { return slot.field == field; });
        if (!encoded && earlier != slots.end()) encoded = earlier->encoded;
        slots.push_back({field, encoded.value_or(EncodedFieldValue{})});
        for (auto& slot : slots)
            if (slot.field == field) slot.encoded = slots.back().encoded;
    }
    return slots;
}

using ComparableValue = std::pair<ObjectID, EncodedFieldValue>;

bool sameValues(const std::vector<Ref<CD_Custom_Field_Value>>& present, const std::vector<FieldSlot>& slots) {
    if (present.size() != slots.size()) return false;
    std::vector<ComparableValue> before;
    for (const auto& value : present)
        before.emplace_back(value->toOneID(CD_Custom_Field_Value::relationIndex<"ofField">()),
                            EncodedFieldValue{value->value(), value->value_as_string(), value->currency()});
    std::vector<ComparableValue> after;
    for (const auto& slot : slots)
        after.emplace_back(slot.field->objectID(), slot.encoded);
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    return before == after;
}

} // namespace

std::string describeFloat(float number) {
    if (std::isnan(number)) return "nan";
    if (std::isinf(number)) return number < 0 ? "-inf" : "inf";
    std::array<char, 64> buffer{};
    const float magnitude = std::fabs(number);
    const bool plain = magnitude == 0 || (magnitude >= 1e-4F && magnitude <= 0x1p24F);
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number,
                                   plain ? std::chars_format::fixed : std::chars_format::scientific)
                         .ptr;
    std::string text(buffer.data(), end);
    if (plain && text.find('.') == std::string::npos) text += ".0";
    return text;
}

std::optional<EncodedFieldValue> encodeFieldValue(const std::optional<std::string>& dataType,
                                                  const std::optional<Field_Value>& value, std::string_view fieldName,
                                                  std::string_view documentTitle, const Logger& log) {
    if (!value) return EncodedFieldValue{};
    // A field without a type tests its values as truth values, and stores none of them.
    const auto type = dataTypeFromRawValue(dataType.value_or("boolean"));
    if (!type) return EncodedFieldValue{};
    auto encoded = encodeAs(*type, *value, fieldName, log);
    if (!encoded)
        log.error("Received invalid value for custom field %s on document %s", fieldName, documentTitle);
    else if (!dataType)
        return EncodedFieldValue{};
    return encoded;
}

std::vector<Ref<CD_Custom_Field>> writeFieldValues(merge::Finder& finder, CD_Document& document,
                                                   const std::vector<Custom_Field_of_Document>& entries,
                                                   const Logger& log) {
    const auto slots = slotsOf(finder, document, entries, log);
    std::vector<Ref<CD_Custom_Field>> met;
    for (const auto& slot : slots) {
        document.addCustom_fieldsObject(slot.field);
        met.push_back(slot.field);
    }
    const auto present = document.custom_field_values();
    if (sameValues(present, slots)) return met;
    auto& context = finder.context();
    for (const auto& value : present)
        context.remove(*value);
    for (const auto& slot : slots) {
        const auto value = context.insert<CD_Custom_Field_Value>();
        value->setOfField(slot.field);
        value->setValue(slot.encoded.value);
        value->setValue_as_string(slot.encoded.text);
        value->setCurrency(slot.encoded.currency);
        document.addCustom_field_valuesObject(value);
    }
    return met;
}

} // namespace ledgerfinch
