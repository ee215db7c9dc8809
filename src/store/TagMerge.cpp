// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "store/MergeSupport.h"
#include "store/ServerShadow.h"
#include "store/TagColor.h"

namespace ledgerfinch {
namespace {

constexpr merge::RemovalTexts kRemoval{"error obtaining tags from server", "tags to delete: %s",
                                       "error determining outdated tags: %@"};

std::string accentColor(const UserDefaults& defaults) {
    return TagColor::parse(defaults.string("customAccentColor").value_or("#725BFF")).text();
}

Result<ObjectID> mergeTag(ManagedObjectContext& context, const Tag& record, Authority authority, const Logger& log,
                          const UserDefaults& defaults) {
    return merge::mergeRecord(context, log, "Failed to save tag %@", [&](merge::Finder& finder) {
        const auto tag = finder.findOrInsert<CD_Tag>(record.id);
        const auto access = merge::resolveAccess(finder, record.permissions);
        merge::take(*tag, &CD_Tag::setSlug, record.slug, record, "slug", authority);
        merge::take(*tag, &CD_Tag::setName, record.name, record, "name", authority);
        tag->setColor(record.color ? *record.color : accentColor(defaults));
        tag->setText_color(textColorOn(tag->color()));
        merge::take(*tag, &CD_Tag::setMatch, record.match, record, "match", authority);
        merge::take(*tag, &CD_Tag::setMatching_algorithm, record.matching_algorithm, record, "matching_algorithm",
                    authority);
        merge::take(*tag, &CD_Tag::setIs_insensitive, record.is_insensitive, record, "is_insensitive", authority);
        merge::take(*tag, &CD_Tag::setIs_inbox_tag, record.is_inbox_tag, record, "is_inbox_tag", authority);
        merge::writeOwner(finder, *tag, record, authority);
        merge::writeAccess(*tag, access);
        setServerShadow(*tag, record.raw);
        merge::finishRepair<CD_Tag>(finder.context(), record.id, authority);
        return tag;
    });
}

} // namespace

MergeOutcome CoreDataHandler::saveTags(const std::vector<Tag>& records, Delivery delivery, ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed = merge::removeOutdated<CD_Tag>(*this, context, m_log, records, delivery, kRemoval,
                                                    [](const CD_Tag& tag) { return tag.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const Tag& record) {
                         return mergeTag(entered, record, Authority::Merge, m_log, *m_services.defaults);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveTag(const Tag& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeTag(entered, record, authority, m_log, *m_services.defaults);
    });
}

} // namespace ledgerfinch
