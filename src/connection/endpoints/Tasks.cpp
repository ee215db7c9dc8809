// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Tasks.h"

#include "connection/endpoints/Pages.h"
#include "records/Decoders.h"

namespace ledgerfinch {

TaskList fetchTasks(ApiHandler& api, Cancellation* cancellation) {
    const auto response = api.send(api.request("GET", "/api/tasks/", ApiHandler::Accept::Yes), cancellation);
    TaskList list{effectiveStatus(response), {}};
    if (response.status == 401)
        api.log().error("server didn't accept stored token!");
    else if (response.status != 200 && response.status != 0)
        api.log().error("received unexpected response from server while fetching saved views: %{public}ld",
                        response.status);
    if (list.status != 200) return list;
    if (auto tasks = decodeTasks(response.body, api.decodeContext()))
        list.tasks = std::move(*tasks);
    else
        list.status = api.noteUnreadable(response);
    return list;
}

std::optional<Suggestions> fetchSuggestions(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    const std::string path = "/api/documents/" + std::to_string(documentId) + "/suggestions/";
    const auto response = api.send(api.request("GET", path, ApiHandler::Accept::No), cancellation);
    if (effectiveStatus(response) != 200) return std::nullopt;
    return decodeSuggestions(response.body, api.decodeContext());
}

} // namespace ledgerfinch
