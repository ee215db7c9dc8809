// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "records/Document.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

struct NotesAnswer {
    int status = 0;
    std::optional<std::vector<Note>> notes; ///< the document's notes after the call, where the server told them
};
NotesAnswer addNote(ApiHandler& api, std::int64_t documentId, const std::string& text);
NotesAnswer removeNote(ApiHandler& api, std::int64_t documentId, std::int64_t noteId);

} // namespace ledgerfinch
