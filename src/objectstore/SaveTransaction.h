// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ContextPrivate.h"

#include <unordered_set>
#include <vector>

namespace ledgerfinch {

/// What one save writes.
struct SavePlan {
    struct Pair {
        std::uint32_t entity = 0; ///< the first side of the join
        std::uint32_t relation = 0;
        std::int64_t row = 0;
        std::int64_t member = 0;
        bool add = true;
    };
    std::vector<Ref<ManagedObject>> inserted; ///< in the order of their rows, as the rest
    std::vector<Ref<ManagedObject>> updated;  ///< with changed columns
    std::vector<Ref<ManagedObject>> removed;
    std::vector<Ref<ManagedObject>> touched; ///< with changes only at derived ends; nothing of theirs is written
    std::vector<Pair> pairs;
    bool everything = false; ///< nothing stays pending

    [[nodiscard]] bool empty() const { return inserted.empty() && updated.empty() && removed.empty() && pairs.empty(); }
};

/// One save: writes a plan in one transaction, remembering what memory has to learn of it, which apply() teaches after
/// the commit. Until then memory stays as it was, so that a failure leaves everything pending.
class SaveTransaction {
public:
    SaveTransaction(ContextEngine& engine, const SavePlan& plan, sqlite::Database& database)
        : m_engine(engine), m_plan(plan), m_database(database) {}

    Result<void> run();
    void apply();

    /// Valid after run().
    [[nodiscard]] const ChangeSet& changes() const { return m_changes; }
    [[nodiscard]] std::uint64_t rowsWritten() const { return m_rowsWritten; }

private:
    struct Outcome {
        ManagedObject* object;
        std::int64_t version;
        std::vector<Value> values; ///< empty: those in memory
    };

    struct Release {
        std::size_t entity;
        std::size_t relation;
        std::int64_t target;
        std::int64_t row;
    };

    int write();
    int insert(ManagedObject& object);
    int update(ManagedObject& object);
    int updateColumns(const ManagedObject& object, const std::vector<Value>& values,
                      const std::vector<std::size_t>& columns, std::int64_t version, bool& hit);
    int resolveConflict(ManagedObject& object);
    void noteReleases(const ManagedObject& object, const std::vector<Value>& values,
                      const std::vector<std::size_t>& columns);
    int releaseOthers();
    int writePair(const SavePlan::Pair& pair);
    int remove(std::size_t entity, std::int64_t row);
    int noteNeighbours(std::size_t entity, std::int64_t row, std::vector<ObjectID>& cascade);
    int rowExists(std::size_t entity, std::int64_t row, bool& exists);
    int dropDanglingColumns(const ManagedObject& object, std::vector<Value>& values);
    void noteEndpoints();
    void settle(const ManagedObject& object);
    void settlePair(const SavePlan::Pair& pair);
    [[nodiscard]] bool isInsertedHere(std::size_t entity, std::int64_t row) const;
    void reset();

    ContextEngine& m_engine;
    const SavePlan& m_plan;
    sqlite::Database& m_database;
    /// After a foreign key failed at the commit: look at each target first. Seldom, so not done at once.
    bool m_isCareful = false;
    bool m_hadConflict = false;
    std::vector<Release> m_releases;
    std::vector<Outcome> m_outcomes;
    std::vector<ObjectID> m_gone;                         ///< rows that were to be changed or pointed to
    std::vector<ObjectID> m_neighbours;                   ///< changed by the removal of others
    std::unordered_set<ObjectID, ObjectIDHash> m_deleted; ///< with what went in a cascade
    ChangeSet m_changes;
    std::uint64_t m_rowsWritten = 0;
};

} // namespace ledgerfinch
