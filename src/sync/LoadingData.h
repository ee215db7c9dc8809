// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <string_view>

namespace ledgerfinch {

/// The stage of a sync, as shown to the person. `finished` is also the idle state.
enum class loadingData {
    groups,
    users,
    tags,
    document_types,
    correspondents,
    storage_paths,
    custom_fields,
    documents,
    custom_views,
    downloading,
    finished,
    error
};

/// The stage's text, untranslated.
[[nodiscard]] std::string_view stageText(loadingData stage);

} // namespace ledgerfinch
