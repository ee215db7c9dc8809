// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Database.h"
#include "objectstore/Inbox.h"
#include "objectstore/ManagedObjectContext.h"
#include "objectstore/ObjectState.h"
#include "objectstore/StoreSql.h"
#include "platform/DispatchQueue.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>

namespace ledgerfinch {

/// One end of a relation whose truth lies elsewhere: in the column of the other end, or in a join table.
struct SetKey {
    std::uint32_t entity = 0;
    std::uint32_t relation = 0;
    std::int64_t row = 0;
    bool operator==(const SetKey&) const = default;
};
struct SetKeyHash {
    std::size_t operator()(const SetKey& key) const noexcept {
        const auto mixed =
            static_cast<std::uint64_t>(key.row) * 0x9e3779b97f4a7c15ULL + key.entity * 1021U + key.relation;
        return static_cast<std::size_t>(mixed ^ (mixed >> 29));
    }
};
/// What is pending at such an end, against the store.
struct SetDelta {
    std::vector<std::int64_t> added;
    std::vector<std::int64_t> removed;
    [[nodiscard]] bool empty() const { return added.empty() && removed.empty(); }
};

/// The callbacks of onChange; outlives its context, so that a subscription may end at any time.
struct ChangeCallbacks {
    std::uint64_t next = 1;
    std::vector<std::pair<std::uint64_t, std::shared_ptr<const std::function<void(const ChangeSet&)>>>> list;
    std::mutex mutex;
};

/// The engine of a context. Everything but the first group belongs to the context's queue.
///
/// How relations are kept: the truth of a to-one column is a value of its object like any other. Every other end is
/// derived: its stored members come from SQL, and `deltas` holds what is pending on top, at both ends of every pending
/// change and whether or not an object is loaded there. So neither end has to be loaded for the two to agree.
struct ManagedObjectContext::Private {
    Private(PersistentContainer& ofContainer, ContextQueue queueKind);
    ~Private();

    // Identity and threads.
    ManagedObjectContext* self = nullptr;
    std::shared_ptr<PersistentContainer> keepAlive; ///< empty in the view context, which its container owns
    PersistentContainer& container;
    const StoreSql& sql;
    const ContextQueue kind;
    std::shared_ptr<Inbox> inbox;
    std::recursive_mutex lock;
    std::atomic<std::thread::id> owner{};
    int depth = 0;
    std::mutex queueMutex;
    std::unique_ptr<DispatchQueue> queue; ///< of perform, made on first use

    [[nodiscard]] bool isInQueue() const;
    void runBlock(const std::function<void()>& block);

    // Settings.
    MergePolicy policy = MergePolicy::ByPropertyObjectTrump;
    std::shared_ptr<ChangeCallbacks> callbacks = std::make_shared<ChangeCallbacks>();

    // Objects (ContextObjects.cpp).
    struct Identity {
        std::unordered_map<std::int64_t, std::weak_ptr<ManagedObject>> objects;
        std::size_t sweepAt = 256;
    };
    std::vector<Identity> identity;                                            ///< by entity
    std::vector<std::unordered_map<std::int64_t, Ref<ManagedObject>>> pending; ///< by entity: touched, held strongly
    std::size_t removedCount = 0;                                              ///< pending deletions

    sqlite::Database* database(); ///< opened on first use; null on failure
    Error databaseError;
    std::unique_ptr<sqlite::Database> connection;

    [[nodiscard]] ObjectID idOf(std::size_t entity, std::int64_t row) const;
    Ref<ManagedObject> alive(std::size_t entity, std::int64_t row) const;
    Ref<ManagedObject> materialize(std::size_t entity, std::int64_t row);
    Ref<ManagedObject> insertObject(const Entity& entity);
    enum class Load { Done, Gone, Failed };
    /// Fills an unloaded object from the store; a vanished row keeps the last values.
    Load load(ManagedObject& object);
    /// False when the object can't take part in anything any more.
    bool ensureLoaded(ManagedObject& object);
    void readColumns(ObjectState& state, const EntitySql& entitySql, const sqlite::Statement& statement, int first);
    void touch(ManagedObject& object);
    [[nodiscard]] bool isRemoved(std::size_t entity, std::int64_t row) const;
    /// Returns true when the column's value changed.
    bool setColumn(ManagedObject& object, std::size_t column, Value value);
    void removeObject(ManagedObject& object);
    void undoChanges(ManagedObject& object);
    void refreshObject(ManagedObject& object, MergeChanges merge);
    void rollbackAll();
    [[nodiscard]] bool isEffective(const ManagedObject& object) const;
    [[nodiscard]] bool hasEffectiveChanges() const;
    void forgetPending(ManagedObject& object);
    /// Reading can't report its failures to whoever asks an object; they are logged. A change that was built on such a
    /// reading may be incomplete: the next save then fails, once, with the reason.
    void readFailed(std::string_view what, const Error& error);
    std::uint64_t readFailures = 0;
    Error lastReadFailure;
    std::optional<Error> incompleteChange;
    class Mutation {
    public:
        explicit Mutation(Private& ofEngine) : m_engine(ofEngine), m_failuresBefore(ofEngine.readFailures) {}
        ~Mutation() {
            if (m_engine.readFailures != m_failuresBefore) m_engine.incompleteChange = m_engine.lastReadFailure;
        }
        Mutation(const Mutation&) = delete;
        Mutation& operator=(const Mutation&) = delete;

    private:
        Private& m_engine;
        std::uint64_t m_failuresBefore;
    };

    // Relations (ContextRelations.cpp).
    std::unordered_map<SetKey, SetDelta, SetKeyHash> deltas;
    [[nodiscard]] const SetDelta* delta(std::size_t entity, std::size_t relation, std::int64_t row) const;
    void shiftDelta(const SetKey& key, std::int64_t member, bool add);
    void link(const SetKey& key, std::int64_t member, bool add);
    void linkPair(std::size_t entity, std::size_t relation, std::int64_t row, std::int64_t member, bool add);
    /// Current members, ascending, with those that are pending for deletion; nothing on a failure of the store.
    std::optional<std::vector<std::int64_t>> queryMembers(std::size_t entity, std::size_t relation, std::int64_t row);
    std::vector<std::int64_t> members(ManagedObject& object, std::size_t relation);
    std::vector<std::int64_t> visibleMembers(ManagedObject& object, std::size_t relation);
    std::size_t countMembers(ManagedObject& object, std::size_t relation);
    bool isMember(ManagedObject& object, std::size_t relation, std::int64_t member);
    void changeColumn(ManagedObject& object, std::size_t relation, std::int64_t row);
    void changeMember(ManagedObject& object, std::size_t relation, std::int64_t member, bool add);
    std::int64_t toOneRow(ManagedObject& object, std::size_t relation);
    [[nodiscard]] bool canRelate(const ManagedObject& object, const ManagedObject& target, std::size_t relation) const;
    [[nodiscard]] bool relationChanged(const ManagedObject& object, std::size_t relation) const;

    // Fetching (ContextFetch.cpp, ContextAffected.cpp, ContextLookup.cpp).
    /// Rows in order. A short list that came from the store whole leaves its objects, with values, in `objects`.
    Result<std::vector<std::int64_t>> fetchRows(const FetchRequest& request, const Entity& entity,
                                                std::vector<Ref<ManagedObject>>* objects);
    Result<std::vector<std::int64_t>> selectRows(const FetchRequest& request, const Entity& entity,
                                                 std::vector<Ref<ManagedObject>>* objects);
    [[nodiscard]] std::set<std::int64_t> pendingRows(std::size_t entity) const;
    Result<std::size_t> countRows(const FetchRequest& request, const Entity& entity);
    Result<std::optional<std::int64_t>> maximum(const Entity& entity, std::size_t attribute);
    /// Rows of the entity whose place in a fetch may differ from what the store says, because of pending changes.
    Result<std::set<std::int64_t>> affectedRows(const FetchRequest& request, const Entity& entity);
    struct IdCache {
        std::unordered_map<std::int64_t, std::int64_t> rows; ///< id to first stored row, 0: none
    };
    std::vector<IdCache> idCaches;
    sqlite::Database::Fingerprint seenCommit;
    bool hasSeenCommit = false;
    std::int64_t firstRowWithID(const Entity& entity, std::int64_t id);
    void forgetIds(const ChangeSet& changes);

    // Changes from elsewhere (ContextMerge.cpp).
    /// Looks for commits of other processes, cheaply; what came lies in the inbox then.
    void lookAround();
    /// Empties the inbox into the objects; `merging` false only drops what is remembered about the store.
    void takeInbox(bool merging);
    void merge(const ChangeSet& changes);
    void rebase(ManagedObject& object);
    void markGone(ManagedObject& object);
    void notify(const ChangeSet& changes);
    bool merging = false;
    ChangeSet deferred; ///< arrived in the middle of a block, merged before the next

    // Saving (ContextSave.cpp).
    bool saving = false;
    std::map<std::pair<std::size_t, std::uint64_t>, SlotSql> updates; ///< by entity and set of columns
    sqlite::Statement* updateStatement(sqlite::Database& database, const EntitySql& entitySql,
                                       const std::vector<std::size_t>& columns);
    Result<void> saveObjects(const std::vector<Ref<ManagedObject>>* only);
    std::vector<Ref<ManagedObject>> closureOf(ManagedObject& object);
    std::vector<ObjectID> objectIDsInStore(ManagedObject& object, std::size_t relation);
};

} // namespace ledgerfinch
