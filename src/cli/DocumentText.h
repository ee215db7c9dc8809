// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Dates.h"
#include "records/JsonWriter.h"
#include "store/entities/Entities.h"

#include <optional>
#include <string>

/// What lists and pages show of a document, as raw texts (whoever writes them to a terminal makes them printable).
/// Inside the document's context.
namespace ledgerfinch::cli {

/// The device's day; empty for none.
std::string dayText(const std::optional<Timestamp>& time);
/// "2024-03-01T12:30:00Z"; absent for none.
std::optional<std::string> momentText(const std::optional<Timestamp>& time);

std::string titleText(const CD_Document& document);
/// Empty when the document has none.
std::string serialNumberText(const CD_Document& document);
std::string ownerText(const CD_Document& document);
/// Joined by ", ", in the order of their names.
std::string tagsText(const CD_Document& document);
/// The name of an attribute, empty when there is none.
template <class Attribute>
std::string nameText(const Ref<Attribute>& attribute) {
    return attribute ? attribute->attributeName() : std::string();
}
std::string userText(const CD_User& user);
std::string groupText(const CD_Group& group);

/// The document's tags in the order of their names.
std::vector<Ref<CD_Tag>> sortedTags(const CD_Document& document);

/// The members that list and page have in common, into an open object. The keys are an interface: "id", "title",
/// "created", "added", "modified", "archive_serial_number", "original_file_name", "correspondent", "document_type",
/// "storage_path", "owner", "tags". "created" is a day, the other times are moments in UTC.
void writeDocumentMembers(JsonWriter& json, const CD_Document& document);

} // namespace ledgerfinch::cli
