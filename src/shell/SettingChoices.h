// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "shell/RawValues.h"

#include <array>

namespace ledgerfinch {

/// How the list of documents is drawn.
enum class SelectedViewStyle { table, grid, list };
/// What the add tab opens.
enum class DefaultAddAction { camera, file, image, network, selectEachTime };
enum class StorableColorScheme { dark, light, system };
/// What is handed out when a document is shared.
enum class ShareDocumentsVia { link, file, customURL, askEachTime };
/// How far the setting up of notifications has come.
enum class NotificationSetupSteps { info, privacy, setup };

template <>
struct RawValues<SelectedViewStyle> {
    static constexpr std::array<std::pair<SelectedViewStyle, std::string_view>, 3> table{{
        {SelectedViewStyle::table, "table"},
        {SelectedViewStyle::grid, "grid"},
        {SelectedViewStyle::list, "list"},
    }};
};

template <>
struct RawValues<DefaultAddAction> {
    static constexpr std::array<std::pair<DefaultAddAction, std::string_view>, 5> table{{
        {DefaultAddAction::camera, "camera"},
        {DefaultAddAction::file, "file"},
        {DefaultAddAction::image, "image"},
        {DefaultAddAction::network, "network"},
        {DefaultAddAction::selectEachTime, "selectEachTime"},
    }};
};

template <>
struct RawValues<StorableColorScheme> {
    static constexpr std::array<std::pair<StorableColorScheme, std::string_view>, 3> table{{
        {StorableColorScheme::dark, "dark"},
        {StorableColorScheme::light, "light"},
        {StorableColorScheme::system, "system"},
    }};
};

template <>
struct RawValues<ShareDocumentsVia> {
    static constexpr std::array<std::pair<ShareDocumentsVia, std::string_view>, 4> table{{
        {ShareDocumentsVia::link, "link"},
        {ShareDocumentsVia::file, "file"},
        {ShareDocumentsVia::customURL, "ledgerfinch url"},
        {ShareDocumentsVia::askEachTime, "ask"},
    }};
};

template <>
struct RawValues<NotificationSetupSteps> {
    static constexpr std::array<std::pair<NotificationSetupSteps, std::string_view>, 3> table{{
        {NotificationSetupSteps::info, "info"},
        {NotificationSetupSteps::privacy, "privacy"},
        {NotificationSetupSteps::setup, "setup"},
    }};
};

} // namespace ledgerfinch
