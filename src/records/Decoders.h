// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Logger.h"
#include "platform/Result.h"
#include "records/Attributes.h"
#include "records/Document.h"
#include "records/SavedView.h"
#include "records/ShareLink.h"
#include "records/Suggestions.h"
#include "records/Task.h"
#include "records/Users.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

/// What a decoder needs besides the body.
struct DecodeContext {
    /// Where the line of a failed decode goes; may be null. The line names keys and positions; a value
    /// that a failure quotes, such as a date that is none, is private in it.
    const Logger* console = nullptr;
    /// The setting "server". When it holds "https", every "http://" in a page's `next` becomes "https://".
    std::string serverSetting;
};

// All decoders are safe on any thread and on any bytes: bodies that aren't UTF-8 and lone surrogates read as U+FFFD. A
// wrong type in one field fails the record, a failing record fails its page. Unknown keys are skipped. Of a key that
// comes twice the last counts, whatever the first held; `raw` of a body that needed that has lost the spaces inside its
// values.

/// The error's message says what failed and where, and quotes nothing of the body: the dates of documents are plain
/// texts here. The caller prints it.
Result<Documents> decodeDocuments(std::string_view body, const DecodeContext& context);
std::optional<Document> decodeDocument(std::string_view body, const DecodeContext& context);

// On failure these print their line and return a page with `decoded` false.
Tags decodeTags(std::string_view body, const DecodeContext& context);
Correspondents decodeCorrespondents(std::string_view body, const DecodeContext& context);
Document_Types decodeDocumentTypes(std::string_view body, const DecodeContext& context);
Storage_Paths decodeStoragePaths(std::string_view body, const DecodeContext& context);
Custom_Fields decodeCustomFields(std::string_view body, const DecodeContext& context);
Saved_views decodeSavedViews(std::string_view body, const DecodeContext& context);
Users decodeUsers(std::string_view body, const DecodeContext& context);
PaperlessGroups decodeGroups(std::string_view body, const DecodeContext& context);
PaperlessShareLinks decodeShareLinks(std::string_view body, const DecodeContext& context);

// On failure these print their line and return nothing.
std::optional<std::vector<PaperlessTask>> decodeTasks(std::string_view body, const DecodeContext& context);
std::optional<Suggestions> decodeSuggestions(std::string_view body, const DecodeContext& context);
std::optional<UISettings> decodeUISettings(std::string_view body, const DecodeContext& context);
std::optional<Tag> decodeTag(std::string_view body, const DecodeContext& context);
std::optional<Correspondent> decodeCorrespondent(std::string_view body, const DecodeContext& context);
std::optional<Document_Type> decodeDocumentType(std::string_view body, const DecodeContext& context);
std::optional<Storage_Path> decodeStoragePath(std::string_view body, const DecodeContext& context);
std::optional<Custom_Field> decodeCustomField(std::string_view body, const DecodeContext& context);
std::optional<Saved_view> decodeSavedView(std::string_view body, const DecodeContext& context);
std::optional<User> decodeUser(std::string_view body, const DecodeContext& context);
std::optional<PaperlessGroup> decodeGroup(std::string_view body, const DecodeContext& context);
std::optional<PaperlessShareLink> decodeShareLink(std::string_view body, const DecodeContext& context);
/// The bare list of a document's notes.
std::optional<std::vector<Note>> decodeNotes(std::string_view body, const DecodeContext& context);

} // namespace ledgerfinch
