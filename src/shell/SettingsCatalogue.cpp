// SPDX-License-Identifier: GPL-3.0-or-later
#include "shell/SettingsCatalogue.h"

#include "shell/Settings.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace ledgerfinch::settings {
namespace {

constexpr std::size_t kLongestText = 4096;

template <class T>
Description describe(const SettingKey<T>& key, std::string_view meaning, Access access = Access::open) {
    Description description{key.name, Kind::text, {}, meaning, access, {}};
    if constexpr (std::same_as<T, bool>) {
        description.kind = Kind::boolean;
        description.defaultText = key.defaultValue ? "true" : "false";
    } else if constexpr (std::same_as<T, std::int64_t>) {
        description.kind = Kind::integer;
        description.defaultText = std::to_string(key.defaultValue);
    } else if constexpr (StoredByRawValue<T>) {
        description.kind = Kind::choice;
        description.defaultText = rawValue(key.defaultValue);
        for (const auto& [value, text] : RawValues<T>::table)
            description.choices.push_back(text);
    } else if constexpr (std::same_as<T, std::string>) {
        description.defaultText = key.defaultValue;
    }
    return description;
}

std::vector<Description> makeCatalogue() {
    return {
        describe(server, "address of the active server", Access::managed),
        describe(server_version, "version that the server reported last", Access::managed),
        describe(connectedInstances, "the connected servers", Access::managed),
        describe(currentlyActiveInstance, "the server in use", Access::managed),
        describe(customHeaders, "extra request headers", Access::secret),
        describe(offlineMode, "no server; documents are local", Access::managed),
        describe(useiCloud, "keep store and files in the cloud folder", Access::managed),
        describe(cloudFolder, "folder that your sync service keeps equal; empty for none"),
        describe(biometricUnlock, "lock at start"),

        describe(skipSyncOnStartup, "don't synchronise at start"),
        describe(lastSuccessfulSync, "time of the last synchronisation", Access::managed),
        describe(download_all, "download the file of every new document"),
        describe(download_saved_view, "id of the saved view whose documents are downloaded; 0 for none"),
        describe(downloadOriginalFiles, "download originals instead of archived files"),

        describe(defaultAddAction, "what the add tab opens"),
        describe(tika_support, "allow selection of office documents"),
        describe(importFilenameScheme, "name given to added documents"),
        describe(exportFilenameScheme, "name given to shared files"),
        describe(shareDocumentsVia, "what is handed out when a document is shared"),
        describe(removeInboxTagsOnSave, "take inbox tags off when a document is saved"),

        describe(defaultTab, "tab at start"),
        describe(includeContentByDefaultInSearch, "search the content too"),
        describe(defaultOrderByKey, "sort key of the list"),
        describe(defaultOrderAscending, "sort upwards"),
        describe(defaultCustomView, "id of the saved view shown first; 0 for none"),
        describe(selectedViewStyle, "how the list is drawn"),
        describe(useListView, "draw the list as a list (older setting)"),
        describe(useCustomQueries, "show the custom queries"),
        describe(useiCloudForCustomQueries, "keep custom queries in the cloud folder"),
        describe(hasSeenCustomQueryModal, "the introduction of custom queries was shown"),

        describe(directToPreview, "open the preview at once"),
        describe(invertPreview, "invert previews in dark mode"),
        describe(hideHelpButtons, "hide the help symbols in forms"),
        describe(useNewMenus, "menu style of the list"),
        describe(colorScheme, "appearance"),
        describe(customAccentColor, "accent colour, as #RRGGBB"),

        describe(notificationDeviceToken, "this device's address for notifications", Access::secret),
        describe(notification_user_id, "id of the registration for notifications", Access::managed),
        describe(notificationSetupStage, "step of the notification setup"),
    };
}

std::string quoted(std::string_view text) {
    return '"' + std::string(text) + '"';
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool equalsIgnoringCase(std::string_view first, std::string_view second) {
    return std::equal(first.begin(), first.end(), second.begin(), second.end(),
                      [](char a, char b) { return lower(a) == lower(b); });
}

std::optional<bool> parseBoolean(std::string_view text) {
    for (const std::string_view yes : {"true", "yes", "on", "1"})
        if (equalsIgnoringCase(text, yes)) return true;
    for (const std::string_view no : {"false", "no", "off", "0"})
        if (equalsIgnoringCase(text, no)) return false;
    return std::nullopt;
}

std::optional<std::int64_t> parseInteger(std::string_view text) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return number;
}

bool isColour(std::string_view text) {
    return text.size() == 7 && text.front() == '#' &&
           text.find_first_not_of("0123456789abcdefABCDEF", 1) == std::string_view::npos;
}

Error unknownSetting(std::string_view name) {
    for (const Description& setting : catalogue())
        if (equalsIgnoringCase(setting.name, name))
            return {"There is no setting " + quoted(name) + ". Did you mean " + quoted(setting.name) + "?"};
    return {"There is no setting " + quoted(name) + "."};
}

Error misfit(const Description& setting, std::string_view expected, std::string_view text) {
    return {quoted(setting.name) + " takes " + std::string(expected) + ", not " + quoted(text) + "."};
}

std::string listOf(const std::vector<std::string_view>& choices) {
    std::string list;
    for (std::size_t i = 0; i < choices.size(); ++i) {
        if (i > 0) list += i + 1 == choices.size() ? " or " : ", ";
        list += quoted(choices[i]);
    }
    return list;
}

/// What a text setting asks for beyond being a text; absent when it fits.
std::optional<Error> faultOfText(const Description& setting, std::string_view text) {
    if (text.size() > kLongestText) return Error{quoted(setting.name) + " takes a shorter text."};
    const auto isControl = [](char c) {
        return static_cast<unsigned char>(c) < 0x20 || c == 0x7F;
    };
    if (std::any_of(text.begin(), text.end(), isControl))
        return Error{quoted(setting.name) + " takes a text of one line."};
    if (setting.name == customAccentColor.name && !isColour(text))
        return misfit(setting, "a colour such as #725BFF", text);
    if (setting.name == cloudFolder.name && !text.empty() && text.front() != '/')
        return misfit(setting, "the whole path of a folder, beginning with a slash", text);
    return std::nullopt;
}

} // namespace

const std::vector<Description>& catalogue() {
    static const std::vector<Description> all = makeCatalogue();
    return all;
}

const Description* find(std::string_view name) {
    const auto& all = catalogue();
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& setting) { return setting.name == name; });
    return found == all.end() ? nullptr : &*found;
}

std::string displayText(const UserDefaults& defaults, const Description& setting) {
    if (setting.access == Access::secret) {
        const auto stored = storedText(defaults, setting.name);
        return stored && !stored->empty() ? "<private>" : "";
    }
    switch (setting.kind) {
    case Kind::boolean: {
        const auto stored = storedBoolean(defaults, setting.name);
        if (!stored) return setting.defaultText;
        return *stored ? "true" : "false";
    }
    case Kind::integer: {
        const auto stored = defaults.integer(setting.name);
        return stored ? std::to_string(*stored) : setting.defaultText;
    }
    case Kind::choice: {
        const auto stored = defaults.string(setting.name);
        const bool known =
            stored && std::find(setting.choices.begin(), setting.choices.end(), *stored) != setting.choices.end();
        return known ? *stored : setting.defaultText;
    }
    case Kind::text:
        break;
    }
    return storedText(defaults, setting.name).value_or(setting.defaultText);
}

Result<void> setFromText(UserDefaults& defaults, std::string_view name, std::string_view text) {
    const Description* setting = find(name);
    if (!setting) return unknownSetting(name);
    if (setting->access != Access::open)
        return Error{quoted(name) + " is kept by the program itself and can't be set by hand."};
    switch (setting->kind) {
    case Kind::boolean: {
        const auto flag = parseBoolean(text);
        if (!flag) return misfit(*setting, "true or false", text);
        return defaults.set(name, *flag);
    }
    case Kind::integer: {
        const auto number = parseInteger(text);
        if (!number || *number < 0) return misfit(*setting, "a whole number from 0 upwards", text);
        return defaults.set(name, *number);
    }
    case Kind::choice:
        if (std::find(setting->choices.begin(), setting->choices.end(), text) == setting->choices.end())
            return misfit(*setting, listOf(setting->choices), text);
        return defaults.set(name, text);
    case Kind::text:
        break;
    }
    if (auto fault = faultOfText(*setting, text)) return std::move(*fault);
    return defaults.set(name, text);
}

} // namespace ledgerfinch::settings
