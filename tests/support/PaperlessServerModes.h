// SPDX-License-Identifier: GPL-3.0-or-later
// Which release the sample server is, and how that release answers in the API version that was asked for.
// All of it reads and writes one and the same state: endpoints and serializers look here and nowhere else.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ledgerfinch::support {

/// The releases whose answers were recorded: 2.7.2, 2.20.15, 3.0.5.
enum class ServerMode { V2_7, V2_20, V3 };

/// "2.7", "2.20", "3.x"
std::optional<ServerMode> modeNamed(std::string_view name);

/// What a release says about itself and does in every API version.
struct Release {
    ServerMode mode = ServerMode::V2_20;
    std::string version = "2.20.15";
    int lowest = 1;   ///< API version
    int highest = 9;  ///< API version; what x-api-version says
    int standard = 9; ///< API version without one in the request

    // Not yet in 2.7.
    bool checksRights = true;         ///< also on uploads, tasks, share links and settings
    bool checksAttributes = true;     ///< templates of paths, names without an owner; a PUT without owner removes it
    bool hasRichFields = true;        ///< custom fields of every type with data of their own, values checked in full
    bool ordersLists = true;          ///< by date unless asked otherwise, "all" like the results; custom field queries
    bool listsCorrespondence = false; ///< lists of correspondents tell each one's last document

    // New in 3.
    bool limitsLogins = false;    ///< five a minute and address
    bool repeatsFiles = false;    ///< the same file makes a second document, unless told otherwise
    bool archivesEveryPdf = true; ///< also those that were born as PDF
    bool hasSha256 = false;       ///< checksums, and thumbnails tagged by them
    bool hasTaskQueue = false;    ///< whatever the worker does is a task
    bool hasSimpleSearch = false; ///< "text" and "title_search"; another engine behind them
    bool sortsFieldsByName = false;
    bool compressesAnyFile = false; ///< however short
    std::int64_t lastRuleType = 47; ///< of a saved view's filter
};
Release releaseOf(ServerMode mode);

/// What an API version of a release looks like.
struct ApiShape {
    ServerMode mode = ServerMode::V2_20;
    int version = 2;

    bool hasNumberedColors = false;   ///< tags have "colour", a number, in place of "color"
    bool hasOptionIds = false;        ///< select options and values by id, not by label and index
    bool hasNoteAuthors = false;      ///< a note's user is an object, null when it is gone
    bool hasPlainDates = false;       ///< a document's "created" is a day, not a time
    bool listsAll = true;             ///< pages carry the ids of the whole list
    bool hasPagedTasks = false;       ///< tasks in pages and with other keys
    bool hasDisplayCount = false;     ///< pages of tags count those shown at the top
    bool hasVersions = false;         ///< documents tell duplicates, root and versions of the file
    bool keepsTimeOfDay = false;      ///< a document's "created" is the time it was given, not midnight
    bool hasNestedTags = true;        ///< tags tell parent and children
    bool hasNewestNotesFirst = false; ///< in the list of notes, with whole authors and times in UTC
    bool hasPersonalViews = false;    ///< views are shared by permissions; their flags are each user's setting
    bool hasViewFlags = true;         ///< views tell where they are shown
};
ApiShape apiShapeOf(ServerMode mode, int version);

} // namespace ledgerfinch::support
