// SPDX-License-Identifier: GPL-3.0-or-later
// Records from JSON in the form that the server itself shows (with full permissions), and the recorded state.
#pragma once

#include "support/PaperlessServerRecords.h"

#include <filesystem>

namespace ledgerfinch::support {

/// Takes over the keys that are there; others keep their value. Knows "checksum" besides the keys of the record.
void applyFields(const State& state, Document& document, const Json& fields);
void applyFields(Attribute& attribute, const Json& fields);
void applyFields(State& state, CustomField& field, const Json& fields);
void applyFields(SavedView& view, const Json& fields);
void applyFields(ShareLink& link, const Json& fields);
void applyFields(User& user, const Json& fields);
void applyFields(Group& group, const Json& fields);

/// Moves the ids of shown views out of a user's settings into the views.
void takeShownViews(State& state, User& user);

/// What the recorded server held before documents were uploaded to it, or after.
enum class RecordedMoment { BeforeUploads, AfterUploads };

/// Fills an empty state from the file that holds the recorded state, or what changes of another one make it.
/// Throws std::runtime_error without it.
void seedRecorded(State& state, const std::filesystem::path& file, RecordedMoment moment);

/// admin, alice, bob, carol and dora with ids 3 to 7 and the groups 1 and 2; passwords are NAME-pass.
void seedUsers(State& state);

} // namespace ledgerfinch::support
