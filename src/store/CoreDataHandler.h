// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"
#include "platform/Services.h"
#include "records/Attributes.h"
#include "records/Document.h"
#include "records/SavedView.h"
#include "records/Users.h"
#include "store/CloudDataHandler.h"
#include "store/DocumentFiles.h"
#include "store/WriteFailure.h"
#include "store/entities/Entities.h"
#include "store/entities/Models.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

/// How much of the server's list is in hand.
enum class Delivery {
    Absent,  ///< nothing was delivered: nothing is removed or written
    Partial, ///< some pages: what is there is written, nothing is removed
    Complete ///< every page, up to the absent `next`: what isn't in the list is removed first
};

/// Who wins where a record has no value.
enum class Authority {
    Merge,     ///< an absent value leaves the local one alone
    ServerWins ///< null clears; text and notes are refreshed. For records that are fetched to repair a refused write
};

/// What became of the records of one merge.
struct MergeOutcome {
    std::size_t saved = 0;
    std::size_t failed = 0;  ///< logged and taken back; the server delivers them again
    std::size_t removed = 0; ///< local objects that the server no longer has
    [[nodiscard]] bool complete() const { return failed == 0; }
};

/// A file to become a document that no server has.
struct LocalDocument {
    std::filesystem::path source;
    bool removeSource = false;
    std::optional<std::string> title = std::nullopt; ///< the file's name without extension when absent
    bool example = false;                            ///< keeps the id 0
};

/// What reading a local file found out; ids of local attributes.
struct LocalAnalysis {
    std::optional<std::string> text = std::nullopt;
    std::optional<std::int64_t> documentType = std::nullopt;
    std::optional<std::int64_t> correspondent = std::nullopt;
    std::vector<std::int64_t> tags = {};
    std::optional<Timestamp> created = std::nullopt;
};
using LocalAnalyser = std::function<LocalAnalysis(const std::filesystem::path& file)>;

using ContextRef = std::shared_ptr<ManagedObjectContext>;

/// The one object of the main store: holds its container and two contexts, merges what the server delivers, reads what
/// screens list. Every operation runs inside its context's synchronous perform block, so it may be called from any
/// thread and blocks it; a null context means the view context. Failures of the store are logged, not thrown.
///
/// The handler outlives all use of its contexts.
class CoreDataHandler {
public:
    static constexpr std::string_view kContainerName = "Ledgerfinch";

    /// Opens the store of the active instance. A store that can't be opened ends the program, the file untouched.
    /// `access` holds for every store it opens.
    explicit CoreDataHandler(Services& services, std::shared_ptr<DocumentSink> sink = nullptr,
                             StoreAccess access = StoreAccess::Write);
    ~CoreDataHandler();
    CoreDataHandler(const CoreDataHandler&) = delete;
    CoreDataHandler& operator=(const CoreDataHandler&) = delete;

    // The store. The accessors may be called on any thread; whoever works for longer keeps what they return, and so
    // stays with one store when another thread moves.
    [[nodiscard]] std::shared_ptr<PersistentContainer> persistenceContainer() const;
    [[nodiscard]] ContextRef backgroundContext() const;
    [[nodiscard]] ContextRef viewContext() const;
    /// The file's name without ".sqlite".
    [[nodiscard]] std::string storeName() const;
    /// The store of offline mode. No sync may write into it.
    [[nodiscard]] bool isOfflineStore() const;
    /// Opened in the mirrored mode (files in the cloud folder).
    [[nodiscard]] bool isMirrored() const;
    [[nodiscard]] const DocumentFiles& documentFiles() const { return m_files; }
    [[nodiscard]] const CloudDataHandler& cloud() const { return m_cloud; }
    [[nodiscard]] Services& services() const { return m_services; }
    /// What kept lists from being merged, until it is forgotten; whoever begins a sync forgets it.
    [[nodiscard]] WriteFailure& writeFailure() { return m_writeFailure; }
    /// The store of this name: the one that is open, or else that file, opened for as long as the caller holds it.
    /// Fails when there is no such file. Any thread.
    [[nodiscard]] Result<std::shared_ptr<PersistentContainer>> containerFor(std::string_view name) const;

    /// Replaces the container and both contexts. On failure the old store stays open and the reason comes back. A name
    /// with anything of a path in it is refused. Main thread.
    Result<void> moveToStore(std::string_view name);
    /// These two open the active instance's store, or that of offline mode when no instance is active.
    Result<void> moveToLocalStore();
    Result<void> moveToCloudStore();
    /// Rolls the view context back when saving fails.
    Result<void> saveViewContext();
    /// Deletes every object of every entity, in short pieces. Files are the caller's business.
    void resetStore();

    // Whole lists as delivered. Each record is saved by itself.
    MergeOutcome saveTags(const std::vector<Tag>& records, Delivery delivery, ContextRef context = nullptr);
    MergeOutcome saveCorrespondents(const std::vector<Correspondent>& records, Delivery delivery,
                                    ContextRef context = nullptr);
    MergeOutcome saveDocumentTypes(const std::vector<Document_Type>& records, Delivery delivery,
                                   ContextRef context = nullptr);
    MergeOutcome saveStoragePaths(const std::vector<Storage_Path>& records, Delivery delivery,
                                  ContextRef context = nullptr);
    MergeOutcome saveCustomFields(const std::vector<Custom_Field>& records, Delivery delivery,
                                  ContextRef context = nullptr);
    MergeOutcome saveSavedViews(const std::vector<Saved_view>& records, Delivery delivery,
                                ContextRef context = nullptr);
    MergeOutcome saveUsers(const std::vector<User>& records, Delivery delivery, ContextRef context = nullptr);
    MergeOutcome saveGroups(const std::vector<PaperlessGroup>& records, Delivery delivery,
                            ContextRef context = nullptr);

    // Single records, written and saved. The id of the object in the context's store.
    ObjectID saveTag(const Tag& record, ContextRef context = nullptr, Authority authority = Authority::Merge);
    ObjectID saveCorrespondent(const Correspondent& record, ContextRef context = nullptr,
                               Authority authority = Authority::Merge);
    ObjectID saveDocumentType(const Document_Type& record, ContextRef context = nullptr,
                              Authority authority = Authority::Merge);
    ObjectID saveStoragePath(const Storage_Path& record, ContextRef context = nullptr,
                             Authority authority = Authority::Merge);
    ObjectID saveCustomField(const Custom_Field& record, ContextRef context = nullptr,
                             Authority authority = Authority::Merge);
    ObjectID saveSavedView(const Saved_view& record, ContextRef context = nullptr,
                           Authority authority = Authority::Merge);
    ObjectID saveUser(const User& record, ContextRef context = nullptr, Authority authority = Authority::Merge);
    ObjectID saveGroup(const PaperlessGroup& record, ContextRef context = nullptr,
                       Authority authority = Authority::Merge);

    // Documents.
    MergeOutcome saveDocuments(const std::vector<Document>& records, ContextRef context = nullptr,
                               Authority authority = Authority::Merge);
    ObjectID saveDocument(const Document& record, ContextRef context = nullptr, Authority authority = Authority::Merge);
    /// The ids of all documents, ascending; none when the store can't be read. What is stored before a server is asked
    /// for its list may be removed by that list, and nothing that is stored later.
    [[nodiscard]] std::vector<std::int64_t> storedDocumentIds(ContextRef context = nullptr);
    /// Deletes those of the documents stored before that aren't among the server's ids, and then their files. Only for
    /// a delivered list of all ids. Documents that were added on this device and never delivered stay.
    MergeOutcome removeOutdatedDocuments(const std::vector<std::int64_t>& serverIds,
                                         const std::vector<std::int64_t>& storedBefore, ContextRef context = nullptr);
    /// The same for all that are stored now: for a list that can't be older than they are.
    MergeOutcome removeOutdatedDocuments(const std::vector<std::int64_t>& serverIds, ContextRef context = nullptr);
    /// Which of the ids no document here has, ascending.
    [[nodiscard]] std::vector<std::int64_t> missingDocuments(const std::vector<std::int64_t>& serverIds,
                                                             ContextRef context = nullptr);
    /// Does nothing for a document without uuid. False when the deletion could not be saved (it is then rolled back).
    bool deleteDocument(const Ref<CD_Document>& document, ContextRef context = nullptr);
    bool deleteObject(const ObjectID& id, ContextRef context = nullptr);
    /// The file is copied into the document's folder before the document is saved. The analyser runs on the calling
    /// thread, outside the context's queue.
    Result<ObjectID> addLocalDocument(const LocalDocument& document, const LocalAnalyser& analyse = {},
                                      ContextRef context = nullptr);
    /// Links documents whose correspondent, type, storage path, tags, owner or fields were not there when they were
    /// merged, from what the server last delivered of them. How many could be linked in full.
    std::size_t resolveUnresolved(ContextRef context = nullptr);

    // Lists for screens, sorted by name (users by username). Never wait behind a sync; see what is saved.
    [[nodiscard]] std::vector<Ref<CD_Tag>> getTags(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_Saved_View>> getSavedViews(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_Document_Type>> getDocumentTypes(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_Correspondent>> getCorrespondents(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_Storage_Path>> getStoragePaths(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_Custom_Field>> getCustomFields(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_User>> getUsers(ContextRef context = nullptr);
    [[nodiscard]] std::vector<Ref<CD_Group>> getGroups(ContextRef context = nullptr);

    // One object by its server id; null when there is none. The object is for use inside the context's queue.
    [[nodiscard]] Ref<CD_Tag> getTag(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Document_Type> getDocumentType(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Correspondent> getCorrespondent(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Storage_Path> getStoragePath(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Saved_View> getSavedView(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_User> getUser(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Custom_Field> getCustomField(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Group> getGroup(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Note> getNote(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Document> getDocument(std::int64_t id, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Document> getDocumentByUuid(const Uuid& uuid, ContextRef context = nullptr);
    [[nodiscard]] Ref<CD_Document> getDocumentByAsn(std::int64_t asn, ContextRef context = nullptr);
    /// The one with the highest id.
    [[nodiscard]] Ref<CD_Document> getLatestDocument(ContextRef context = nullptr);
    [[nodiscard]] std::optional<std::int64_t> getMaxAsn(ContextRef context = nullptr);
    [[nodiscard]] std::optional<std::int64_t> getMaxId(std::string_view entityName, ContextRef context = nullptr);

private:
    enum class Mode { Local, Mirrored };
    struct OpenStore {
        std::string name;
        Mode mode = Mode::Local;
        std::shared_ptr<PersistentContainer> container;
        ContextRef background;
        ContextRef view;
    };

    [[nodiscard]] ContextRef contextOrView(ContextRef context) const;
    [[nodiscard]] std::string activeStoreName() const;
    Result<OpenStore> openStore(const std::string& name, Mode mode) const;
    Result<void> moveTo(const std::string& name, Mode mode);
    template <class T>
    std::vector<Ref<T>> sortedList(SortDescriptor sort, ContextRef context);
    template <class T>
    Ref<T> byID(std::int64_t id, ContextRef context);

    Services& m_services;
    Logger m_log;
    StoreAccess m_access;
    std::unique_ptr<const Model> m_model;
    CloudDataHandler m_cloud;
    DocumentFiles m_files;
    WriteFailure m_writeFailure;
    mutable std::mutex m_mutex; ///< guards m_store only
    OpenStore m_store;
};

} // namespace ledgerfinch
