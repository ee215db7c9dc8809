// SPDX-License-Identifier: GPL-3.0-or-later
#include "records/Encoders.h"

#include "records/JsonWriter.h"

#include <cstdio>

namespace ledgerfinch {
namespace {

/// ISO 8601 in UTC, with the microseconds where there are any, so that nothing is lost on the way back.
std::string iso8601(Timestamp time) {
    const auto second = std::chrono::floor<std::chrono::seconds>(time);
    std::string text = dates::formatIso8601Utc(second);
    const auto fraction = (time - second).count();
    if (fraction == 0 || !text.ends_with('Z')) return text;
    char digits[16];
    std::snprintf(digits, sizeof digits, ".%06dZ", static_cast<int>(fraction));
    text.pop_back();
    return text + digits;
}

template <class T>
void writeIfAny(JsonWriter& writer, std::string_view name, const std::optional<T>& value) {
    if (value) writer.member(name, *value);
}

void write(JsonWriter& writer, const Filter_rule& rule) {
    writer.beginObject().member("rule_type", rule.rule_type);
    writeIfAny(writer, "value", rule.value);
    writer.endObject();
}

} // namespace

std::string encode(const Filter_rule& rule) {
    JsonWriter writer;
    write(writer, rule);
    return writer.take();
}

std::string encode(const Saved_view& view) {
    JsonWriter writer;
    writer.beginObject().member("id", view.id).member("name", view.name);
    writeIfAny(writer, "show_on_dashboard", view.show_on_dashboard);
    writeIfAny(writer, "show_in_sidebar", view.show_in_sidebar);
    writeIfAny(writer, "sort_field", view.sort_field);
    writeIfAny(writer, "sort_reverse", view.sort_reverse);
    writer.key("filter_rules").beginArray();
    for (const Filter_rule& rule : view.filter_rules)
        write(writer, rule);
    return writer.endArray().endObject().take();
}

std::string encode(const Custom_Field_Extra_Data& data) {
    JsonWriter writer;
    writer.beginObject();
    writeIfAny(writer, "select_options", data.select_options);
    writeIfAny(writer, "default_currency", data.default_currency);
    return writer.endObject().take();
}

std::string encode(const PaperlessShareLink& link) {
    JsonWriter writer;
    writer.beginObject().member("id", link.id).member("created", iso8601(link.created));
    if (link.expiration) writer.member("expiration", iso8601(*link.expiration));
    writer.member("slug", link.slug).member("document", link.document).member("file_version", link.fileVersion);
    return writer.endObject().take();
}

} // namespace ledgerfinch
