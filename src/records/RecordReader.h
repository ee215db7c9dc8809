// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

// For the decoders of this folder only. A record is described by a table of its members; one function reads any of
// them.

#include "platform/Dates.h"
#include "records/JsonCursor.h"

#include <array>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ledgerfinch::decoding {

/// Whether a member's bytes go into the record's `raw`.
enum class Keep { no, yes };

template <class Record>
struct Member {
    std::string_view name;
    bool (*read)(Cursor&, Value&, Record&) = nullptr;
    bool required = false;
    Keep keep = Keep::no;
};

/// Specialised per record: `static constexpr std::array<Member<Record>, N> table`.
template <class Record>
struct Members;

template <class Record>
concept Described = requires {
    Members<Record>::table;
};

/// The slow road of an integer, for those written with a fraction or an exponent.
bool readIntegralNumber(Cursor& cursor, Value& value, std::int64_t& out);

inline bool read(Cursor& cursor, Value& value, std::string& out) {
    std::string_view text;
    if (!cursor.text(value, "a text", text)) return false;
    out.assign(text);
    return true;
}

inline bool read(Cursor& cursor, Value& value, std::int64_t& out) {
    return value.get_int64().get(out) == simdjson::SUCCESS || readIntegralNumber(cursor, value, out);
}

inline bool read(Cursor& cursor, Value& value, bool& out) {
    if (const auto error = value.get_bool().get(out)) return cursor.fail(error, "true or false");
    return true;
}

/// True when the value is null; the failure of a misspelled null shows when the value is read.
inline bool isNull(Value& value) {
    bool null = false;
    return value.is_null().get(null) == simdjson::SUCCESS && null;
}

template <Described Record>
bool read(Cursor& cursor, Value& value, Record& out);
template <class T>
bool read(Cursor& cursor, Value& value, std::vector<T>& out);
template <class T>
bool read(Cursor& cursor, Value& value, std::optional<T>& out);

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <auto Pointer, class Record>
bool readMember(Cursor& cursor, Value& value, Record& record) {
    using Field = std::remove_cvref_t<decltype(record.*Pointer)>;
    if constexpr (Described<Field>) record.*Pointer = Field{}; // nothing stays of an earlier member of the name
    return read(cursor, value, record.*Pointer);
}

/// A member that is read into a field. It is required unless the field is optional.
template <class Record, auto Pointer>
constexpr Member<Record> member(std::string_view name, Keep keep = Keep::no) {
    using Field = std::remove_cvref_t<decltype(std::declval<Record&>().*Pointer)>;
    return {name, &readMember<Pointer, Record>, !isOptional<Field>, keep};
}

/// A member that is kept in `raw` without a field of its own.
template <class Record>
constexpr Member<Record> keptOnly(std::string_view name) {
    return {name, [](Cursor& cursor, Value& value, Record&) { return cursor.skip(value); }, false, Keep::yes};
}

/// A member that nobody needs. Naming it spares the search through the table.
template <class Record>
constexpr Member<Record> unread(std::string_view name) {
    return {name, [](Cursor& cursor, Value& value, Record&) { return cursor.skip(value); }, false, Keep::no};
}

using DateParser = std::optional<Timestamp> (*)(std::string_view);
bool readDate(Cursor& cursor, Value& value, DateParser parse, Timestamp& out);

/// A date member, read by one of the parsers of `dates`.
template <class Record, auto Pointer, DateParser Parse>
constexpr Member<Record> dateMember(std::string_view name) {
    using Field = std::remove_cvref_t<decltype(std::declval<Record&>().*Pointer)>;
    return {name,
            [](Cursor& cursor, Value& value, Record& record) {
                Timestamp time{};
                if constexpr (isOptional<Field>) {
                    (record.*Pointer).reset();
                    if (isNull(value)) return true;
                }
                if (!readDate(cursor, value, Parse, time)) return false;
                record.*Pointer = time;
                return true;
            },
            !isOptional<Field>, Keep::no};
}

template <class T>
bool read(Cursor& cursor, Value& value, std::optional<T>& out) {
    if (isNull(value)) {
        out.reset();
        return true;
    }
    return read(cursor, value, out.emplace());
}

/// Room made when a list turns out not to be empty; saves the first steps of its growth. Large records come in pages.
template <class T>
inline constexpr std::size_t kFirstElements = sizeof(T) > 256 ? 100 : 4;

template <class T>
bool readElements(Cursor& cursor, simdjson::ondemand::array array, std::vector<T>& out) {
    out.clear();
    for (auto element : array) {
        Value item;
        if (const auto error = std::move(element).get(item)) {
            cursor.fail(error, "a value");
            return cursor.failedAt(out.size());
        }
        cursor.at(item);
        if (out.empty()) out.reserve(kFirstElements<T>);
        if (!read(cursor, item, out.emplace_back())) return cursor.failedAt(out.size() - 1);
    }
    return true;
}

template <class T>
bool read(Cursor& cursor, Value& value, std::vector<T>& out) {
    simdjson::ondemand::array array;
    if (const auto error = value.get_array().get(array)) return cursor.fail(error, "a list");
    return readElements(cursor, array, out);
}

/// The place of a key in the table, or the table's size.
template <std::size_t N, class Record>
std::size_t findMember(const std::array<Member<Record>, N>& table, std::string_view key) {
    std::size_t i = 0;
    while (i < N && table[i].name != key)
        ++i;
    return i;
}

/// Servers send members in a fixed order and leave some out, so one of the next two of the table is likely; this looks
/// without measuring the key. A key with escapes may spell the same name: then the long way finds it.
template <std::size_t N, class Record>
std::size_t guessMember(const std::array<Member<Record>, N>& table, simdjson::ondemand::field& field,
                        std::size_t next) {
    const char* raw = field.key().raw();
    for (const std::size_t i : {next, next + 1}) {
        if (i >= N) break;
        const std::string_view name = table[i].name;
        if (raw[name.size()] == '"' && std::memcmp(raw, name.data(), name.size()) == 0) return i;
    }
    return N;
}

/// Writes the kept members as one compact object.
template <std::size_t N, class Record>
std::string composeRaw(const std::array<Member<Record>, N>& table, const std::array<std::string_view, N>& kept) {
    std::size_t size = 2;
    for (std::size_t i = 0; i < N; ++i)
        if (!kept[i].empty()) size += table[i].name.size() + kept[i].size() + 4;
    std::string raw(size, '\0');
    char* to = raw.data();
    const auto put = [&to](std::string_view text) {
        std::memcpy(to, text.data(), text.size());
        to += text.size();
    };
    *to++ = '{';
    for (std::size_t i = 0; i < N; ++i) {
        if (kept[i].empty()) continue;
        if (to != raw.data() + 1) *to++ = ',';
        *to++ = '"';
        put(table[i].name);
        *to++ = '"';
        *to++ = ':';
        put(kept[i]);
    }
    *to++ = '}';
    raw.resize(static_cast<std::size_t>(to - raw.data()));
    return raw;
}

template <Described Record>
bool readMembers(Cursor& cursor, simdjson::ondemand::object object, Record& out) {
    constexpr const auto& table = Members<Record>::table;
    constexpr std::size_t count = table.size();
    static_assert(count <= 64);
    std::array<std::string_view, count> kept{};
    std::uint64_t seen = 0;
    std::size_t next = 0;

    for (auto element : object) {
        simdjson::ondemand::field field;
        if (const auto error = std::move(element).get(field)) return cursor.fail(error, "a member");
        Value& value = field.value();
        const std::string_view token = value.raw_json_token();
        cursor.at(token);
        std::size_t index = guessMember(table, field, next);
        if (index == count) {
            std::string_view key;
            if (!cursor.key(field, key)) return false;
            index = findMember(table, key);
        }
        if (index == count) {
            if (!cursor.skip(value)) return cursor.failedIn("(unknown key)");
            continue;
        }
        if (!table[index].read(cursor, value, out)) return cursor.failedIn(table[index].name);
        if (table[index].keep == Keep::yes) kept[index] = cursor.bytesAfterReading(token);
        seen |= std::uint64_t{1} << index;
        next = index + 1;
    }
    for (std::size_t i = 0; i < count; ++i) {
        if (!table[i].required || (seen >> i & 1) != 0) continue;
        cursor.fail("the key is missing");
        return cursor.failedIn(table[i].name);
    }
    if constexpr (requires { out.raw; }) out.raw = composeRaw(table, kept);
    return true;
}

template <Described Record>
bool read(Cursor& cursor, Value& value, Record& out) {
    simdjson::ondemand::object object;
    if (const auto error = value.get_object().get(object)) return cursor.fail(error, "an object");
    return readMembers(cursor, object, out);
}

/// The whole body as one record.
template <Described Record>
std::optional<Failure> decodeBody(std::string_view body, Record& out) {
    return parseBody(body, [&out](Cursor& cursor) {
        out = Record{};
        simdjson::ondemand::object root;
        if (const auto error = cursor.document().get_object().get(root)) return cursor.fail(error, "an object");
        return readMembers(cursor, root, out);
    });
}

/// The whole body as a bare list.
template <class T>
std::optional<Failure> decodeBody(std::string_view body, std::vector<T>& out) {
    return parseBody(body, [&out](Cursor& cursor) {
        simdjson::ondemand::array root;
        if (const auto error = cursor.document().get_array().get(root)) return cursor.fail(error, "a list");
        return readElements(cursor, root, out);
    });
}

} // namespace ledgerfinch::decoding
