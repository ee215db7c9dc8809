// SPDX-License-Identifier: GPL-3.0-or-later
// Records as the JSON that an API version shows.
#pragma once

#include "support/PaperlessServerWire.h"

namespace ledgerfinch::support {

struct DocumentShape {
    const User* viewer = nullptr; ///< empty: nobody in particular, as in the global search
    ApiShape api;
    bool fullPermissions = false;
    bool truncated = false;
    std::vector<std::string> fields; ///< empty: all
    bool withoutNotes = false;       ///< the trash hides them
    bool withDuplicates = false;     ///< looked for when one document is asked for
};

DocumentShape shapeOf(const Context& context);

/// Appends the record; false when the real server fails on it, as on a note whose author is gone.
bool appendDocument(std::string& to, const State& state, const Document& document, const DocumentShape& shape,
                    std::string_view extra = {});

/// "2024-03-01 ACME Corp. Title.pdf"
std::string publicFileName(const State& state, const Document& document, std::string_view extension);

/// The calendar day, correspondent and title.
std::string documentLabel(const State& state, const Document& document);

Json permissionsJson(const ObjectPermissions& permissions);

struct AttributeShape {
    const User* viewer = nullptr;
    ApiShape api;
    bool fullPermissions = false;
    std::optional<std::int64_t> documentCount; ///< left out of the answers to POST
    bool withLastCorrespondence = false;
};
Json attributeJson(const State& state, Kind kind, const Attribute& attribute, const AttributeShape& shape,
                   const DocumentCounts* counts = nullptr);

Json customFieldJson(const CustomField& field, const ApiShape& api, std::optional<std::int64_t> documentCount);
Json customFieldValueJson(const State& state, const CustomFieldValue& value, const ApiShape& api);
Json savedViewJson(const SavedView& view, const User& viewer, bool fullPermissions, const ApiShape& api);
Json shareLinkJson(const ShareLink& link);
Json groupJson(const Group& group);
Json userJson(const State& state, const User& user);
Json taskJson(const State& state, const Task& task, const ApiShape& api);
/// "pending", "started", "success" or "failure"
std::string_view taskStatus(const Task& task);
/// "consume_file" or what else the worker does
std::string_view taskKindName(const Task& task);
/// A document as another one's twin.
Json duplicateJson(const Document& document);
/// Empty when an author is gone and the version can't say so.
std::optional<Json> notesJson(const State& state, const Document& document, const ApiShape& api);

/// How many documents of each attribute this user sees.
DocumentCounts countDocuments(const State& state, const User& viewer);

Json orNull(const OptionalId& id);

} // namespace ledgerfinch::support
