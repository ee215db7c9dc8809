// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace ledgerfinch {

class ManagedObjectContext;
class PersistentContainer;

/// The line of a failed call: why the transport failed, or the status. Never the body, which may hold papers' text.
void logFailure(const ApiHandler& api, std::string_view format, const HttpResponse& response);

/// Puts a record on the repair list of its store.
void noteRefused(const ApiHandler& api, std::string_view entityName, std::int64_t id,
                 const std::shared_ptr<ManagedObjectContext>& context);

} // namespace ledgerfinch
