// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "records/JsonReader.h"
#include "store/entities/Entities.h"

#include <algorithm>
#include <concepts>
#include <optional>
#include <string>
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

/// Takes over members that the server accepted, after a write that it answered with success but without the record. An
/// object that no server delivered stays one.
template <Shadowed T>
void updateServerShadow(T& object, const JsonObject& accepted) {
    auto shadow = serverShadow(object);
    if (!shadow) return;
    for (const auto& [name, fragment] : accepted.members())
        shadow->setRaw(name, fragment);
    object.setServer_shadow(shadow->toText());
}

/// What is remembered after a delivery: its members replace those known before, and members that this one left out
/// stay as they were last delivered. A record that came without any member counts as delivered all the same.
[[nodiscard]] inline std::string shadowAfter(const std::optional<std::string>& before, std::string_view raw) {
    if (!before) return raw.empty() ? std::string("{}") : std::string(raw);
    if (raw.empty() || *before == raw) return *before;
    auto merged = JsonObject::parse(*before);
    const auto delivered = JsonObject::parse(raw);
    if (!merged || !delivered) return std::string(raw);
    const auto isDelivered = [&](const auto& member) {
        return delivered->has(member.first);
    };
    // A delivery that leaves out nothing is kept to the byte.
    if (std::all_of(merged->members().begin(), merged->members().end(), isDelivered)) return std::string(raw);
    for (const auto& [name, fragment] : delivered->members())
        merged->setRaw(name, fragment);
    return merged->toText();
}

template <Shadowed T>
void setServerShadow(T& object, std::string_view raw) {
    object.setServer_shadow(shadowAfter(object.server_shadow(), raw));
}

/// Added on this device and never delivered by a server: its file exists nowhere else.
[[nodiscard]] inline bool isLocalDocument(const CD_Document& document) {
    return !document.server_shadow().has_value();
}

} // namespace ledgerfinch
