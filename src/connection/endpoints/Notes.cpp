// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Notes.h"

#include "connection/endpoints/Pages.h"
#include "connection/endpoints/Refusals.h"
#include "records/Decoders.h"
#include "records/JsonWriter.h"
#include "store/CoreDataHandler.h"

namespace ledgerfinch {

namespace {

std::string notesPath(std::int64_t documentId) {
    return "/api/documents/" + std::to_string(documentId) + "/notes/";
}

NotesAnswer sendNotes(ApiHandler& api, std::int64_t documentId, HttpRequest request) {
    PendingRepairs repairs(api, nullptr, {{std::string(CD_Document::kEntityName), documentId}});
    const auto response = api.send(std::move(request));
    NotesAnswer answer{effectiveStatus(response), std::nullopt};
    if (!status::isSuccess(answer.status)) {
        logFailure(api, "Error updating document %{public}s", response);
        repairs.confirm();
    } else {
        repairs.settle();
        answer.notes = decodeNotes(response.body, api.decodeContext());
    }
    return answer;
}

} // namespace

NotesAnswer addNote(ApiHandler& api, std::int64_t documentId, const std::string& text) {
    auto request = api.request("POST", notesPath(documentId), ApiHandler::Accept::Yes);
    JsonWriter body;
    body.beginObject().member("note", text).endObject();
    ApiHandler::setJsonBody(request, body.take());
    return sendNotes(api, documentId, std::move(request));
}

NotesAnswer removeNote(ApiHandler& api, std::int64_t documentId, std::int64_t noteId) {
    return sendNotes(
        api, documentId,
        api.request("DELETE", notesPath(documentId) + "?id=" + std::to_string(noteId), ApiHandler::Accept::Yes));
}

} // namespace ledgerfinch
