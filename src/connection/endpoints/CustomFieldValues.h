// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "store/entities/CD_Document.h"

#include <optional>
#include <string>

namespace ledgerfinch {

/// Whether a field, or the value of one, was added, taken out or set since the document was saved. Inside its queue.
[[nodiscard]] bool customFieldsChanged(const CD_Document& document);

/// The list "custom_fields" of a changed document: values that differ from the saved ones in their typed form, all
/// others as delivered, with the fields that this device doesn't know. Inside the document's queue.
[[nodiscard]] std::string customFieldsNow(const CD_Document& document, const std::optional<std::string>& delivered);

} // namespace ledgerfinch
