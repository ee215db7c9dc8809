// SPDX-License-Identifier: GPL-3.0-or-later
// What the sample server remembers: plain records in tables keyed by id.
#pragma once

#include "support/PaperlessServerModes.h"
#include "support/PaperlessServerTime.h"

#include <nlohmann/json.hpp>

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::support {

/// Keeps the order of keys, since bodies are compared with recorded ones.
using Json = nlohmann::ordered_json;
using Id = std::int64_t;
using OptionalId = std::optional<Id>;

/// Who may see and who may change one object, besides its owner.
struct ObjectPermissions {
    std::vector<Id> viewUsers;
    std::vector<Id> viewGroups;
    std::vector<Id> changeUsers;
    std::vector<Id> changeGroups;

    /// Sets one action ("view" or "change") and keeps the rule that whoever may change may also see.
    void normalise();
};

/// The four kinds of attribute that documents carry and that share nearly all fields.
enum class Kind { Tag, Correspondent, DocumentType, StoragePath };
inline constexpr std::array<Kind, 4> allKinds{Kind::Tag, Kind::Correspondent, Kind::DocumentType, Kind::StoragePath};

/// How a kind is called in paths, permissions and messages.
struct KindNames {
    std::string_view path;      ///< "document_types"
    std::string_view codename;  ///< "documenttype"
    std::string_view verbose;   ///< "document type"
    std::string_view className; ///< "DocumentType"
};
const KindNames& namesOf(Kind kind);

struct Attribute {
    Id id = 0;
    std::string name;
    std::string match;
    std::int64_t matchingAlgorithm = 1;
    bool isInsensitive = true;
    OptionalId owner;
    ObjectPermissions permissions;
    // Tags only.
    std::string color = "#a6cee3";
    bool isInboxTag = false;
    OptionalId parent;
    // Storage paths only.
    std::string path;
};

struct SelectOption {
    std::string id;
    Json label;
    bool isIdFirst = false; ///< the order that its keys were written in
};

struct CustomField {
    Id id = 0;
    std::string name;
    std::string dataType;
    Json extraData;                    ///< null or an object, without the options of a select field
    std::vector<SelectOption> options; ///< of a select field
};

/// A select value is held as the option's id, so that it dangles when the options are renewed.
struct CustomFieldValue {
    Id field = 0;
    Json value;
};

struct Note {
    Id id = 0;
    std::string text;
    Micros created = 0;
    OptionalId user; ///< empty when the author was deleted
};

struct HistoryEntry {
    Id id = 0;
    Micros time = 0;
    std::string action;
    Json changes;
    OptionalId actor;
};

struct Document {
    Id id = 0;
    OptionalId correspondent;
    OptionalId documentType;
    OptionalId storagePath;
    std::string title;
    std::string content;
    std::vector<Id> tags;
    std::string created;               ///< a calendar day, "2024-03-01"
    std::optional<Micros> createdTime; ///< the time of that day, which only the oldest release keeps
    Micros modified = 0;
    Micros added = 0;
    std::optional<Micros> deletedAt; ///< set while in the trash
    std::optional<std::int64_t> archiveSerialNumber;
    std::optional<std::string> originalFileName;
    bool hasArchive = false;
    OptionalId owner;
    ObjectPermissions permissions;
    std::vector<Note> notes;
    std::size_t deletedNotes = 0; ///< still counted when documents are ordered by their number
    std::vector<CustomFieldValue> customFields;
    std::optional<std::int64_t> pageCount;
    std::string mimeType = "application/pdf";
    Micros filed = 0;                            ///< when its files were written
    std::string checksum;                        ///< as recorded or of an upload, MD5 or SHA-256; else empty
    std::shared_ptr<const std::string> original; ///< the uploaded bytes; generated from the text when absent
    std::vector<HistoryEntry> history;
};

struct FilterRule {
    std::int64_t ruleType = 0;
    std::optional<std::string> value;
};

struct SavedView {
    Id id = 0;
    std::string name;
    std::set<Id> onDashboardOf; ///< users; before release 3 only the owner counts
    std::set<Id> inSidebarOf;
    std::optional<std::string> sortField;
    bool sortReverse = false;
    std::vector<FilterRule> filterRules;
    Json pageSize;
    Json displayMode;
    Json displayFields;
    OptionalId owner;
    ObjectPermissions permissions;
};

struct ShareLink {
    Id id = 0;
    Micros created = 0;
    std::optional<Micros> expiration;
    std::string slug;
    Id document = 0;
    std::string fileVersion = "archive";
    OptionalId owner;
};

struct Group {
    Id id = 0;
    std::string name;
    std::vector<std::string> permissions;
};

struct User {
    Id id = 0;
    std::string username;
    std::string password;
    std::string email;
    std::string firstName;
    std::string lastName;
    Micros dateJoined = 0;
    bool isStaff = false;
    bool isActive = true;
    bool isSuperuser = false;
    std::vector<Id> groups;
    std::vector<std::string> permissions;
    std::string token;
    Json settings = Json::object(); ///< what the user stored under ui_settings
};

struct Upload {
    std::string title;
    std::string createdDate; ///< empty: today
    OptionalId correspondent;
    OptionalId documentType;
    OptionalId storagePath;
    std::vector<Id> tags;
    std::vector<Id> customFields;
    std::optional<std::int64_t> archiveSerialNumber;
    std::string mimeType;
    std::shared_ptr<const std::string> file;
};

enum class TaskState { Pending, Started, Done };
enum class TaskKind { Consume, BulkUpdate, Reprocess, Rotate };

struct Task {
    Id id = 0;
    TaskKind kind = TaskKind::Consume;
    std::string taskId;
    std::string fileName;
    bool isOwnFile = false; ///< the server made it out of documents
    Micros created = 0;
    std::optional<Micros> started;
    std::optional<Micros> done;
    TaskState state = TaskState::Pending;
    bool succeeded = false;
    std::string result;
    bool acknowledged = false;
    OptionalId relatedDocument; ///< the one it made
    OptionalId duplicateOf;
    bool duplicateInTrash = false;
    std::vector<Id> touches; ///< documents whose "modified" moves when it is done
    OptionalId owner;
    Upload upload; ///< what the task will carry out
};

/// When the worker of the server does its work on uploads.
enum class TaskPace {
    PerPoll,   ///< pending, started, done: one step each time a client looks at the task
    Immediate, ///< done before the upload is answered
    Manual,    ///< as the test says
};

/// How many documents a user sees under each attribute.
struct DocumentCounts {
    std::array<std::map<Id, std::int64_t>, 4> byAttribute;
    std::map<Id, std::int64_t> byCustomField;
};

/// What a scanner would read from a file, which nothing here can.
struct FileText {
    std::string content;
    std::string date; ///< the first one in the text, empty without
};

struct State {
    std::map<Id, Document> documents; ///< the trash included
    std::array<std::map<Id, Attribute>, 4> attributes;
    std::map<Id, CustomField> customFields;
    std::map<Id, SavedView> savedViews;
    std::map<Id, ShareLink> shareLinks;
    std::map<Id, User> users;
    std::map<Id, Group> groups;
    std::map<Id, Task> tasks;
    std::map<std::string, FileText> fileTexts; ///< by the name of the file
    std::map<std::string, Id> nextIds;         ///< per table; ids are never given twice
    std::uint64_t revision = 0;                ///< grows with every change
    Micros lastTime = 0;
    Micros clockShift = 0; ///< added to the machine's clock
    TaskPace taskPace = TaskPace::PerPoll;
    Release release;
    bool leavesRemovedOptions = false;                 ///< in values, as long as the worker didn't come to them
    bool refusesDuplicates = false;                    ///< what release 3 does only when told so
    std::optional<std::size_t> loginLimit;             ///< a minute and address; empty: as the release, 0: any number
    std::map<std::string, std::vector<Micros>> logins; ///< attempts of the last minute by address
    bool thumbnailsAreWebp = true;                     ///< as the real server's; PNG needs no decoder plug-in

    std::map<Id, Attribute>& table(Kind kind) { return attributes[std::size_t(kind)]; }
    const std::map<Id, Attribute>& table(Kind kind) const { return attributes[std::size_t(kind)]; }

    /// The server's clock.
    Micros clock() const { return clockNow() + clockShift; }
    /// The clock, but never the same twice, so that an order by time is an order by event.
    Micros now();
    /// The next id of a table.
    Id takeId(const std::string& table);
    /// Makes sure that later ids of a table lie above this one.
    void reserveId(const std::string& table, Id id);
    /// To be called after every change, since answers are cached by revision.
    void changed() { ++revision; }

    User* userByName(std::string_view username);
    const User* userByToken(std::string_view token) const;
    Document* liveDocument(Id id);
    const Document* liveDocument(Id id) const;
};

/// "Dr. Größenwahn & Söhne" gives "dr-groenwahn-sohne".
std::string slugOf(std::string_view name);
/// The ASCII letters of a text, with marks removed and everything else dropped.
std::string asciiOf(std::string_view text);
/// Black or white, whichever reads better on the colour.
std::string textColorOn(std::string_view color);
/// Lowers ASCII letters only, as SQLite's lower() does.
std::string lowerAscii(std::string_view text);
/// Lowers the letters of the common European scripts.
std::string lowerText(std::string_view text);
/// The number of code points.
std::size_t textLength(std::string_view text);
/// At most this many code points from the front.
std::string_view textPrefix(std::string_view text, std::size_t length);
/// 40 hexadecimal digits; the tokens of the seeded users are the digest of their name.
std::string sha1Hex(std::string_view bytes);
/// 32 hexadecimal digits.
std::string md5Hex(std::string_view bytes);
/// 64 hexadecimal digits.
std::string sha256Hex(std::string_view bytes);

} // namespace ledgerfinch::support
