// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerModes.h"

namespace ledgerfinch::support {

std::optional<ServerMode> modeNamed(std::string_view name) {
    if (name == "2.7") return ServerMode::V2_7;
    if (name == "2.20") return ServerMode::V2_20;
    if (name == "3.x") return ServerMode::V3;
    return std::nullopt;
}

Release releaseOf(ServerMode mode) {
    Release release;
    release.mode = mode;
    if (mode == ServerMode::V2_7) {
        release.version = "2.7.2";
        release.highest = 5;
        release.standard = 1;
        release.checksRights = release.checksAttributes = release.hasRichFields = release.ordersLists = false;
        release.listsCorrespondence = true;
    } else if (mode == ServerMode::V3) {
        release.version = "3.0.5";
        release.lowest = 9;
        release.highest = release.standard = 10;
        release.limitsLogins = release.repeatsFiles = release.hasSha256 = release.hasTaskQueue = true;
        release.hasSimpleSearch = release.sortsFieldsByName = release.compressesAnyFile = true;
        release.archivesEveryPdf = false;
        release.lastRuleType = 49;
    }
    return release;
}

ApiShape apiShapeOf(ServerMode mode, int version) {
    ApiShape shape;
    shape.mode = mode;
    shape.version = version;
    auto isThree = mode == ServerMode::V3;
    shape.hasNumberedColors = version < 2;
    shape.hasOptionIds = version >= 7;
    shape.hasNoteAuthors = version >= 8;
    shape.hasPlainDates = version >= 9;
    shape.listsAll = version < 10;
    shape.hasPagedTasks = version >= 10;
    shape.hasDisplayCount = isThree;
    shape.hasVersions = isThree;
    shape.hasNewestNotesFirst = mode == ServerMode::V2_7;
    shape.keepsTimeOfDay = mode == ServerMode::V2_7;
    shape.hasNestedTags = mode != ServerMode::V2_7 && version >= 2;
    shape.hasPersonalViews = isThree;
    shape.hasViewFlags = version < 10;
    return shape;
}

} // namespace ledgerfinch::support
