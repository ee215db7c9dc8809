// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch {

/// Whether the body of a custom field's update speaks of a select field.
[[nodiscard]] bool isSelectField(std::string_view body);

/// From the earlier text of an option to its new one.
using OptionRenames = std::vector<std::pair<std::string, std::string>>;

struct TranslatedField {
    bool mayBeSent = false;
    int status = 0; ///< where it may not be sent: why
    std::string body;
    std::optional<int> version; ///< the version of the interface that the body is written in, where it isn't the usual
};

/// The body with the ids of the options. Servers keep a document's choice by the id of its option. The usual version of
/// the interface knows only the options' texts, and a server that keeps ids then gives every option a new one: each
/// document would lose its choice. So the ids are asked for first, in a version that tells them. A server that keeps
/// no ids gets the body as it is.
///
/// An "extra_data" that the person didn't touch goes as it was just received. An option keeps its id under an equal
/// text or the text it was renamed to; any other text is a new option.
TranslatedField withOptionIds(ApiHandler& api, std::string_view path, const std::string& body, bool changesExtraData,
                              const OptionRenames& renames);

} // namespace ledgerfinch
