// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "records/Attributes.h"
#include "records/SavedView.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

/// What a form holds of a new tag, correspondent, document type or storage path.
struct NewAttribute {
    std::string name;
    std::string color; ///< of a tag: "#a6cee3"
    std::string match;
    std::int64_t matching_algorithm = 1;
    bool is_insensitive = true;
    bool is_inbox_tag = false; ///< of a tag
    std::string path;          ///< of a storage path
    std::optional<std::int64_t> owner;
    std::vector<std::int64_t> viewable_by_users;
    std::vector<std::int64_t> viewable_by_groups;
    std::vector<std::int64_t> editable_by_users;
    std::vector<std::int64_t> editable_by_groups;
};

struct NewCustomField {
    std::string name;
    Data_Type data_type = Data_Type::string;
    std::vector<std::string> select_options; ///< sent for select fields
    std::string default_currency;            ///< sent for monetary fields
};

/// The record as the server made it, or its answer: field errors as raw text.
template <class Record>
struct Created {
    int status = 0;
    std::optional<Record> record;
    std::string body; ///< UTF-8, empty when nobody answered
};

Created<Tag> createTag(ApiHandler& api, const NewAttribute& values);
Created<Correspondent> createCorrespondent(ApiHandler& api, const NewAttribute& values);
Created<Document_Type> createDocumentType(ApiHandler& api, const NewAttribute& values);
Created<Storage_Path> createStoragePath(ApiHandler& api, const NewAttribute& values);
Created<Custom_Field> createCustomField(ApiHandler& api, const NewCustomField& values);
/// The id of the value given is not sent.
Created<Saved_view> createSavedView(ApiHandler& api, const Saved_view& values);

} // namespace ledgerfinch
