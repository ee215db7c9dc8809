// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObject.h"
#include "records/JsonReader.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch {

/// A list of permissions that the person changed.
struct PermissionEdit {
    std::string side;                 ///< "view" or "change"
    std::string kind;                 ///< "users" or "groups"
    std::vector<std::int64_t> now;    ///< the ids now
    std::vector<std::int64_t> linked; ///< the ids that are saved here: what the person could take out
};

/// The ids now, and those that were delivered without ever having been linked here.
[[nodiscard]] std::vector<std::int64_t> mergedIds(const PermissionEdit& edit,
                                                  const std::vector<std::int64_t>& deliveredIds);

/// Composes the body of an update from an object and what the server last delivered of it. Every key is added in turn:
/// what the person changed as it is now, everything else as delivered, to the byte. A key that was neither changed nor
/// delivered is left out: a made-up value for it could overwrite a real one. Inside the object's queue.
class BodyComposer {
public:
    BodyComposer(const ManagedObject& object, std::optional<JsonObject> delivered)
        : m_object(object), m_delivered(std::move(delivered).value_or(JsonObject())) {}

    [[nodiscard]] const ManagedObject& object() const { return m_object; }
    [[nodiscard]] bool changed(std::string_view property) const { return m_object.hasChanged(property); }
    /// The member as delivered, as JSON text.
    [[nodiscard]] std::optional<std::string> delivered(std::string_view name) const;

    /// The key of an attribute of the same name: a text, number or truth value, null when absent.
    void addAttribute(std::string_view key);
    /// The key of a to-one relation of the same name, as the target's id.
    void addToOne(std::string_view key);
    /// The key of a to-many relation of the same name, as ids.
    void addIds(std::string_view key);
    /// The key of a to-many relation to permissions, as texts.
    void addPermissionTexts(std::string_view key);

    struct PermissionRelations {
        std::string_view viewUsers;
        std::string_view viewGroups;
        std::string_view changeUsers;
        std::string_view changeGroups;
    };
    /// "set_permissions", from the four relations and the delivered "permissions". Where lists were changed but not all
    /// four were delivered nothing is added: the server takes a missing list for an empty one. Then `permissionEdits`
    /// tells what was changed.
    void addPermissions(const PermissionRelations& relations);
    [[nodiscard]] const std::vector<PermissionEdit>& permissionEdits() const { return m_permissionEdits; }

    /// A key whose value the caller composed; nothing is added without one. `deliveredName` is the key under which the
    /// server delivers it.
    void add(std::string_view key, const std::optional<std::string>& fragment, std::string_view deliveredName);
    /// A key that is `current()` when changed and as delivered otherwise.
    void add(std::string_view key, bool isChanged, const std::function<std::string()>& current);

    [[nodiscard]] const JsonObject& body() const { return m_body; }
    /// What the server holds once it has accepted the body.
    [[nodiscard]] const JsonObject& accepted() const { return m_accepted; }
    /// The delivered members with the accepted ones in their place.
    [[nodiscard]] JsonObject deliveredAfterwards() const;

private:
    /// The ids of a changed relation: those there now, and those that were delivered without ever having been linked
    /// here, which the person can't have taken out.
    [[nodiscard]] std::vector<std::int64_t> idsNow(std::string_view relation,
                                                   const std::vector<std::int64_t>& deliveredIds) const;
    [[nodiscard]] PermissionEdit editOf(std::string_view relation) const;

    const ManagedObject& m_object;
    JsonObject m_delivered;
    JsonObject m_body;
    JsonObject m_accepted;
    std::vector<PermissionEdit> m_permissionEdits;
};

/// "set_permissions" of what was delivered, with the edits; absent when one of the four lists wasn't
/// delivered.
[[nodiscard]] std::optional<std::string> editedPermissions(const std::optional<JsonObject>& delivered,
                                                           const std::vector<PermissionEdit>& edits);

/// Reads the object as it is saved, in a context of its own; nothing for an object that was never saved.
void withSavedObject(const ManagedObject& object, const std::function<void(const ManagedObject&)>& read);

/// The "id" values of the members of a to-many relation.
[[nodiscard]] std::vector<std::int64_t> relatedIds(const ManagedObject& object, std::string_view relation);

} // namespace ledgerfinch
