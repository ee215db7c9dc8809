// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/RepairList.h"

#include "store/CoreDataHandler.h"
#include "store/RepairEntries.h"

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
    if (const auto entry = find(context, kind, id, reason)) context.remove(*entry);
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
        if (const auto entry = repair::put(*context, kind, id, reason)) result = context->saveOnly(*entry);
    });
    return result;
}

Result<void> RepairList::remove(std::string_view kind, std::int64_t id, std::string_view reason, ContextRef context) {
    context = contextOr(m_handler, std::move(context));
    Result<void> result;
    context->performAndWait([&] {
        for (const auto each : {kRefused, kUnresolved}) {
            if (!reason.empty() && reason != each) continue;
            const auto entry = repair::find(*context, kind, id, each);
            if (!entry) continue;
            context->remove(*entry);
            if (auto saved = context->saveOnly(*entry); !saved) result = std::move(saved);
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
            items.push_back({entry->kind().value_or(""), entry->id(), entry->reason().value_or("")});
        }
    });
    return items;
}

} // namespace ledgerfinch
