// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/RepairList.h"

#include "store/CoreDataHandler.h"
#include "store/RepairEntries.h"

#include <map>
#include <mutex>
#include <set>

namespace ledgerfinch {
namespace repair {
namespace {

using Entries = std::vector<Ref<RepairEntry>>;

Entries entriesOf(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    // Nearly always there is none: the short look-up answers that.
    if (!context.firstWithID<RepairEntry>(id)) return {};
    auto sameId = Predicate::parse("id = %d", {Value(id)});
    if (!sameId) return {};
    FetchRequest request;
    request.predicate = std::move(*sameId);
    auto found = context.fetch<RepairEntry>(std::move(request));
    if (!found) return {};
    std::erase_if(*found, [&](const auto& entry) { return entry->kind() != kind || entry->reason() != reason; });
    return std::move(*found);
}

/// The refusals that this process saw when it last read the list of a store. What was fetched since then can mend them,
/// but none that came later.
class RefusalsRead {
public:
    void replace(const ManagedObjectContext& context, std::set<ObjectID> rows) {
        const std::lock_guard lock(m_mutex);
        m_rows[context.container().identity()] = std::move(rows);
    }
    /// Before the list was read for the first time nobody fetched anything for it.
    bool mayBeMended(const ManagedObjectContext& context, const ObjectID& row) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_rows.find(context.container().identity());
        return found == m_rows.end() || found->second.contains(row);
    }

private:
    std::mutex m_mutex;
    std::map<std::uint64_t, std::set<ObjectID>> m_rows;
};

RefusalsRead& refusalsRead() {
    static RefusalsRead rows;
    return rows;
}

} // namespace

bool isNoted(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    return !entriesOf(context, kind, id, reason).empty();
}

Ref<RepairEntry> put(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    const auto present = entriesOf(context, kind, id, reason);
    if (!present.empty() && reason != RepairList::kRefused) return nullptr;
    for (const auto& entry : present)
        context.remove(*entry);
    auto entry = context.insert<RepairEntry>();
    entry->setKind(std::string(kind));
    entry->setId(id);
    entry->setReason(std::string(reason));
    return present.empty() ? entry : nullptr;
}

void drop(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    for (const auto& entry : entriesOf(context, kind, id, reason))
        if (reason != RepairList::kRefused || refusalsRead().mayBeMended(context, entry->objectID()))
            context.remove(*entry);
}

void drop(ManagedObjectContext& context, const ObjectID& entry) {
    if (const auto present = context.existingObject(entry)) context.remove(*present);
}

} // namespace repair

namespace {

/// A context of its own over the same store: the list leaves alone what is being edited in the given one.
ContextRef apart(CoreDataHandler& handler, const ContextRef& context) {
    return (context ? context : handler.viewContext())->container().newBackgroundContext();
}

template <class Work>
Result<void> change(CoreDataHandler& handler, const ContextRef& given, Work work) {
    const auto context = apart(handler, given);
    Result<void> saved;
    context->performAndWait([&] {
        work(*context);
        saved = context->save();
    });
    return saved;
}

} // namespace

Result<void> RepairList::add(std::string_view kind, std::int64_t id, std::string_view reason, ContextRef context) {
    context = context ? std::move(context) : m_handler.viewContext();
    const auto saved =
        change(m_handler, context, [&](ManagedObjectContext& own) { repair::put(own, kind, id, reason); });
    return saved ? context->container().makeDurable() : saved;
}

Result<void> RepairList::remove(std::string_view kind, std::int64_t id, std::string_view reason, ContextRef context) {
    return change(m_handler, context, [&](ManagedObjectContext& own) {
        for (const auto each : {kRefused, kUnresolved})
            if (reason.empty() || reason == each) repair::drop(own, kind, id, each);
    });
}

std::vector<RepairItem> RepairList::entries(std::string_view reason, ContextRef given) const {
    const auto context = given ? std::move(given) : m_handler.viewContext();
    std::vector<RepairItem> items;
    context->performAndWait([&] {
        const auto found = context->fetch<RepairEntry>(FetchRequest{});
        if (!found) return;
        std::set<ObjectID> refusals;
        std::set<RepairItem> seen; // two processes may have noted the same one
        for (const auto& entry : *found) {
            const auto why = entry->reason().value_or("");
            if (why == kRefused) refusals.insert(entry->objectID());
            if (!reason.empty() && why != reason) continue;
            RepairItem item{entry->kind().value_or(""), entry->id(), why};
            if (seen.insert(item).second) items.push_back(std::move(item));
        }
        if (reason.empty() || reason == kRefused) repair::refusalsRead().replace(*context, std::move(refusals));
    });
    return items;
}

} // namespace ledgerfinch
