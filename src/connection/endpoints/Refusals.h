// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "objectstore/ObjectID.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

class ManagedObjectContext;
class PersistentContainer;

/// The line of a failed call: why the transport failed, or the status. Never the body, which may hold papers' text.
void logFailure(const ApiHandler& api, std::string_view format, const HttpResponse& response);

/// The repair entries of a request that changes the server. They are noted before it is sent and dropped once the
/// server has accepted it, so that even a program that ends in between finds them at its next start.
class PendingRepairs {
public:
    struct Record {
        std::string entityName;
        std::int64_t id = 0;
    };

    /// Durable when it returns. A null store: the one that is open now.
    PendingRepairs(ApiHandler& api, const std::shared_ptr<PersistentContainer>& store, std::vector<Record> records);
    /// Accepted: drops the entries, but for those that were there before.
    void settle();
    /// Refused or unheard: puts those back that were mended while the request was on its way.
    void confirm();

private:
    /// The entries of records that weren't on the list before.
    std::vector<ObjectID> put();

    ApiHandler& m_api;
    std::shared_ptr<ManagedObjectContext> m_context;
    std::vector<Record> m_records;
    std::vector<ObjectID> m_added;
};

} // namespace ledgerfinch
