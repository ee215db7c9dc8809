// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/UserDefaults.h"
#include "shell/SettingChoices.h"
#include "shell/TabState.h"

#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

namespace ledgerfinch {

/// One setting: the name under which it is stored, and what it reads as while nobody wrote it. T is std::string, bool,
/// std::int64_t, an enumeration stored by its raw value, or std::optional<std::string> for a text that may be absent.
template <class T>
struct SettingKey {
    using Default = std::conditional_t<std::same_as<T, std::string>, std::string_view, T>;

    std::string_view name;
    Default defaultValue{};
};

namespace settings {

// Server and session.
inline constexpr SettingKey<std::string> server{"server", ""};
inline constexpr SettingKey<std::string> server_version{"server_version", "1.0.0"};
inline constexpr SettingKey<std::string> connectedInstances{"connectedInstances", ""}; ///< one JSON text
inline constexpr SettingKey<std::string> currentlyActiveInstance{"currentlyActiveInstance", ""};
inline constexpr SettingKey<std::string> customHeaders{"customHeaders", ""}; ///< one JSON text; secret
inline constexpr SettingKey<bool> offlineMode{"offlineMode", false};
inline constexpr SettingKey<bool> useiCloud{"useiCloud", false};
inline constexpr SettingKey<std::string> cloudFolder{"cloudFolder", ""};
inline constexpr SettingKey<bool> biometricUnlock{"biometricUnlock", false};

// Synchronisation and files.
inline constexpr SettingKey<bool> skipSyncOnStartup{"skipSyncOnStartup", false};
inline constexpr SettingKey<std::string> lastSuccessfulSync{"lastSuccessfulSync", ""};
inline constexpr SettingKey<bool> download_all{"download_all", false};
inline constexpr SettingKey<std::int64_t> download_saved_view{"download_saved_view", 0};
inline constexpr SettingKey<bool> downloadOriginalFiles{"downloadOriginalFiles", false};

// Adding, naming and sharing.
inline constexpr SettingKey<DefaultAddAction> defaultAddAction{"defaultAddAction", DefaultAddAction::selectEachTime};
inline constexpr SettingKey<bool> tika_support{"tika_support", false};
inline constexpr SettingKey<std::string> importFilenameScheme{"importFilenameScheme", "{year}-{month}-{day}"};
inline constexpr SettingKey<std::string> exportFilenameScheme{"exportFilenameScheme", "{title}"};
inline constexpr SettingKey<ShareDocumentsVia> shareDocumentsVia{"shareDocumentsVia", ShareDocumentsVia::askEachTime};
inline constexpr SettingKey<bool> removeInboxTagsOnSave{"removeInboxTagsOnSave", false};

// Lists and queries.
inline constexpr SettingKey<SelectedTab> defaultTab{"defaultTab", SelectedTab::documents};
inline constexpr SettingKey<bool> includeContentByDefaultInSearch{"includeContentByDefaultInSearch", false};
inline constexpr SettingKey<std::string> defaultOrderByKey{"defaultOrderByKey", "created"};
inline constexpr SettingKey<bool> defaultOrderAscending{"defaultOrderAscending", false};
inline constexpr SettingKey<std::int64_t> defaultCustomView{"defaultCustomView", 0};
inline constexpr SettingKey<SelectedViewStyle> selectedViewStyle{"selectedViewStyle", SelectedViewStyle::grid};
inline constexpr SettingKey<bool> useListView{"useListView", false};
inline constexpr SettingKey<bool> useCustomQueries{"useCustomQueries", true};
inline constexpr SettingKey<bool> useiCloudForCustomQueries{"useiCloudForCustomQueries", true};
inline constexpr SettingKey<bool> hasSeenCustomQueryModal{"hasSeenCustomQueryModal", false};

// Looks.
inline constexpr SettingKey<bool> directToPreview{"directToPreview", false};
inline constexpr SettingKey<bool> invertPreview{"invertPreview", true};
inline constexpr SettingKey<bool> hideHelpButtons{"hideHelpButtons", false};
inline constexpr SettingKey<bool> useNewMenus{"useNewMenus", true};
inline constexpr SettingKey<StorableColorScheme> colorScheme{"colorScheme", StorableColorScheme::system};
inline constexpr SettingKey<std::string> customAccentColor{"customAccentColor", "#725BFF"};

// Notifications.
inline constexpr SettingKey<std::string> notificationDeviceToken{"notificationDeviceToken", ""};
inline constexpr SettingKey<std::optional<std::string>> notification_user_id{"notification_user_id", std::nullopt};
inline constexpr SettingKey<NotificationSetupSteps> notificationSetupStage{"notificationSetupStage",
                                                                           NotificationSetupSteps::info};

/// The key of the user's id on one server: the handler's normalised address and "currentUserId". 0 when unknown.
[[nodiscard]] std::string currentUserIdKey(std::string_view normalizedServer);

// What a settings file holds may have been written by hand, with another type than the program writes.

/// The stored text; the digits of a stored integer, "true" or "false" of a stored truth value.
[[nodiscard]] std::optional<std::string> storedText(const UserDefaults& defaults, std::string_view name);
/// The stored truth value; also of the integers 0 and 1 and of the texts "YES", "NO", "true" and "false".
[[nodiscard]] std::optional<bool> storedBoolean(const UserDefaults& defaults, std::string_view name);

/// The stored value, or the default when the key was never written, holds a type that can't be read as the asked one
/// or a text that names no case. The default is not stored by reading.
template <class T>
[[nodiscard]] T read(const UserDefaults& defaults, const SettingKey<T>& key) {
    if constexpr (std::same_as<T, std::string>) {
        return storedText(defaults, key.name).value_or(std::string(key.defaultValue));
    } else if constexpr (std::same_as<T, bool>) {
        return storedBoolean(defaults, key.name).value_or(key.defaultValue);
    } else if constexpr (std::same_as<T, std::int64_t>) {
        return defaults.integer(key.name).value_or(key.defaultValue);
    } else if constexpr (std::same_as<T, std::optional<std::string>>) {
        auto stored = storedText(defaults, key.name);
        return stored ? stored : key.defaultValue;
    } else {
        const auto stored = defaults.string(key.name);
        return stored ? fromRawValue<T>(*stored).value_or(key.defaultValue) : key.defaultValue;
    }
}

/// Stores the value, also when it equals the default. An absent text removes the key.
template <class T>
Result<void> write(UserDefaults& defaults, const SettingKey<T>& key, const std::type_identity_t<T>& value) {
    if constexpr (std::same_as<T, std::optional<std::string>>) {
        return value ? defaults.set(key.name, *value) : defaults.remove(key.name);
    } else if constexpr (StoredByRawValue<T>) {
        return defaults.set(key.name, rawValue(value));
    } else {
        return defaults.set(key.name, value);
    }
}

/// Forgets what was written, so that the default holds again.
template <class T>
Result<void> remove(UserDefaults& defaults, const SettingKey<T>& key) {
    return defaults.remove(key.name);
}

} // namespace settings
} // namespace ledgerfinch
