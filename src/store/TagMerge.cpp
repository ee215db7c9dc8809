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

} // namespace

MergeOutcome CoreDataHandler::saveTags(const std::vector<Tag>& records, Delivery delivery, ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed = merge::removeOutdated<CD_Tag>(*this, context, m_log, records, delivery, kRemoval,
                                                    [](const CD_Tag& tag) { return tag.name(); });
    merge::saveEach(records, delivery, outcome, [&](const Tag& record) { return saveTag(record, context).isValid(); });
    return outcome;
}

ObjectID CoreDataHandler::saveTag(const Tag& record, ContextRef context, Authority authority) {
    context = contextOrView(std::move(context));
    ObjectID saved;
    context->performAndWait([&] {
        const auto tag = merge::findOrInsert<CD_Tag>(*context, record.id);
        const auto access = merge::resolveAccess(*context, record.permissions);
        merge::setIfPresent(*tag, &CD_Tag::setSlug, record.slug);
        merge::setIfPresent(*tag, &CD_Tag::setName, record.name);
        tag->setColor(record.color ? *record.color : accentColor(*m_services.defaults));
        tag->setText_color(textColorOn(tag->color()));
        merge::setIfPresent(*tag, &CD_Tag::setMatch, record.match);
        merge::setIfPresent(*tag, &CD_Tag::setMatching_algorithm, record.matching_algorithm);
        merge::setIfPresent(*tag, &CD_Tag::setIs_insensitive, record.is_insensitive);
        merge::setIfPresent(*tag, &CD_Tag::setIs_inbox_tag, record.is_inbox_tag);
        merge::writeOwner(*context, *tag, record, authority);
        merge::writeAccess(*tag, access);
        setServerShadow(*tag, record.raw);
        merge::finishRepair<CD_Tag>(*context, record.id, authority);
        if (merge::save(*context, m_log, "Failed to save tag %@")) saved = tag->objectID();
    });
    return saved;
}

} // namespace ledgerfinch
