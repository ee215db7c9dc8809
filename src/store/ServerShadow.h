// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/JsonReader.h"
#include "store/entities/Entities.h"

#include <concepts>
#include <optional>
#include <string_view>

namespace ledgerfinch {

/// The entities that are written back to a server, and so remember what it last delivered.
template <class T>
concept Shadowed = requires(const T& object) {
    { object.server_shadow() } -> std::same_as<std::optional<std::string>>;
};

/// What the server last delivered of this object, member by member, each value to the byte; absent for an object that
/// no server delivered. A member that wasn't delivered is absent, and so must not be sent.
template <Shadowed T>
[[nodiscard]] std::optional<JsonObject> serverShadow(const T& object) {
    const auto text = object.server_shadow();
    return text ? JsonObject::parse(*text) : std::nullopt;
}

/// Takes over members that the server accepted, after a write that it answered with success but without the record.
template <Shadowed T>
void updateServerShadow(T& object, const JsonObject& accepted) {
    JsonObject shadow = serverShadow(object).value_or(JsonObject());
    for (const auto& [name, fragment] : accepted.members())
        shadow.setRaw(name, fragment);
    object.setServer_shadow(shadow.toText());
}

/// The record as delivered. A record that came without any member counts as delivered all the same.
template <Shadowed T>
void setServerShadow(T& object, std::string_view raw) {
    object.setServer_shadow(raw.empty() ? std::string("{}") : std::string(raw));
}

/// Added on this device and never delivered by a server: its file exists nowhere else.
[[nodiscard]] inline bool isLocalDocument(const CD_Document& document) {
    return !document.server_shadow().has_value();
}

} // namespace ledgerfinch
