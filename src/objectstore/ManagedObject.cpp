// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ManagedObject.h"

#include "objectstore/ContextPrivate.h"
#include "objectstore/Values.h"

#include <algorithm>
#include <cassert>

namespace ledgerfinch {
namespace {

/// The engine of a living context, entered for one call; null after the context is gone.
ContextEngine* engineOf(const ManagedObject& object) {
    ManagedObjectContext* context = object.context();
    if (!context) return nullptr;
    ContextEngine& engine = ObjectStoreAccess::engine(*context);
    assert(engine.isInQueue() && "an object is used inside its context's queue");
    return &engine;
}

/// Loading changes what an object caches, not what it is.
ManagedObject& mutableObject(const ManagedObject& object) {
    return const_cast<ManagedObject&>(object);
}

/// Where a to-one column lies when no engine is there to tell.
std::size_t columnOf(const Entity& entity, std::size_t relation) {
    const auto end = entity.relations.begin() + static_cast<std::ptrdiff_t>(relation);
    return entity.attributes.size() +
           static_cast<std::size_t>(std::count_if(entity.relations.begin(), end, [](const Relation& earlier) {
               return earlier.storage == RelationStorage::Column;
           }));
}

const Value& absentValue() {
    static const Value kAbsent;
    return kAbsent;
}

} // namespace

ManagedObject::ManagedObject() = default;
ManagedObject::~ManagedObject() = default;

bool ManagedObject::isInserted() const {
    return m_state && (m_state->inserted || m_state->savedAs == State::SavedAs::Inserted);
}

bool ManagedObject::isUpdated() const {
    if (!m_state) return false;
    if (m_state->savedAs == State::SavedAs::Updated) return true;
    if (m_state->inserted || m_state->removed || m_state->gone) return false;
    const ContextEngine* engine = engineOf(*this);
    return engine && engine->isEffective(*this);
}

bool ManagedObject::isDeleted() const {
    return m_state && (m_state->removed || m_state->gone);
}

bool ManagedObject::isFault() const {
    return m_state && !m_state->loaded && !m_state->gone;
}

bool ManagedObject::hasChanged(std::string_view property) const {
    if (!m_state || m_state->gone) return false;
    if (const auto index = m_entity->attribute(property)) {
        if (m_state->inserted) return m_state->values[*index] != values::initial(m_entity->attributes[*index].type);
        return m_state->original(*index) != nullptr;
    }
    const ContextEngine* engine = engineOf(*this);
    const auto index = m_entity->relation(property);
    return engine && index && engine->relationChanged(*this, *index);
}

std::vector<std::string> ManagedObject::changedProperties() const {
    std::vector<std::string> names;
    if (!m_state) return names;
    for (const auto& attribute : m_entity->attributes)
        if (hasChanged(attribute.name)) names.push_back(attribute.name);
    for (const auto& relation : m_entity->relations)
        if (hasChanged(relation.description.name)) names.push_back(relation.description.name);
    return names;
}

const Value& ManagedObject::value(std::size_t attribute) const {
    if (!m_state || attribute >= m_entity->attributes.size()) return absentValue();
    if (!m_state->loaded && !m_state->gone)
        if (ContextEngine* engine = engineOf(*this)) engine->ensureLoaded(mutableObject(*this));
    if (attribute >= m_state->values.size()) return values::initial(m_entity->attributes[attribute].type);
    return m_state->values[attribute];
}

void ManagedObject::setValue(std::size_t attribute, Value value) {
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine || m_state->removed || attribute >= m_entity->attributes.size()) return;
    auto fitted = values::fitted(std::move(value), m_entity->attributes[attribute].type);
    assert(fitted && "a value fits the type of its attribute");
    const ContextEngine::Mutation mutation(*engine);
    if (!fitted || !engine->ensureLoaded(*this)) return;
    engine->setColumn(*this, attribute, std::move(*fitted));
}

const Value& ManagedObject::value(std::string_view attributeName) const {
    const auto index = m_entity ? m_entity->attribute(attributeName) : std::nullopt;
    return index ? value(*index) : absentValue();
}

ObjectID ManagedObject::toOneID(std::size_t relation) const {
    if (!m_state || relation >= m_entity->relations.size()) return {};
    const Relation& described = m_entity->relations[relation];
    std::int64_t row = 0;
    if (ContextEngine* engine = engineOf(*this))
        row = engine->toOneRow(mutableObject(*this), relation);
    else if (described.storage == RelationStorage::Column)
        row = m_state->row(columnOf(*m_entity, relation));
    else if (const auto* rows = m_state->set(relation); rows && !rows->empty())
        row = rows->front();
    if (row == 0) return {};
    return {m_id.store, static_cast<std::uint32_t>(described.target), row};
}

std::shared_ptr<ManagedObject> ManagedObject::toOne(std::size_t relation) const {
    const ObjectID id = toOneID(relation);
    ContextEngine* engine = id.isValid() ? engineOf(*this) : nullptr;
    if (!engine) return nullptr;
    auto target = engine->materialize(id.entity, id.row);
    engine->ensureLoaded(*target);
    return stateOf(*target).gone ? nullptr : target;
}

void ManagedObject::setToOne(std::size_t relation, const ManagedObject* target) {
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine || m_state->removed || relation >= m_entity->relations.size()) return;
    const ContextEngine::Mutation mutation(*engine);
    if (!engine->ensureLoaded(*this)) return;
    const std::int64_t row = target && engine->canRelate(*this, *target, relation) ? target->objectID().row : 0;
    const std::int64_t old = engine->toOneRow(*this, relation);
    if (row == old) return;
    if (m_entity->relations[relation].storage == RelationStorage::Column) {
        engine->changeColumn(*this, relation, row);
        return;
    }
    if (old != 0) engine->changeMember(*this, relation, old, false);
    if (row != 0) engine->changeMember(*this, relation, row, true);
}

std::vector<ObjectID> ManagedObject::toManyIDs(std::size_t relation) const {
    std::vector<ObjectID> ids;
    if (!m_state || relation >= m_entity->relations.size()) return ids;
    std::vector<std::int64_t> rows;
    if (m_entity->relations[relation].storage == RelationStorage::Column) {
        if (const ObjectID id = toOneID(relation); id.isValid()) rows.push_back(id.row);
    } else if (ContextEngine* engine = engineOf(*this)) {
        rows = engine->visibleMembers(mutableObject(*this), relation);
    } else if (const auto* loaded = m_state->set(relation)) {
        rows = *loaded;
    }
    ids.reserve(rows.size());
    for (const std::int64_t row : rows)
        ids.push_back({m_id.store, static_cast<std::uint32_t>(m_entity->relations[relation].target), row});
    return ids;
}

std::vector<std::shared_ptr<ManagedObject>> ManagedObject::toMany(std::size_t relation) const {
    std::vector<std::shared_ptr<ManagedObject>> objects;
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine) return objects;
    for (const ObjectID& id : toManyIDs(relation)) {
        auto object = engine->materialize(id.entity, id.row);
        if (!stateOf(*object).gone) objects.push_back(std::move(object));
    }
    return objects;
}

std::size_t ManagedObject::toManyCount(std::size_t relation) const {
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine || relation >= m_entity->relations.size()) return toManyIDs(relation).size();
    return engine->countMembers(mutableObject(*this), relation);
}

void ManagedObject::setToMany(std::size_t relation, std::span<const std::shared_ptr<ManagedObject>> members) {
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine || m_state->removed || relation >= m_entity->relations.size()) return;
    const ContextEngine::Mutation mutation(*engine);
    if (!engine->ensureLoaded(*this)) return;
    assert(m_entity->relations[relation].description.cardinality == Cardinality::ToMany);
    std::vector<std::int64_t> wanted;
    wanted.reserve(members.size());
    for (const auto& member : members)
        if (member && engine->canRelate(*this, *member, relation)) wanted.push_back(member->objectID().row);
    std::sort(wanted.begin(), wanted.end());
    wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());

    const std::vector<std::int64_t> current = engine->visibleMembers(*this, relation);
    std::vector<std::int64_t> removed;
    std::vector<std::int64_t> added;
    std::set_difference(current.begin(), current.end(), wanted.begin(), wanted.end(), std::back_inserter(removed));
    std::set_difference(wanted.begin(), wanted.end(), current.begin(), current.end(), std::back_inserter(added));
    for (const std::int64_t row : removed)
        engine->changeMember(*this, relation, row, false);
    for (const std::int64_t row : added)
        engine->changeMember(*this, relation, row, true);
}

void ManagedObject::addToMany(std::size_t relation, const ManagedObject& member) {
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine || m_state->removed || relation >= m_entity->relations.size()) return;
    const ContextEngine::Mutation mutation(*engine);
    if (!engine->ensureLoaded(*this)) return;
    if (!engine->canRelate(*this, member, relation)) return;
    const std::int64_t row = member.objectID().row;
    if (!engine->isMember(*this, relation, row)) engine->changeMember(*this, relation, row, true);
}

void ManagedObject::removeFromMany(std::size_t relation, const ManagedObject& member) {
    ContextEngine* engine = m_state ? engineOf(*this) : nullptr;
    if (!engine || m_state->removed || relation >= m_entity->relations.size()) return;
    const ContextEngine::Mutation mutation(*engine);
    if (!engine->ensureLoaded(*this)) return;
    if (!engine->canRelate(*this, member, relation)) return;
    const std::int64_t row = member.objectID().row;
    if (engine->isMember(*this, relation, row)) engine->changeMember(*this, relation, row, false);
}

} // namespace ledgerfinch
