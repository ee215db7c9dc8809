// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

#include <algorithm>
#include <utility>

namespace ledgerfinch {
namespace {

constexpr merge::RemovalTexts kRemoval{"error obtaining custom views", "custom view to delete: %s",
                                       "error determining outdated custom views: %@"};

using RuleValue = std::pair<std::int64_t, std::optional<std::string>>;

/// The rules are a set without order: rewritten only when it became another one.
void writeRules(ManagedObjectContext& context, CD_Saved_View& view, const std::vector<Filter_rule>& rules) {
    const auto present = view.filter_rules();
    std::vector<RuleValue> before;
    for (const auto& rule : present)
        before.emplace_back(rule->rule_type(), rule->value());
    std::vector<RuleValue> after;
    for (const auto& rule : rules)
        after.emplace_back(rule.rule_type, rule.value);
    std::sort(before.begin(), before.end());
    std::sort(after.begin(), after.end());
    if (before == after) return;

    std::vector<Ref<CD_Filter_Rule>> fresh;
    for (const auto& rule : rules) {
        auto object = context.insert<CD_Filter_Rule>();
        object->setRule_type(rule.rule_type);
        object->setValue(rule.value);
        fresh.push_back(std::move(object));
    }
    view.setFilter_rules(fresh);
    for (const auto& old : present)
        context.remove(*old);
}

Result<ObjectID> mergeSavedView(ManagedObjectContext& context, const Saved_view& record, Authority authority,
                                const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save custom view %@", [&](merge::Finder& finder) {
        const auto view = finder.findOrInsert<CD_Saved_View>(record.id);
        view->setName(record.name);
        merge::take(*view, &CD_Saved_View::setShow_on_dashboard, record.show_on_dashboard, record, "show_on_dashboard",
                    authority);
        merge::take(*view, &CD_Saved_View::setShow_in_sidebar, record.show_in_sidebar, record, "show_in_sidebar",
                    authority);
        merge::take(*view, &CD_Saved_View::setSort_field, record.sort_field, record, "sort_field", authority);
        merge::take(*view, &CD_Saved_View::setSort_reverse, record.sort_reverse, record, "sort_reverse", authority);
        writeRules(finder.context(), *view, record.filter_rules);
        setServerShadow(*view, record.raw);
        merge::finishRepair<CD_Saved_View>(finder.context(), record.id, authority);
        return view;
    });
}

} // namespace

MergeOutcome CoreDataHandler::saveSavedViews(const std::vector<Saved_view>& records, Delivery delivery,
                                             ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed = merge::removeOutdated<CD_Saved_View>(*this, context, m_log, records, delivery, kRemoval,
                                                           [](const CD_Saved_View& view) { return view.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const Saved_view& record) {
                         return mergeSavedView(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveSavedView(const Saved_view& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeSavedView(entered, record, authority, m_log);
    });
}

} // namespace ledgerfinch
