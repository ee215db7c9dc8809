// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/MergeSupport.h"

#include "platform/Dates.h"
#include "records/JsonReader.h"

namespace ledgerfinch::merge {

Access resolveAccess(ManagedObjectContext& context, const std::optional<Document_Permissions>& permissions) {
    Access access;
    if (!permissions) return access;
    if (permissions->view) {
        access.viewUsers = resolve<CD_User>(context, permissions->view->users);
        access.viewGroups = resolve<CD_Group>(context, permissions->view->groups);
    }
    if (permissions->change) {
        access.changeUsers = resolve<CD_User>(context, permissions->change->users);
        access.changeGroups = resolve<CD_Group>(context, permissions->change->groups);
    }
    return access;
}

bool deliveredAsNull(const std::string& raw, std::string_view member) {
    if (raw.empty()) return true;
    const auto delivered = JsonObject::parse(raw);
    return delivered && delivered->isNull(member);
}

std::optional<Timestamp> parseServerDate(std::string_view text) {
    if (const auto moment = dates::parseDateTime(text)) return moment;
    return dates::parseDateOnly(text);
}

bool save(ManagedObjectContext& context, const Logger& log, std::string_view failureFormat) {
    const auto saved = context.save();
    if (!saved) log.error(failureFormat, saved.error().message);
    return saved.ok();
}

} // namespace ledgerfinch::merge
