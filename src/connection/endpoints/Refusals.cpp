// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Refusals.h"

#include "store/CoreDataHandler.h"
#include "store/RepairList.h"

namespace ledgerfinch {

void logFailure(const ApiHandler& api, std::string_view format, const HttpResponse& response) {
    api.log().error(format, response.error ? response.error->description : "status " + std::to_string(response.status));
}

void noteRefused(const ApiHandler& api, std::string_view entityName, std::int64_t id,
                 const std::shared_ptr<ManagedObjectContext>& context) {
    const auto noted = RepairList(api.core()).add(entityName, id, RepairList::kRefused, context);
    if (!noted) api.log().error("Couldn't note a refused write: %{public}s", noted.error().message);
}

} // namespace ledgerfinch
