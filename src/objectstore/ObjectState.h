// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObject.h"
#include "objectstore/ManagedObjectContext.h"
#include "objectstore/PersistentContainer.h"

#include <cstdint>
#include <utility>
#include <vector>

namespace ledgerfinch {

/// What an object has inside. Values lie by column: attributes first, then to-one columns as rows (0: none).
struct ManagedObject::State {
    struct Original {
        std::uint32_t column;
        Value value; ///< as last read or saved
    };
    struct LoadedSet {
        std::uint32_t relation;
        std::vector<std::int64_t> rows; ///< ascending; pending changes applied
    };
    enum class SavedAs : std::uint8_t { Nothing, Inserted, Updated, Deleted };

    std::vector<Value> values;       ///< empty until the first load
    std::vector<Original> originals; ///< one for each column with an unsaved change
    std::vector<LoadedSet> sets;     ///< relations at whose other end the truth lies, as far as they are loaded
    std::int64_t version = 0;
    bool loaded = false;                ///< the values are those of the store (with unsaved changes on top)
    bool inserted = false;              ///< pending
    bool removed = false;               ///< pending
    bool gone = false;                  ///< no row any more, or never to be one
    SavedAs savedAs = SavedAs::Nothing; ///< while the hooks after a save run

    [[nodiscard]] const Value* original(std::size_t column) const {
        for (const Original& entry : originals)
            if (entry.column == column) return &entry.value;
        return nullptr;
    }
    [[nodiscard]] std::vector<std::int64_t>* set(std::size_t relation) {
        for (LoadedSet& entry : sets)
            if (entry.relation == relation) return &entry.rows;
        return nullptr;
    }
    void dropSet(std::size_t relation) {
        std::erase_if(sets, [&](const LoadedSet& entry) { return entry.relation == relation; });
    }
    /// The row in a to-one column.
    [[nodiscard]] std::int64_t row(std::size_t column) const {
        return column < values.size() ? std::get<std::int64_t>(values[column]) : 0;
    }
};

/// The engine's way into objects and contexts.
class ObjectStoreAccess {
public:
    using State = ManagedObject::State;
    using Engine = ManagedObjectContext::Private;
    using Shared = PersistentContainer::Private;

    static State& state(const ManagedObject& object) { return *object.m_state; }
    static Engine& engine(const ManagedObjectContext& context) { return *context.m_d; }
    static Shared& shared(PersistentContainer& container) { return *container.m_d; }
    static void attach(ManagedObject& object, const ObjectID& id, const Entity& entity, ManagedObjectContext* context);
    static void detach(ManagedObject& object) { object.m_context = nullptr; }
    static void willSave(ManagedObject& object) { object.willSave(); }
    static void didSave(ManagedObject& object) { object.didSave(); }
    static std::shared_ptr<ManagedObjectContext> makeContext(std::unique_ptr<Engine> engine);
};

using ObjectState = ObjectStoreAccess::State;
using ContextEngine = ObjectStoreAccess::Engine;
using SharedStore = ObjectStoreAccess::Shared;

inline SharedStore& sharedBy(PersistentContainer& container) {
    return ObjectStoreAccess::shared(container);
}
inline ObjectState& stateOf(const ManagedObject& object) {
    return ObjectStoreAccess::state(object);
}

} // namespace ledgerfinch
