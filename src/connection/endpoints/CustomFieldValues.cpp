// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/CustomFieldValues.h"

#include "connection/endpoints/BodyComposer.h"
#include "platform/Dates.h"
#include "records/Attributes.h"
#include "records/JsonReader.h"
#include "records/JsonWriter.h"
#include "store/entities/Entities.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <map>

namespace ledgerfinch {

namespace {

/// What a value object says, free of its context.
struct StoredValue {
    std::optional<std::string> value; ///< JSON
    std::string text;
    std::string currency;
    std::optional<Data_Type> type;
};

std::map<std::int64_t, StoredValue> storedValues(const CD_Document& document) {
    std::map<std::int64_t, StoredValue> values;
    for (const auto& value : document.custom_field_values()) {
        const auto field = value->ofField();
        if (!field) continue;
        values.emplace(field->id(), StoredValue{value->value(), value->value_as_string().value_or(""),
                                                value->currency().value_or(""),
                                                dataTypeFromRawValue(field->data_type().value_or(""))});
    }
    return values;
}

bool isPlainAmount(const std::string& text) {
    const auto point = text.find('.');
    const auto whole = text.substr(0, point);
    const auto decimals = point == std::string::npos ? std::string() : text.substr(point + 1);
    const auto digits = [](const std::string& part) {
        return std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; });
    };
    return !whole.empty() && digits(whole) && digits(decimals) &&
           (point == std::string::npos || (!decimals.empty() && decimals.size() <= 2));
}

/// The number with two decimals and a point, whatever the language of the desktop.
std::string twoDecimals(double amount) {
    std::array<char, 400> buffer{};
    const auto [end, failure] =
        std::to_chars(buffer.data(), buffer.data() + buffer.size(), amount, std::chars_format::fixed, 2);
    return failure == std::errc() ? std::string(buffer.data(), end) : std::string();
}

/// The digits of an amount. The text that was typed has some that 32 bits lose; it counts unless it speaks of another
/// number than the value.
std::string amountDigits(const StoredValue& stored, double amount) {
    if (isPlainAmount(stored.text)) {
        const auto typed = json::number(stored.text);
        // A zero before other digits is no JSON, but an amount all the same.
        if (!typed || static_cast<float>(*typed) == static_cast<float>(amount)) return stored.text;
    }
    return twoDecimals(amount);
}

/// An amount may be written "12.5" or "12.50".
std::string withoutEndingZeros(std::string digits) {
    if (digits.find('.') == std::string::npos) return digits;
    digits.erase(digits.find_last_not_of('0') + 1);
    if (digits.back() == '.') digits.pop_back();
    return digits;
}

std::string wholeNumber(const std::string& fragment) {
    const auto number = json::number(fragment);
    constexpr double kLimit = 9.0e18;
    if (!number || !std::isfinite(*number) || std::abs(*number) > kLimit) return "null";
    const auto exact = json::integer(fragment);
    return std::to_string(exact ? *exact : static_cast<std::int64_t>(*number));
}

bool sameFraction(const std::string& now, const std::string& saved) {
    const auto one = json::number(now);
    const auto other = json::number(saved);
    if (!one || !other) return false;
    // What is kept has 32 bits; read back and written with 64 it shows more digits, and is the same value.
    return *one == *other || *one == static_cast<double>(static_cast<float>(*other));
}

bool sameAmount(const StoredValue& now, const StoredValue& saved) {
    const auto one = json::number(*now.value);
    const auto other = json::number(*saved.value);
    if (!one || !other) return !one && !other && now.text == saved.text;
    return withoutEndingZeros(amountDigits(now, *one)) == withoutEndingZeros(amountDigits(saved, *other));
}

/// Whether both would be sent as the same value.
bool sameValue(const StoredValue& now, const StoredValue& saved) {
    if (now.currency != saved.currency || now.value.has_value() != saved.value.has_value()) return false;
    if (!now.value) return true;
    if (now.type == Data_Type::monetary) return sameAmount(now, saved);
    if (*now.value == *saved.value) return true;
    switch (now.type.value_or(Data_Type::string)) {
    case Data_Type::integer:
    case Data_Type::select:
        return wholeNumber(*now.value) == wholeNumber(*saved.value);
    case Data_Type::float_:
    case Data_Type::date:
        return sameFraction(*now.value, *saved.value);
    case Data_Type::documentlink: {
        const auto list = json::integers(*now.value);
        return list && list == json::integers(*saved.value);
    }
    case Data_Type::monetary:
    case Data_Type::string:
    case Data_Type::url:
    case Data_Type::boolean:
        break;
    }
    return false;
}

/// The typed JSON value; absent for a field without a type, whose value can't be told.
std::optional<std::string> typedValue(const StoredValue& stored) {
    if (!stored.type) return std::nullopt;
    if (!stored.value || !json::isValid(*stored.value)) return "null";
    switch (*stored.type) {
    case Data_Type::date: {
        const auto seconds = json::number(*stored.value);
        if (!seconds) return "null";
        return jsonQuoted(dates::formatDateOnly(dates::fromSecondsSinceReferenceDate(*seconds)));
    }
    case Data_Type::integer:
    case Data_Type::select:
        return wholeNumber(*stored.value);
    case Data_Type::monetary: {
        const auto amount = json::number(*stored.value);
        return amount ? jsonQuoted(stored.currency + amountDigits(stored, *amount)) : std::string("null");
    }
    case Data_Type::string:
    case Data_Type::url:
    case Data_Type::boolean:
    case Data_Type::float_:
    case Data_Type::documentlink:
        break;
    }
    return *stored.value;
}

} // namespace

bool customFieldsChanged(const CD_Document& document) {
    if (document.hasChanged("custom_field_values")) return true;
    const auto values = document.custom_field_values();
    return std::any_of(values.begin(), values.end(),
                       [](const auto& value) { return value->isUpdated() || value->isInserted(); });
}

std::string customFieldsNow(const CD_Document& document, const std::optional<std::string>& delivered) {
    const auto now = storedValues(document);
    std::map<std::int64_t, StoredValue> saved;
    withSavedObject(
        document, [&](const ManagedObject& object) { saved = storedValues(static_cast<const CD_Document&>(object)); });
    const auto isTouched = [&](std::int64_t field) {
        const auto before = saved.find(field);
        return before == saved.end() || !sameValue(now.at(field), before->second);
    };

    JsonWriter writer;
    const auto write = [&writer](std::int64_t field, std::string_view value) {
        writer.beginObject().member("field", field).rawMember("value", value).endObject();
    };
    writer.beginArray();
    std::map<std::int64_t, bool> written;
    const auto elements = delivered ? json::elements(*delivered) : std::nullopt;
    for (const auto& element : elements.value_or(std::vector<std::string>())) {
        const auto entry = JsonObject::parse(element);
        const auto field = entry ? entry->integer("field") : std::nullopt;
        if (!field || written[*field]) continue;
        const auto raw = std::string(entry->raw("value").value_or("null"));
        if (now.contains(*field)) write(*field, isTouched(*field) ? typedValue(now.at(*field)).value_or(raw) : raw);
        // A field that was never linked here can't have been taken out here.
        else if (!saved.contains(*field))
            write(*field, raw);
        written[*field] = true;
    }
    for (const auto& [field, value] : now) {
        if (written[field] || !isTouched(field)) continue;
        if (const auto typed = typedValue(value)) write(field, *typed);
    }
    return writer.endArray().take();
}

} // namespace ledgerfinch
