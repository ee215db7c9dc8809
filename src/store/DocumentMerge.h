// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/Document.h"
#include "store/CoreDataHandler.h"

namespace ledgerfinch::merge {

/// Brings one document to what the server delivered, saves it, and turns it back into a fault, so that memory stays
/// flat while thousands pass through. Inside the context's queue. Failures are logged.
Result<ObjectID> mergeDocument(ManagedObjectContext& context, const Document& record, Authority authority,
                               const Logger& log);

} // namespace ledgerfinch::merge
