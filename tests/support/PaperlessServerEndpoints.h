// SPDX-License-Identifier: GPL-3.0-or-later
// The endpoints by family. Access to the model is checked before they run, access to the object in them.
#pragma once

#include "support/PaperlessServerPaging.h"
#include "support/PaperlessServerWire.h"

namespace ledgerfinch::support {

// Tags, correspondents, document types, storage paths.
Response listAttributes(Context& context, Kind kind);
Response createAttribute(Context& context, Kind kind);
Response getAttribute(Context& context, Kind kind);
Response updateAttribute(Context& context, Kind kind);
Response deleteAttribute(Context& context, Kind kind);

/// Removes an attribute and every mention of it.
void removeAttribute(State& state, Kind kind, Id id);

Response listCustomFields(Context& context);
Response createCustomField(Context& context);
Response getCustomField(Context& context);
Response updateCustomField(Context& context);
Response deleteCustomField(Context& context);
void removeCustomField(State& state, Id id);

Response listDocuments(Context& context, ListCache& cache);
Response getDocument(Context& context);
Response updateDocument(Context& context);
Response deleteDocument(Context& context);
Response nextSerialNumber(Context& context);
Response documentNotes(Context& context);
Response documentHistory(Context& context);
Response documentMetadata(Context& context);
Response documentSuggestions(Context& context);
Response documentShareLinks(Context& context);
Response documentRoot(Context& context);
Response documentThumbnail(Context& context);
Response documentPreview(Context& context);
Response documentDownload(Context& context);
Response openShareLink(Context& context);

Response listTrash(Context& context);
Response changeTrash(Context& context);
Response bulkEdit(Context& context);
Response bulkDelete(Context& context);
Response bulkEditObjects(Context& context);
Response selectionData(Context& context);

Response uploadDocument(Context& context);
Response listTasks(Context& context);
Response getTask(Context& context);
Response activeTasks(Context& context);
Response acknowledgeTasks(Context& context);

Response login(Context& context);
Response listUsers(Context& context);
Response createUser(Context& context);
Response getUser(Context& context);
Response updateUser(Context& context);
Response deleteUser(Context& context);
void removeUser(State& state, Id id);
Response listGroups(Context& context);
Response createGroup(Context& context);
Response getGroup(Context& context);
Response updateGroup(Context& context);
Response deleteGroup(Context& context);
void removeGroup(State& state, Id id);
Response getProfile(Context& context);
Response renewToken(Context& context);

Response listSavedViews(Context& context);
Response createSavedView(Context& context);
Response getSavedView(Context& context);
Response updateSavedView(Context& context);
Response deleteSavedView(Context& context);

Response listShareLinks(Context& context);
Response createShareLink(Context& context);
Response getShareLink(Context& context);
Response deleteShareLink(Context& context);

Response getUiSettings(Context& context);
Response setUiSettings(Context& context);
Response getStatistics(Context& context);
Response globalSearch(Context& context);
Response autocomplete(Context& context);
Response emptyList(Context& context);
Response applicationConfig(Context& context);
Response logNames(Context& context);

} // namespace ledgerfinch::support
