// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObjectContext.h"
#include "platform/Logger.h"
#include "records/Document.h"
#include "store/entities/Entities.h"

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

namespace merge {
class Finder;
}

/// What a CD_Custom_Field_Value holds.
struct EncodedFieldValue {
    std::optional<std::string> value; ///< JSON
    std::optional<std::string> text;  ///< for display and predicates
    std::optional<std::string> currency;
    auto operator<=>(const EncodedFieldValue&) const = default;
};

/// Converts a delivered value for a field of this `data_type`. Nothing, and a logged line, for a value that doesn't fit
/// the type; an empty result for a value that is absent or of a type that isn't known.
std::optional<EncodedFieldValue> encodeFieldValue(const std::optional<std::string>& dataType,
                                                  const std::optional<Field_Value>& value, std::string_view fieldName,
                                                  std::string_view documentTitle, const Logger& log);

/// Brings the document's fields and values to what was delivered; rewrites the values only when they differ. Entries
/// whose field isn't known here are dropped. The fields met. Inside the context's queue.
std::vector<Ref<CD_Custom_Field>> writeFieldValues(merge::Finder& finder, CD_Document& document,
                                                   const std::vector<Custom_Field_of_Document>& entries,
                                                   const Logger& log);

/// A 32-bit number as people read it: "5.0", "12.5", "1e+20"; the fewest digits that read back.
std::string describeFloat(float number);

} // namespace ledgerfinch
