// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/RepairList.h"

#include "store/CoreDataHandler.h"
#include "store/RepairEntries.h"

#include <map>
#include <mutex>
#include <tuple>

namespace ledgerfinch {
namespace repair {
namespace {

Result<std::vector<Ref<RepairEntry>>> entriesOf(ManagedObjectContext& context, std::int64_t id) {
    auto sameId = Predicate::parse("id = %d", {Value(id)});
    if (!sameId) return sameId.error();
    FetchRequest request;
    request.predicate = std::move(*sameId);
    return context.fetch<RepairEntry>(std::move(request));
}

/// How often each record was refused in this process, and how often when the list was last read. A fetch that began
/// before the latest refusal can't mend it.
class Refusals {
public:
    void noteRefused(const ManagedObjectContext& context, std::string_view kind, std::int64_t id) {
        const std::lock_guard lock(m_mutex);
        ++m_counts[keyOf(context, kind, id)].refused;
    }
    void noteRead(const ManagedObjectContext& context, std::string_view kind, std::int64_t id) {
        const std::lock_guard lock(m_mutex);
        if (const auto found = m_counts.find(keyOf(context, kind, id)); found != m_counts.end())
            found->second.read = found->second.refused;
    }
    bool cameAgain(const ManagedObjectContext& context, std::string_view kind, std::int64_t id,
                   std::string_view reason) {
        if (reason != RepairList::kRefused) return false;
        const std::lock_guard lock(m_mutex);
        const auto found = m_counts.find(keyOf(context, kind, id));
        if (found == m_counts.end()) return false;
        const bool came = found->second.read != 0 && found->second.read != found->second.refused;
        if (!came) m_counts.erase(found);
        return came;
    }

private:
    using Key = std::tuple<std::uint64_t, std::string, std::int64_t>;
    struct Count {
        std::uint64_t refused = 0;
        std::uint64_t read = 0; ///< 0: nobody read it yet
    };
    static Key keyOf(const ManagedObjectContext& context, std::string_view kind, std::int64_t id) {
        return {context.container().identity(), std::string(kind), id};
    }

    std::mutex m_mutex;
    std::map<Key, Count> m_counts;
};

Refusals& refusals() {
    static Refusals all;
    return all;
}

bool matches(const RepairEntry& entry, std::string_view kind, std::string_view reason) {
    return entry.kind() == kind && entry.reason() == reason;
}

} // namespace

Ref<RepairEntry> find(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    // Nearly always there is none: the short look-up answers that.
    auto first = context.firstWithID<RepairEntry>(id);
    if (!first || matches(*first, kind, reason)) return first;
    if (auto all = entriesOf(context, id))
        for (auto& entry : *all)
            if (matches(*entry, kind, reason)) return entry;
    return nullptr;
}

Ref<RepairEntry> put(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    if (find(context, kind, id, reason)) return nullptr;
    auto entry = context.insert<RepairEntry>();
    entry->setKind(std::string(kind));
    entry->setId(id);
    entry->setReason(std::string(reason));
    return entry;
}

void drop(ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    if (refusals().cameAgain(context, kind, id, reason)) return;
    if (const auto entry = find(context, kind, id, reason)) context.remove(*entry);
}

void noteRefused(const ManagedObjectContext& context, std::string_view kind, std::int64_t id) {
    refusals().noteRefused(context, kind, id);
}

void noteRead(const ManagedObjectContext& context, std::string_view kind, std::int64_t id) {
    refusals().noteRead(context, kind, id);
}

bool cameAgain(const ManagedObjectContext& context, std::string_view kind, std::int64_t id, std::string_view reason) {
    return refusals().cameAgain(context, kind, id, reason);
}

} // namespace repair

namespace {

ContextRef contextOr(CoreDataHandler& handler, ContextRef context) {
    return context ? std::move(context) : handler.viewContext();
}

} // namespace

Result<void> RepairList::add(std::string_view kind, std::int64_t id, std::string_view reason, ContextRef context) {
    context = contextOr(m_handler, std::move(context));
    Result<void> result;
    context->performAndWait([&] {
        if (reason == kRefused) repair::noteRefused(*context, kind, id);
        auto entry = repair::put(*context, kind, id, reason);
        if (!entry) entry = repair::find(*context, kind, id, reason);
        if (!entry) {
            result = Error{"The repair list couldn't be read"};
        } else if (entry->isInserted()) {
            result = context->saveOnly(*entry);
            // Left pending it would count as there.
            if (!result) context->remove(*entry);
        }
    });
    return result ? context->container().makeDurable() : result;
}

Result<void> RepairList::remove(std::string_view kind, std::int64_t id, std::string_view reason, ContextRef context) {
    context = contextOr(m_handler, std::move(context));
    Result<void> result;
    context->performAndWait([&] {
        for (const auto each : {kRefused, kUnresolved}) {
            if (!reason.empty() && reason != each) continue;
            const auto entry = repair::find(*context, kind, id, each);
            if (!entry || repair::cameAgain(*context, kind, id, each)) continue;
            context->remove(*entry);
            if (auto saved = context->saveOnly(*entry); !saved) {
                context->refresh(*entry, MergeChanges::No);
                result = std::move(saved);
            }
        }
    });
    return result;
}

std::vector<RepairItem> RepairList::entries(std::string_view reason, ContextRef context) const {
    context = contextOr(m_handler, std::move(context));
    std::vector<RepairItem> items;
    context->performAndWait([&] {
        const auto found = context->fetch<RepairEntry>(FetchRequest{});
        if (!found) return;
        for (const auto& entry : *found) {
            if (!reason.empty() && entry->reason() != reason) continue;
            if (entry->reason() == kRefused) repair::noteRead(*context, entry->kind().value_or(""), entry->id());
            items.push_back({entry->kind().value_or(""), entry->id(), entry->reason().value_or("")});
        }
    });
    return items;
}

} // namespace ledgerfinch
