// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/JsonReader.h"

#include "records/JsonWriter.h"
#include "records/RecordReader.h"

#include <algorithm>
#include <cstddef>
#include <numeric>

namespace ledgerfinch {
namespace {

using decoding::Cursor;
using decoding::Value;

/// Reads a text that is one JSON value. The parser wants a container around it.
template <class T>
std::optional<T> readFragment(std::string_view fragment) {
    std::string list;
    list.reserve(fragment.size() + 2);
    list.append(1, '[').append(fragment).append(1, ']');
    std::vector<T> values;
    if (decoding::decodeBody(list, values) || values.size() != 1) return std::nullopt;
    return std::move(values.front());
}

using MemberTexts = std::vector<std::pair<std::string, std::string>>;

/// Cheaper than sorting for the objects that records keep.
bool isSmallWithoutDoubles(const MemberTexts& members) {
    constexpr std::size_t kSmall = 16;
    if (members.size() > kSmall) return false;
    for (std::size_t i = 1; i < members.size(); ++i)
        for (std::size_t j = 0; j < i; ++j)
            if (members[i].first == members[j].first) return false;
    return true;
}

/// Where a name comes twice, its last value moves to its first place and the others go.
void keepLastOfEach(MemberTexts& members) {
    if (isSmallWithoutDoubles(members)) return;
    std::vector<std::size_t> order(members.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return members[a].first < members[b].first; });
    std::vector<bool> overtaken(members.size());
    bool any = false;
    for (std::size_t i = 1, first = 0; i < order.size(); ++i) {
        if (members[order[i]].first != members[order[first]].first) {
            first = i;
            continue;
        }
        members[order[first]].second = std::move(members[order[i]].second);
        overtaken[order[i]] = any = true;
    }
    if (!any) return;
    std::size_t kept = 0;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (overtaken[i]) continue;
        if (kept != i) members[kept] = std::move(members[i]);
        ++kept;
    }
    members.resize(kept);
}

/// A value that is only checked.
struct Anything {};
struct Number {
    double value = 0;
};

} // namespace

namespace decoding {

static bool read(Cursor& cursor, Value& value, Anything&) {
    return cursor.skip(value);
}
static bool read(Cursor& cursor, Value& value, Number& out) {
    if (const auto error = value.get_double().get(out.value)) return cursor.fail(error, "a number");
    return true;
}

} // namespace decoding

std::optional<JsonObject> JsonObject::parse(std::string_view text) {
    JsonObject result;
    const auto failure = decoding::parseBody(text, [&result](Cursor& cursor) {
        result.m_members.clear();
        simdjson::ondemand::object root;
        if (const auto error = cursor.document().get_object().get(root)) return cursor.fail(error, "an object");
        for (auto element : root) {
            simdjson::ondemand::field field;
            if (const auto error = std::move(element).get(field)) return cursor.fail(error, "a member");
            std::string_view key;
            if (!cursor.key(field, key)) return false;
            Value value = field.value();
            std::string name(key);
            const std::string_view token = value.raw_json_token();
            if (!cursor.skip(value)) return false;
            result.m_members.emplace_back(std::move(name), cursor.bytesAfterReading(token));
        }
        return true;
    });
    if (failure) return std::nullopt;
    keepLastOfEach(result.m_members);
    return result;
}

std::optional<std::string_view> JsonObject::raw(std::string_view name) const {
    const auto found =
        std::find_if(m_members.begin(), m_members.end(), [&](const auto& member) { return member.first == name; });
    if (found == m_members.end()) return std::nullopt;
    return found->second;
}

bool JsonObject::isNull(std::string_view name) const {
    return raw(name) == std::string_view("null");
}

std::optional<std::int64_t> JsonObject::integer(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? json::integer(*fragment) : std::nullopt;
}

std::optional<double> JsonObject::number(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? json::number(*fragment) : std::nullopt;
}

std::optional<bool> JsonObject::boolean(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? json::boolean(*fragment) : std::nullopt;
}

std::optional<std::string> JsonObject::text(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? json::text(*fragment) : std::nullopt;
}

std::optional<std::vector<std::int64_t>> JsonObject::integers(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? json::integers(*fragment) : std::nullopt;
}

std::optional<std::vector<std::string>> JsonObject::texts(std::string_view name) const {
    const auto fragment = raw(name);
    std::vector<std::string> texts;
    if (!fragment || decoding::decodeBody(*fragment, texts)) return std::nullopt;
    return texts;
}

std::optional<JsonObject> JsonObject::object(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? parse(*fragment) : std::nullopt;
}

std::optional<std::vector<std::string>> JsonObject::elements(std::string_view name) const {
    const auto fragment = raw(name);
    return fragment ? json::elements(*fragment) : std::nullopt;
}

void JsonObject::setRaw(std::string_view name, std::string_view fragment) {
    for (auto& [key, value] : m_members) {
        if (key != name) continue;
        value = fragment;
        return;
    }
    m_members.emplace_back(name, fragment);
}

void JsonObject::remove(std::string_view name) {
    std::erase_if(m_members, [&](const auto& member) { return member.first == name; });
}

std::string JsonObject::toText() const {
    JsonWriter writer;
    writer.beginObject();
    for (const auto& [name, value] : m_members)
        writer.rawMember(name, value);
    return writer.endObject().take();
}

namespace json {

std::optional<std::int64_t> integer(std::string_view fragment) {
    return readFragment<std::int64_t>(fragment);
}

std::optional<double> number(std::string_view fragment) {
    const auto number = readFragment<Number>(fragment);
    if (!number) return std::nullopt;
    return number->value;
}

std::optional<bool> boolean(std::string_view fragment) {
    // Exactly the two words; a std::vector<bool> could not be read into.
    if (fragment == "true") return true;
    if (fragment == "false") return false;
    return std::nullopt;
}

std::optional<std::string> text(std::string_view fragment) {
    return readFragment<std::string>(fragment);
}

std::optional<std::vector<std::int64_t>> integers(std::string_view fragment) {
    std::vector<std::int64_t> numbers;
    if (decoding::decodeBody(fragment, numbers)) return std::nullopt;
    return numbers;
}

std::optional<std::vector<std::string>> elements(std::string_view fragment) {
    std::vector<std::string> found;
    const auto failure = decoding::parseBody(fragment, [&found](Cursor& cursor) {
        found.clear();
        simdjson::ondemand::array root;
        if (const auto error = cursor.document().get_array().get(root)) return cursor.fail(error, "a list");
        for (auto element : root) {
            Value value;
            if (const auto error = std::move(element).get(value)) return cursor.fail(error, "a value");
            const std::string_view token = value.raw_json_token();
            if (!cursor.skip(value)) return false;
            found.emplace_back(cursor.bytesAfterReading(token));
        }
        return true;
    });
    if (failure) return std::nullopt;
    return found;
}

bool isValid(std::string_view text) {
    return readFragment<Anything>(text).has_value();
}

} // namespace json
} // namespace ledgerfinch
