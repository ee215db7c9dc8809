// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ManagedObjectContext.h"

#include "objectstore/ContainerPrivate.h"
#include "objectstore/ContextPrivate.h"

#include <algorithm>
#include <cassert>

namespace ledgerfinch {
namespace {

/// Entered by each call that belongs to the queue: a main context takes what others changed here, a private one only
/// between its blocks.
ContextEngine& entered(ContextEngine& engine) {
    assert(engine.isInQueue() && "a context is used inside its queue");
    if (engine.kind == ContextQueue::Main) engine.takeInbox(true);
    return engine;
}

Error unknownEntity(std::string_view name) {
    return Error{"The store has no entity \"" + std::string(name) + "\".", static_cast<int>(StoreErrorCode::Failed)};
}

} // namespace

ContextEngine::Private(PersistentContainer& ofContainer, ContextQueue queueKind)
    : container(ofContainer), sql(sharedBy(ofContainer).sql), kind(queueKind), identity(sql.model().entities().size()),
      pending(sql.model().entities().size()), idCaches(sql.model().entities().size()),
      seenCommit(sharedBy(ofContainer).commitAtOpening), hasSeenCommit(sharedBy(ofContainer).knowsCommitAtOpening) {}

ContextEngine::~Private() {
    if (connection) sharedBy(container).giveBack(std::move(connection));
}

bool ContextEngine::isInQueue() const {
    return kind == ContextQueue::Main ? mainQueue::isCurrent() : owner.load() == std::this_thread::get_id();
}

void ContextEngine::runBlock(const std::function<void()>& block) {
    const std::lock_guard guard(lock);
    // Restores the owner however the block ends.
    struct Entry {
        explicit Entry(ContextEngine& entered) : engine(entered) {
            if (engine.depth++ == 0) engine.owner = std::this_thread::get_id();
        }
        ~Entry() {
            if (--engine.depth == 0) engine.owner = std::thread::id();
        }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;
        ContextEngine& engine;
    } entry(*this);
    if (depth == 1 && self) {
        lookAround();
        takeInbox(true);
    }
    block();
}

ManagedObjectContext::ManagedObjectContext(std::unique_ptr<Private> d) : m_d(std::move(d)) {
    m_d->self = this;
    auto box = std::make_shared<std::weak_ptr<Inbox>>();
    std::function<void()> wake;
    if (m_d->kind == ContextQueue::Main) {
        wake = [box] {
            mainQueue::async([weak = *box] {
                // Without an event loop this runs on any thread; then the next call takes the inbox.
                const auto inbox = mainQueue::isCurrent() ? weak.lock() : nullptr;
                if (inbox && inbox->context) inbox->context->m_d->takeInbox(true);
            });
        };
    }
    m_d->inbox = std::make_shared<Inbox>(std::move(wake));
    m_d->inbox->context = this;
    *box = m_d->inbox;
    auto& shared = sharedBy(m_d->container);
    const std::lock_guard guard(shared.contextsMutex);
    std::erase_if(shared.inboxes, [](const auto& weak) { return weak.expired(); });
    shared.inboxes.push_back(m_d->inbox);
}

ManagedObjectContext::~ManagedObjectContext() {
    std::unique_ptr<DispatchQueue> queue;
    {
        const std::lock_guard guard(m_d->queueMutex);
        queue = std::move(m_d->queue);
    }
    // Let go by a block of its own, the context can't wait for that block to end; somebody else does.
    const bool isInside = m_d->kind == ContextQueue::Private && m_d->isInQueue();
    if (!isInside) queue.reset(); // finishes what is queued
    m_d->inbox->context = nullptr;
    m_d->self = nullptr;
    for (const auto& known : m_d->identity)
        for (const auto& [row, weak] : known.objects)
            if (const auto object = weak.lock()) ObjectStoreAccess::detach(*object);
    m_d->pending.clear();
    if (!isInside) return;
    runOnUtilityQueue([leavingQueue = queue.release(), engine = m_d.release()] {
        std::unique_ptr<DispatchQueue>(leavingQueue).reset();
        const std::unique_ptr<Private> leavingEngine(engine);
        const std::lock_guard untilTheBlockHasEnded(leavingEngine->lock);
    });
}

PersistentContainer& ManagedObjectContext::container() const {
    return m_d->container;
}
const Model& ManagedObjectContext::model() const {
    return m_d->sql.model();
}

void ManagedObjectContext::setMergePolicy(MergePolicy policy) {
    m_d->policy = policy;
}

void ManagedObjectContext::setAutomaticallyMergesChangesFromParent(bool automatic) {
    m_d->inbox->mergesAutomatically = automatic;
}

void ManagedObjectContext::perform(std::function<void()> block) {
    if (m_d->kind == ContextQueue::Main) {
        mainQueue::async([weak = std::weak_ptr(m_d->inbox), block = std::move(block)] {
            const auto inbox = weak.lock();
            if (inbox && inbox->context) inbox->context->performAndWait(block);
        });
        return;
    }
    const std::lock_guard guard(m_d->queueMutex);
    if (!m_d->queue) m_d->queue = std::make_unique<DispatchQueue>("context");
    m_d->queue->async([engine = m_d.get(), block = std::move(block)] { engine->runBlock(block); });
}

void ManagedObjectContext::performAndWait(const std::function<void()>& block) {
    if (m_d->kind == ContextQueue::Private) {
        m_d->runBlock(block);
        return;
    }
    mainQueue::sync([&] {
        m_d->takeInbox(true);
        block();
    });
}

Ref<ManagedObject> ManagedObjectContext::insert(std::string_view entityName) {
    return entered(*m_d).insertObject(model().entity(entityName));
}

Result<std::vector<Ref<ManagedObject>>> ManagedObjectContext::fetch(const FetchRequest& request) {
    const Entity* entity = model().find(request.entity);
    if (!entity) return unknownEntity(request.entity);
    entered(*m_d).lookAround();
    entered(*m_d);
    std::vector<Ref<ManagedObject>> objects;
    auto rows = m_d->fetchRows(request, *entity, &objects);
    if (!rows) return rows.error();
    if (objects.size() == rows->size()) return objects;
    objects.clear();
    objects.reserve(rows->size());
    for (const std::int64_t row : *rows)
        objects.push_back(m_d->materialize(entity->index, row));
    return objects;
}

Result<std::vector<ObjectID>> ManagedObjectContext::fetchIDs(const FetchRequest& request) {
    const Entity* entity = model().find(request.entity);
    if (!entity) return unknownEntity(request.entity);
    entered(*m_d).lookAround();
    entered(*m_d);
    auto rows = m_d->fetchRows(request, *entity, nullptr);
    if (!rows) return rows.error();
    std::vector<ObjectID> ids;
    ids.reserve(rows->size());
    for (const std::int64_t row : *rows)
        ids.push_back(m_d->idOf(entity->index, row));
    return ids;
}

Result<std::size_t> ManagedObjectContext::count(const FetchRequest& request) {
    const Entity* entity = model().find(request.entity);
    if (!entity) return unknownEntity(request.entity);
    entered(*m_d).lookAround();
    return entered(*m_d).countRows(request, *entity);
}

Result<std::optional<std::int64_t>> ManagedObjectContext::max(std::string_view entityName,
                                                              std::string_view attributeName) {
    const Entity* entity = model().find(entityName);
    const auto attribute = entity ? entity->attribute(attributeName) : std::nullopt;
    if (!attribute || entity->attributes[*attribute].type != AttributeType::Int64) return unknownEntity(entityName);
    return entered(*m_d).maximum(*entity, *attribute);
}

Ref<ManagedObject> ManagedObjectContext::firstWithID(std::string_view entityName, std::int64_t id) {
    const Entity& entity = model().entity(entityName);
    const std::int64_t row = entered(*m_d).firstRowWithID(entity, id);
    return row == 0 ? nullptr : m_d->materialize(entity.index, row);
}

Ref<ManagedObject> ManagedObjectContext::object(const ObjectID& id) {
    auto& engine = entered(*m_d);
    const bool isOurs =
        id.isValid() && id.store == sharedBy(engine.container).identity && id.entity < engine.identity.size();
    return isOurs ? engine.materialize(id.entity, id.row) : nullptr;
}

Ref<ManagedObject> ManagedObjectContext::existingObject(const ObjectID& id) {
    Ref<ManagedObject> found = object(id);
    if (!found) return nullptr;
    m_d->ensureLoaded(*found);
    return found->isDeleted() ? nullptr : found;
}

void ManagedObjectContext::remove(ManagedObject& object) {
    assert(object.context() == this && "an object is removed by its own context");
    if (object.context() != this) return;
    const ContextEngine::Mutation mutation(entered(*m_d));
    m_d->removeObject(object);
}

bool ManagedObjectContext::hasChanges() const {
    assert(m_d->isInQueue() && "a context is used inside its queue");
    return m_d->hasEffectiveChanges();
}

Result<void> ManagedObjectContext::save() {
    assert(!m_d->saving && "a save inside of a save");
    if (m_d->saving) return Error{"A save is under way.", static_cast<int>(StoreErrorCode::Failed)};
    entered(*m_d).lookAround();
    return entered(*m_d).saveObjects(nullptr);
}

Result<void> ManagedObjectContext::saveOnly(ManagedObject& object) {
    assert(!m_d->saving && "a save inside of a save");
    if (m_d->saving || object.context() != this)
        return Error{"The object can't be saved here.", static_cast<int>(StoreErrorCode::Failed)};
    entered(*m_d).lookAround();
    const auto objects = entered(*m_d).closureOf(object);
    return m_d->saveObjects(&objects);
}

void ManagedObjectContext::rollback() {
    entered(*m_d).rollbackAll();
}

void ManagedObjectContext::refresh(ManagedObject& object, MergeChanges merge) {
    if (object.context() == this) entered(*m_d).refreshObject(object, merge);
}

void ManagedObjectContext::refreshAllUnchanged() {
    auto& engine = entered(*m_d);
    for (const auto& known : engine.identity)
        for (const auto& [row, weak] : known.objects)
            if (const auto object = weak.lock(); object && !engine.isEffective(*object))
                engine.refreshObject(*object, MergeChanges::Yes);
}

Subscription ManagedObjectContext::onChange(std::function<void(const ChangeSet&)> callback) {
    const auto callbacks = m_d->callbacks;
    const std::lock_guard guard(callbacks->mutex);
    const std::uint64_t number = callbacks->next++;
    callbacks->list.emplace_back(number,
                                 std::make_shared<const std::function<void(const ChangeSet&)>>(std::move(callback)));
    return Subscription([callbacks, number] {
        const std::lock_guard inner(callbacks->mutex);
        std::erase_if(callbacks->list, [&](const auto& entry) { return entry.first == number; });
    });
}

std::shared_ptr<ManagedObjectContext> ObjectStoreAccess::makeContext(std::unique_ptr<Engine> engine) {
    return std::shared_ptr<ManagedObjectContext>(new ManagedObjectContext(std::move(engine)));
}

} // namespace ledgerfinch
