// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Refusals.h"

#include "store/CoreDataHandler.h"
#include "store/RepairEntries.h"
#include "store/RepairList.h"

#include <utility>

namespace ledgerfinch {

void logFailure(const ApiHandler& api, std::string_view format, const HttpResponse& response) {
    api.log().error(format, response.error ? response.error->description : "status " + std::to_string(response.status));
}

PendingRepairs::PendingRepairs(ApiHandler& api, const std::shared_ptr<PersistentContainer>& store,
                               std::vector<Record> records)
    : m_api(api), m_context((store ? store : api.core().persistenceContainer())->newBackgroundContext()),
      m_records(std::move(records)) {
    m_added = put();
}

std::vector<ObjectID> PendingRepairs::put() {
    std::vector<ObjectID> added;
    m_context->performAndWait([&] {
        for (const auto& record : m_records)
            if (const auto entry = repair::put(*m_context, record.entityName, record.id, RepairList::kRefused))
                added.push_back(entry->objectID());
        if (!m_context->hasChanges()) return;
        const auto saved = m_context->save();
        if (!saved) m_api.log().error("Couldn't note a repair: %{public}s", saved.error().message);
    });
    return added;
}

void PendingRepairs::settle() {
    if (m_added.empty()) return;
    m_context->performAndWait([&] {
        // These entries and no others: another process's refusal of the same record is one of its own.
        for (const auto& entry : m_added)
            repair::drop(*m_context, entry);
        const auto saved = m_context->save();
        if (!saved) m_api.log().error("Couldn't drop a repair: %{public}s", saved.error().message);
    });
}

void PendingRepairs::confirm() {
    (void)put();
}

} // namespace ledgerfinch
