// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObjectContext.h"
#include "platform/Logger.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace ledgerfinch {

/// How long a commit may take to be on the disk.
enum class Durability {
    Normal, ///< a power cut may lose the last commits, never the store (WAL, synchronous NORMAL)
    Full    ///< every commit is on the disk when save returns
};

/// What a store is opened for.
enum class StoreAccess {
    Write,       ///< refused when the file or its folder can't be written to
    WriteOrRead, ///< read only where they can't be, or the disk is full: whatever saves then fails
    Read         ///< read only: the file has to be there, and of this program's model
};

struct StoreDescription {
    std::filesystem::path file;
    Durability durability = Durability::Normal;
    /// Name of an SQLite VFS, empty for the default one; tests put a failing one here.
    std::string vfs;
    StoreAccess access = StoreAccess::Write;
};

enum class StoreErrorCode { Unreadable = 1, Damaged, NewerModel, ReadOnly, Full, Busy, Failed };

/// One store file, open. Several processes may have it open at once. Outlives its contexts' use: contexts hold it
/// alive.
class PersistentContainer : public std::enable_shared_from_this<PersistentContainer> {
public:
    /// Opens or creates the file and brings it to the model (new tables and columns are added inside one transaction).
    /// A file that is damaged, no store, of a newer model or unreadable is left as it is, to the byte. Error::code is a
    /// StoreErrorCode.
    static Result<std::shared_ptr<PersistentContainer>> open(const Model& model, StoreDescription description,
                                                             const Logger& log);
    ~PersistentContainer();

    [[nodiscard]] const Model& model() const;
    [[nodiscard]] const std::filesystem::path& file() const;
    /// Nothing can be saved: see StoreAccess.
    [[nodiscard]] bool isReadOnly() const;
    [[nodiscard]] std::uint64_t identity() const;

    /// Made once, belongs to the main thread.
    [[nodiscard]] std::shared_ptr<ManagedObjectContext> viewContext();
    [[nodiscard]] std::shared_ptr<ManagedObjectContext> newBackgroundContext();
    /// A small context of its own on the main thread, for a form.
    [[nodiscard]] std::shared_ptr<ManagedObjectContext> newMainContext();

    /// List fetches beside everything else: a reading connection of its own, never behind a save or a merge; sees what
    /// is committed. Any thread, one caller at a time each; interruptFetches() ends those under way with
    /// StoreErrorCode::Busy.
    Result<std::vector<ObjectID>> fetchIDs(const FetchRequest& request);
    void interruptFetches();

    /// Deletes every object of the entity in short transactions, so that nobody waits long behind it. Delete rules of
    /// the file apply.
    Result<void> batchDelete(std::string_view entityName);

    /// Looks for commits of other processes and hands their changes to the contexts. Cheap when there are none. Called
    /// before each fetch and save too.
    void processRemoteChanges();
    /// After another process changed the store (noticed by processRemoteChanges); on the thread that noticed.
    [[nodiscard]] Subscription onRemoteChange(std::function<void()> callback);

    /// Everything committed until now is on the disk when it returns, whatever the store's durability.
    Result<void> makeDurable();

    /// A whole, consistent copy while others read and write.
    Result<void> backup(const std::filesystem::path& target);
    /// SQLite's own integrity and foreign key check; for tests and diagnostics. Proportional to the store.
    Result<void> verify();

    /// Rows written (inserted, updated, deleted, joins too) since it was opened, by this process.
    [[nodiscard]] std::uint64_t rowsWritten() const;

private:
    friend class ManagedObjectContext;
    friend class ObjectStoreAccess;
    struct Private;
    explicit PersistentContainer(std::unique_ptr<Private> d);
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch
