// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/DocumentText.h"

#include "platform/Text.h"

#include <algorithm>

namespace ledgerfinch::cli {
namespace {

template <class Attribute>
void writeAttribute(JsonWriter& json, std::string_view key, const Ref<Attribute>& attribute) {
    json.key(key);
    if (!attribute) {
        json.null();
        return;
    }
    json.beginObject().member("id", attribute->id()).member("name", attribute->name()).endObject();
}

} // namespace

std::string dayText(const std::optional<Timestamp>& time) {
    return time ? dates::formatDateOnly(*time) : std::string();
}

std::optional<std::string> momentText(const std::optional<Timestamp>& time) {
    if (!time) return std::nullopt;
    return dates::formatIso8601Utc(*time);
}

std::string titleText(const CD_Document& document) {
    return document.title().value_or("Untitled Document");
}

std::string serialNumberText(const CD_Document& document) {
    const auto number = document.archive_serial_number();
    return number == 0 ? std::string() : std::to_string(number);
}

std::string ownerText(const CD_Document& document) {
    const auto owner = document.owner();
    return owner ? userText(*owner) : std::string();
}

std::string userText(const CD_User& user) {
    return user.username().value_or("user " + std::to_string(user.id()));
}

std::string groupText(const CD_Group& group) {
    return group.name().value_or("group " + std::to_string(group.id()));
}

std::vector<Ref<CD_Tag>> sortedTags(const CD_Document& document) {
    auto tags = document.tags();
    std::stable_sort(tags.begin(), tags.end(), [](const Ref<CD_Tag>& first, const Ref<CD_Tag>& second) {
        return text::compareLocalizedStandard(first->attributeName(), second->attributeName()) < 0;
    });
    return tags;
}

std::string tagsText(const CD_Document& document) {
    std::string joined;
    for (const auto& tag : sortedTags(document))
        joined += (joined.empty() ? "" : ", ") + tag->attributeName();
    return joined;
}

void writeDocumentMembers(JsonWriter& json, const CD_Document& document) {
    const auto created = document.created();
    const auto serialNumber = document.archive_serial_number();
    json.member("id", document.id())
        .member("title", document.title())
        .member("created", created ? std::optional(dayText(created)) : std::nullopt)
        .member("added", momentText(document.added()))
        .member("modified", momentText(document.modified()))
        .member("archive_serial_number", serialNumber == 0 ? std::nullopt : std::optional(serialNumber))
        .member("original_file_name", document.original_file_name());
    writeAttribute(json, "correspondent", document.correspondent());
    writeAttribute(json, "document_type", document.document_type());
    writeAttribute(json, "storage_path", document.storage_path());
    json.key("owner");
    if (const auto owner = document.owner())
        json.beginObject().member("id", owner->id()).member("username", owner->username()).endObject();
    else
        json.null();
    json.key("tags").beginArray();
    for (const auto& tag : sortedTags(document))
        json.beginObject().member("id", tag->id()).member("name", tag->name()).endObject();
    json.endArray();
}

} // namespace ledgerfinch::cli
