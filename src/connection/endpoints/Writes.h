// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "connection/endpoints/BodyComposer.h"
#include "objectstore/ManagedObject.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ledgerfinch {

class PersistentContainer;
class CD_Correspondent;
class CD_Custom_Field;
class CD_Document;
class CD_Document_Type;
class CD_Group;
class CD_Saved_View;
class CD_Storage_Path;
class CD_Tag;
class CD_User;

/// An update, ready to be sent from any thread: no object of the store is needed for it any more.
///
/// For every key of the body: a property with an unsaved change in the object's context goes as it is now; everything
/// else goes as the server last delivered it. So an update is prepared before the object is saved, and after an
/// accepted one the object's record of what was delivered is renewed (`keepDelivered`), in the same save.
struct PreparedWrite {
    std::string path;       ///< of the PATCH
    std::string body;       ///< JSON
    std::string entityName; ///< for the repair list
    std::int64_t id = 0;
    std::string logFormat; ///< of a failure
    /// What the server holds once it has accepted, as far as the object's record tells it.
    std::string delivered;
    /// The store that the object came from: where its repair would be noted.
    std::shared_ptr<PersistentContainer> store;
    /// No server ever delivered the object: its id means nothing to one. Never sent.
    bool neverDelivered = false;
    /// Lists of permissions that were changed while not all of them were delivered: the others are asked for before the
    /// update is sent.
    std::vector<PermissionEdit> permissionEdits = {};
    /// Of a custom field: "extra_data" was changed. Untouched, it goes as the server holds it at the moment of sending.
    bool changesExtraData = true;
    /// Of a custom field: options that got another text, from the earlier to the new one. The server knows a document's
    /// choice by the option, so without this a new text is a new option, and the one that is missing is gone.
    std::vector<std::pair<std::string, std::string>> renamedOptions = {};
};

// Inside the object's queue, before it is saved.
PreparedWrite prepareUpdate(const CD_Document& document);
/// Only the text.
PreparedWrite prepareContentUpdate(const CD_Document& document, const std::string& content);
PreparedWrite prepareUpdate(const CD_Tag& tag);
PreparedWrite prepareUpdate(const CD_Correspondent& correspondent);
PreparedWrite prepareUpdate(const CD_Document_Type& type);
PreparedWrite prepareUpdate(const CD_Storage_Path& path);
PreparedWrite prepareUpdate(const CD_Custom_Field& field);
PreparedWrite prepareUpdate(const CD_Saved_View& view);
PreparedWrite prepareUpdate(const CD_User& user);
PreparedWrite prepareUpdate(const CD_Group& group);

struct WriteAnswer {
    int status = 0;
    std::string body;
    /// For keepDelivered; empty unless accepted.
    std::string delivered;
    [[nodiscard]] bool accepted() const { return status >= 200 && status < 300; }
};
/// Sends it. From before that until the server has accepted, the record is on the repair list. With status::kNotSent
/// nothing was sent: the object was never delivered, or lies in the store of another server than the handler's (neither
/// is noted for repair); or what must go along untouched could not be learnt.
WriteAnswer send(ApiHandler& api, const PreparedWrite& write);

/// Inside the object's queue: notes what the server now holds. The caller saves. Where an object is saved before its
/// write is sent, `PreparedWrite::delivered` goes in at once; if the server then refuses, the repair puts it right.
void keepDelivered(ManagedObject& object, const std::string& delivered);

// The three steps for an object of any context: prepares in its queue, sends, and on success notes what the server
// holds (unsaved). Each gives the status. Not from inside the object's queue.
int updateDocument(ApiHandler& api, const std::shared_ptr<CD_Document>& document);
int updateTag(ApiHandler& api, const std::shared_ptr<CD_Tag>& tag);
int updateCorrespondent(ApiHandler& api, const std::shared_ptr<CD_Correspondent>& correspondent);
int updateDocumentType(ApiHandler& api, const std::shared_ptr<CD_Document_Type>& type);
int updateStoragePath(ApiHandler& api, const std::shared_ptr<CD_Storage_Path>& path);
int updateCustomField(ApiHandler& api, const std::shared_ptr<CD_Custom_Field>& field);
/// With the options that were renamed, see `PreparedWrite::renamedOptions`.
int updateCustomField(ApiHandler& api, const std::shared_ptr<CD_Custom_Field>& field,
                      const std::vector<std::pair<std::string, std::string>>& renamedOptions);
int updateSavedView(ApiHandler& api, const std::shared_ptr<CD_Saved_View>& view);
int updateUser(ApiHandler& api, const std::shared_ptr<CD_User>& user);
int updateGroup(ApiHandler& api, const std::shared_ptr<CD_Group>& group);

} // namespace ledgerfinch
