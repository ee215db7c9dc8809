// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Model.h"
#include "store/entities/DocumentSink.h"

#include <memory>

namespace ledgerfinch {

/// The schema "Ledgerfinch": the fourteen entities that mirror a server, and RepairEntry. Lives for the whole process.
const Model& ledgerfinchModel();
/// The same schema, whose documents report their saves to the sink. The model holds the sink alive and must outlive
/// every store opened with it.
std::unique_ptr<const Model> makeLedgerfinchModel(std::shared_ptr<DocumentSink> sink);
/// The schema of the custom queries, which lie in a store of their own. Lives for the whole process.
const Model& queryModel();

} // namespace ledgerfinch
