// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Model.h"
#include "objectstore/ObjectID.h"

#include <memory>
#include <span>
#include <string>
#include <vector>

namespace ledgerfinch {

class ManagedObjectContext;

/// An object of one context, used only inside that context's queue. Its values load on first touch (a fault) and are
/// kept until a refresh. Relations are held as ids, so objects never keep each other alive. An object whose row was
/// deleted answers with its last values (or with absent ones, if it never loaded) and isDeleted; it never crashes.
/// After its context is gone every read answers as then, every write is dropped.
class ManagedObject : public std::enable_shared_from_this<ManagedObject> {
public:
    ManagedObject();
    virtual ~ManagedObject();
    ManagedObject(const ManagedObject&) = delete;
    ManagedObject& operator=(const ManagedObject&) = delete;

    [[nodiscard]] const ObjectID& objectID() const { return m_id; }
    [[nodiscard]] const Entity& entity() const { return *m_entity; }
    [[nodiscard]] ManagedObjectContext* context() const { return m_context; }

    /// Inserted and not saved yet.
    [[nodiscard]] bool isInserted() const;
    /// Saved before, with unsaved changes.
    [[nodiscard]] bool isUpdated() const;
    /// Deleted in this context, or its row is gone from the store.
    [[nodiscard]] bool isDeleted() const;
    /// Values not loaded.
    [[nodiscard]] bool isFault() const;
    /// True when this attribute or relation has an unsaved change (its value differs from the one last read or saved).
    [[nodiscard]] bool hasChanged(std::string_view property) const;
    [[nodiscard]] std::vector<std::string> changedProperties() const;

    /// Attributes by position in the entity's description. Setting an equal value changes nothing.
    [[nodiscard]] const Value& value(std::size_t attribute) const;
    void setValue(std::size_t attribute, Value value);
    /// By name, for predicates and sort keys; absent for an unknown name.
    [[nodiscard]] const Value& value(std::string_view attributeName) const;

    /// Relations by position. To-one: null when there is none or its row is gone.
    [[nodiscard]] std::shared_ptr<ManagedObject> toOne(std::size_t relation) const;
    [[nodiscard]] ObjectID toOneID(std::size_t relation) const;
    void setToOne(std::size_t relation, const ManagedObject* target);
    /// To-many: a set, ordered by row. Both sides of a relation always agree inside a context.
    [[nodiscard]] std::vector<std::shared_ptr<ManagedObject>> toMany(std::size_t relation) const;
    [[nodiscard]] std::vector<ObjectID> toManyIDs(std::size_t relation) const;
    /// Without loading the members.
    [[nodiscard]] std::size_t toManyCount(std::size_t relation) const;
    /// Replaces the whole set; duplicates and nulls are passed over. Equal sets change nothing.
    void setToMany(std::size_t relation, std::span<const std::shared_ptr<ManagedObject>> members);
    void addToMany(std::size_t relation, const ManagedObject& member);
    void removeFromMany(std::size_t relation, const ManagedObject& member);

protected:
    /// Called inside a save before (willSave) and after (didSave, committed) the object is written. They collect; they
    /// don't work. isInserted, isUpdated and isDeleted still tell in didSave what was saved. A willSave may change
    /// attributes of its own object.
    virtual void willSave() {}
    virtual void didSave() {}

private:
    friend class ManagedObjectContext;
    friend class ObjectStoreAccess; // the engine's own files; nobody else
    struct State;

    ObjectID m_id;
    const Entity* m_entity = nullptr;
    ManagedObjectContext* m_context = nullptr;
    std::unique_ptr<State> m_state;
};

template <class T>
using Ref = std::shared_ptr<T>;

} // namespace ledgerfinch
