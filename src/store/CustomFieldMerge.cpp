// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "records/Encoders.h"
#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

namespace ledgerfinch {
namespace {

constexpr merge::RemovalTexts kRemoval{"Error obtaining custom fields", "custom fields to delete: %s",
                                       "error determining outdated custom fields: %@"};

// The text is the correspondents': these three kinds share messages with their neighbours.
Result<ObjectID> mergeCustomField(ManagedObjectContext& context, const Custom_Field& record, Authority authority,
                                  const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save correspondent %@", [&](merge::Finder& finder) {
        const auto field = finder.findOrInsert<CD_Custom_Field>(record.id);
        field->setName(record.name);
        field->setData_type(std::string(rawValue(record.data_type)));
        if (record.extra_data) field->setExtra_data(encode(*record.extra_data));
        setServerShadow(*field, record.raw);
        merge::finishRepair<CD_Custom_Field>(finder.context(), record.id, authority);
        return field;
    });
}

} // namespace

MergeOutcome CoreDataHandler::saveCustomFields(const std::vector<Custom_Field>& records, Delivery delivery,
                                               ContextRef context) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    outcome.removed = merge::removeOutdated<CD_Custom_Field>(*this, context, m_log, records, delivery, kRemoval,
                                                             [](const CD_Custom_Field& field) { return field.name(); });
    merge::mergeEach(*this, context, m_log, records, delivery, outcome,
                     [&](ManagedObjectContext& entered, const Custom_Field& record) {
                         return mergeCustomField(entered, record, Authority::Merge, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveCustomField(const Custom_Field& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return mergeCustomField(entered, record, authority, m_log);
    });
}

} // namespace ledgerfinch
