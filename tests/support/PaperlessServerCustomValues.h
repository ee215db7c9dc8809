// SPDX-License-Identifier: GPL-3.0-or-later
// Custom field values of documents: what a field type takes, and how links between documents mirror each other.
#pragma once

#include "support/PaperlessServerWire.h"

namespace ledgerfinch::support {

struct CheckedValue {
    Json value;           ///< as it is stored
    std::string error;    ///< of a 400, when not empty
    bool crashes = false; ///< the real server answers 500
};

/// Checks a value that a request gives for a field.
CheckedValue checkCustomValue(const State& state, const CustomField& field, const Json& value, const ApiShape& api);

struct CheckedValues {
    std::vector<CustomFieldValue> values;
    Json errors; ///< null, or what stands under "custom_fields" in a 400
    bool crashes = false;
};

/// Checks the whole "custom_fields" list of a request.
CheckedValues checkCustomValues(const State& state, const Json& list, const ApiShape& api);

/// Replaces the values of a document: those that stay keep their place, those not mentioned go.
/// Documents linked or no longer linked get or lose the link back, and are touched by it.
void storeCustomValues(State& state, Document& document, const std::vector<CustomFieldValue>& values);

/// The names of all data types that the release knows.
const std::vector<std::string_view>& dataTypes(const Release& release);

} // namespace ledgerfinch::support
