// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ObjectID.h"
#include "platform/Uuid.h"

namespace ledgerfinch {

/// Hears which documents were saved, after the commit, on the queue of the context that saved. Implementations note the
/// id and return at once; what they feed runs elsewhere.
class DocumentSink {
public:
    virtual ~DocumentSink() = default;
    /// Inserted or changed.
    virtual void documentSaved(const ObjectID& document) = 0;
    /// By its uuid, since there is nothing left to look it up with.
    virtual void documentRemoved(const Uuid& uuid) = 0;
};

} // namespace ledgerfinch
