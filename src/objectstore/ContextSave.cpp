// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ContainerPrivate.h"
#include "objectstore/ContextPrivate.h"
#include "objectstore/SaveTransaction.h"

#include <algorithm>
#include <set>

namespace ledgerfinch {
namespace {

using SavedAs = ObjectState::SavedAs;

void sortByRow(std::vector<Ref<ManagedObject>>& objects) {
    std::sort(objects.begin(), objects.end(),
              [](const auto& first, const auto& second) { return first->objectID() < second->objectID(); });
}

/// Distinct sets of columns that get a statement of their own.
constexpr std::size_t kUpdateStatements = 128;

} // namespace

sqlite::Statement* ContextEngine::updateStatement(sqlite::Database& db, const EntitySql& entitySql,
                                                  const std::vector<std::size_t>& columns) {
    if (entitySql.columnCount() > 64) return db.statement(entitySql.update(columns));
    std::uint64_t mask = 0;
    for (const std::size_t column : columns)
        mask |= std::uint64_t{1} << column;
    const std::pair key(entitySql.entity->index, mask);
    auto found = updates.find(key);
    if (found == updates.end()) {
        if (updates.size() >= kUpdateStatements) return db.statement(entitySql.update(columns));
        found = updates.emplace(key, SlotSql{entitySql.update(columns), sql.slotCount() + updates.size()}).first;
    }
    return db.statement(found->second.slot, found->second.text);
}

/// What has to be saved with one object: what its relations would point to without being there, and the members whose
/// columns hold its relations.
std::vector<Ref<ManagedObject>> ContextEngine::closureOf(ManagedObject& start) {
    std::vector<Ref<ManagedObject>> closure;
    std::set<ObjectID> seen;
    std::vector<Ref<ManagedObject>> open{start.shared_from_this()};
    while (!open.empty()) {
        const Ref<ManagedObject> object = std::move(open.back());
        open.pop_back();
        if (!seen.insert(object->objectID()).second) continue;
        closure.push_back(object);
        const ObjectState& state = stateOf(*object);
        const ObjectID& id = object->objectID();
        const auto pendingObject = [this](std::size_t entity, std::int64_t row) -> Ref<ManagedObject> {
            const auto found = pending[entity].find(row);
            return found == pending[entity].end() ? nullptr : found->second;
        };
        for (std::size_t i = 0; i < object->entity().relations.size(); ++i) {
            const Relation& relation = object->entity().relations[i];
            if (relation.storage == RelationStorage::Column) {
                const auto target = pendingObject(
                    relation.target, state.row(static_cast<std::size_t>(sql[id.entity].columnOfRelation[i])));
                if (target && stateOf(*target).inserted) open.push_back(target);
            }
            if (state.removed && relation.description.deleteRule == DeleteRule::Cascade) {
                for (const ObjectID& member : objectIDsInStore(*object, i))
                    if (auto other = pendingObject(member.entity, member.row); other && stateOf(*other).removed)
                        open.push_back(std::move(other));
            }
            const SetDelta* change = delta(id.entity, i, id.row);
            if (!change) continue;
            for (const auto* list : {&change->added, &change->removed}) {
                for (const std::int64_t row : *list) {
                    auto member = pendingObject(relation.target, row);
                    if (!member) continue;
                    const bool isInserted = stateOf(*member).inserted;
                    if (isInserted || (relation.storage == RelationStorage::InverseColumn && object.get() == &start))
                        open.push_back(std::move(member));
                }
            }
        }
    }
    return closure;
}

std::vector<ObjectID> ContextEngine::objectIDsInStore(ManagedObject& object, std::size_t relationIndex) {
    std::vector<ObjectID> ids;
    const Relation& relation = object.entity().relations[relationIndex];
    const ObjectID& id = object.objectID();
    if (relation.storage == RelationStorage::Column) {
        const std::int64_t row =
            stateOf(object).row(static_cast<std::size_t>(sql[id.entity].columnOfRelation[relationIndex]));
        if (row != 0) ids.push_back(idOf(relation.target, row));
        return ids;
    }
    if (const auto rows = queryMembers(id.entity, relationIndex, id.row))
        for (const std::int64_t row : *rows)
            ids.push_back(idOf(relation.target, row));
    return ids;
}

namespace {

/// Sorts objects and pending pairs into a plan.
SavePlan makePlan(ContextEngine& engine, const std::vector<Ref<ManagedObject>>& objects, bool everything) {
    SavePlan plan;
    plan.everything = everything;
    std::set<ObjectID> members;
    for (const auto& object : objects) {
        const ObjectState& state = stateOf(*object);
        if (state.gone) continue;
        if (state.removed)
            plan.removed.push_back(object);
        else if (state.inserted)
            plan.inserted.push_back(object);
        else if (!state.originals.empty())
            plan.updated.push_back(object);
        else if (engine.isEffective(*object))
            plan.touched.push_back(object);
        if (!everything) members.insert(object->objectID());
    }
    for (auto* list : {&plan.inserted, &plan.updated, &plan.removed, &plan.touched})
        sortByRow(*list);

    for (const auto& [key, change] : engine.deltas) {
        const Relation& relation = engine.sql[key.entity].entity->relations[key.relation];
        // Every pair is noted at both ends; the first side writes it.
        if (relation.storage != RelationStorage::JoinTable ||
            !engine.sql[key.entity].relations[key.relation].isFirstSide)
            continue;
        for (const bool add : {false, true})
            for (const std::int64_t member : add ? change.added : change.removed)
                if (everything || members.contains(engine.idOf(key.entity, key.row)) ||
                    members.contains(engine.idOf(relation.target, member)))
                    plan.pairs.push_back({key.entity, key.relation, key.row, member, add});
    }
    std::sort(plan.pairs.begin(), plan.pairs.end(), [](const SavePlan::Pair& a, const SavePlan::Pair& b) {
        return std::tie(a.entity, a.relation, a.add, a.row, a.member) <
               std::tie(b.entity, b.relation, b.add, b.row, b.member);
    });
    return plan;
}

/// Calls didSave with the marks of what was saved, and takes them away again.
class HooksAfterSave {
public:
    explicit HooksAfterSave(const SavePlan& plan) : m_plan(plan) {
        mark(plan.inserted, SavedAs::Inserted);
        mark(plan.updated, SavedAs::Updated);
        mark(plan.touched, SavedAs::Updated);
        mark(plan.removed, SavedAs::Deleted);
    }
    ~HooksAfterSave() {
        for (const auto* list : {&m_plan.inserted, &m_plan.updated, &m_plan.touched, &m_plan.removed})
            mark(*list, SavedAs::Nothing);
    }
    HooksAfterSave(const HooksAfterSave&) = delete;
    HooksAfterSave& operator=(const HooksAfterSave&) = delete;
    void run() const {
        for (const auto* list : {&m_plan.inserted, &m_plan.updated, &m_plan.touched, &m_plan.removed})
            for (const auto& object : *list)
                ObjectStoreAccess::didSave(*object);
    }

private:
    static void mark(const std::vector<Ref<ManagedObject>>& objects, SavedAs as) {
        for (const auto& object : objects)
            stateOf(*object).savedAs = as;
    }
    const SavePlan& m_plan;
};

} // namespace

Result<void> ContextEngine::saveObjects(const std::vector<Ref<ManagedObject>>* only) {
    if (incompleteChange) {
        const Error reason = std::move(*incompleteChange);
        incompleteChange.reset();
        return reason;
    }
    std::vector<Ref<ManagedObject>> objects;
    if (only) {
        objects = *only;
    } else {
        for (auto& byRow : pending) {
            // What was changed and changed back isn't held any longer.
            std::erase_if(byRow, [this](const auto& entry) { return !isEffective(*entry.second); });
            for (const auto& [row, object] : byRow)
                objects.push_back(object);
        }
    }
    if (only ? std::none_of(objects.begin(), objects.end(), [this](const auto& object) { return isEffective(*object); })
             : objects.empty() && deltas.empty())
        return {};

    saving = true;
    sortByRow(objects);
    for (const auto& object : objects)
        ObjectStoreAccess::willSave(*object);
    const SavePlan plan = makePlan(*this, objects, only == nullptr);
    if (plan.empty()) {
        saving = false;
        return {};
    }
    sqlite::Database* db = database();
    if (!db) {
        saving = false;
        return databaseError;
    }
    SaveTransaction transaction(*this, plan, *db);
    if (auto done = transaction.run(); !done) {
        saving = false;
        return done;
    }
    auto& shared = sharedBy(container);
    shared.rowsWritten += transaction.rowsWritten();
    transaction.apply();
    if (transaction.rowsWritten() > 0) shared.tellContexts(transaction.changes(), inbox.get());
    HooksAfterSave(plan).run();
    saving = false;
    notify(transaction.changes());
    return {};
}

} // namespace ledgerfinch
