// SPDX-License-Identifier: GPL-3.0-or-later
// Who may do what: model permissions by codename, object permissions by owner and grant.
#pragma once

#include "support/PaperlessServerRecords.h"

namespace ledgerfinch::support {

/// Every permission of the release as "app.codename"; a superuser holds them all.
const std::vector<std::string>& everyPermission(ServerMode mode);

/// True when the user holds a model permission such as "view_tag", by themselves or by a group.
bool hasPermission(const State& state, const User& user, std::string_view codename);

/// What the user holds through groups (a superuser: everything), as "app.codename".
std::vector<std::string> inheritedPermissions(const State& state, const User& user);

/// All codenames that the user holds.
std::vector<std::string> effectivePermissions(const State& state, const User& user);

/// The app that a codename belongs to, put in front: "documents.view_tag".
std::string qualifiedPermission(std::string_view codename);

/// Ownerless objects are everybody's; else the owner, the granted and the superuser may.
bool maySee(const User& user, const OptionalId& owner, const ObjectPermissions& permissions);
bool mayChange(const User& user, const OptionalId& owner, const ObjectPermissions& permissions);

} // namespace ledgerfinch::support
