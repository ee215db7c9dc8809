// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/Entities.h"

#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch::cli {

/// One custom field of a document, ready to be shown.
struct CustomFieldLine {
    std::int64_t id = 0;
    std::string name;
    std::string dataType; ///< as the server spells it
    /// The value as JSON: to the digit as the server delivered it where it did.
    std::string json;
    /// The value for a person: a select field's label, documents as "#12, #15"; empty for no value.
    std::string text;
};

/// In the order of the fields' names. Inside the document's context.
std::vector<CustomFieldLine> customFieldLines(const CD_Document& document);

} // namespace ledgerfinch::cli
