// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "connection/ApiHandler.h"
#include "objectstore/PersistentContainer.h"
#include "platform/DispatchQueue.h"
#include "store/CoreDataHandler.h"
#include "sync/SyncObserver.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace ledgerfinch {

/// The documents of a saved view, in its order, from the committed state of the store; absent when there is no such
/// view. Any thread.
using DocumentsOfSavedView =
    std::function<std::optional<std::vector<ObjectID>>(PersistentContainer& container, std::int64_t savedViewId)>;

/// Fetches the files of chosen documents in the background: all of them, or those of a saved view, as the settings
/// "download_all" and "download_saved_view" say. One run at a time: a new one takes the place of the one under way,
/// which then tells its observer nothing more. Dropping the object ends the run at once.
class DocumentDownloads {
public:
    /// Without `documentsOfSavedView` nothing is downloaded for a saved view, and the log says so.
    DocumentDownloads(Services& services, CoreDataHandler& core, DocumentsOfSavedView documentsOfSavedView = {});
    ~DocumentDownloads();
    DocumentDownloads(const DocumentDownloads&) = delete;
    DocumentDownloads& operator=(const DocumentDownloads&) = delete;

    /// Starts a run over the store that is open now, with its `stage` and `additionalInformation` told to the observer
    /// on the run's thread. A document whose file fails is passed over; the run ends early when nobody answers several
    /// times in a row, files can't be written several times in a row, the token is refused, or another server or store
    /// becomes the active one. Nothing happens after stop().
    void downloadSelectedDocuments(std::shared_ptr<ApiHandler> api, SyncObserver observer);
    /// Ends the run under way after the document in hand.
    void cancel();
    /// For good: ends the run and its request at once, and no other begins. From any thread.
    void stop();
    /// Ends the run at once and then removes every downloaded file, so that the document in hand doesn't come back.
    /// `done` is called on the runs' thread.
    void removeAllDownloads(std::function<void()> done);
    /// Waits until nothing is under way.
    void wait();
    /// Why the last run ended early, when files could not be written; a sentence without anything private.
    [[nodiscard]] std::optional<std::string> writeFailure() const;

private:
    struct Run;
    enum class InHand { Finish, Drop };
    /// Nobody is `m_telling` meanwhile.
    void endRun(InHand inHand);
    void run(const Run& run);
    bool downloadAll(const Run& run, const std::vector<ObjectID>& documents);
    /// What became of the download; success also where there is nothing to do.
    Result<void> download(const Run& run, ManagedObjectContext& context, const ObjectID& document);
    std::vector<ObjectID> selectedDocuments(const Run& run) const;
    [[nodiscard]] bool isCurrent(const Run& run) const;
    // These tell the run's observer, unless another run has taken its place.
    void tellStage(const Run& run, loadingData stage);
    void tellProgress(const Run& run, std::size_t index, std::size_t count);

    Services& m_services;
    CoreDataHandler& m_core;
    DocumentsOfSavedView m_documentsOfSavedView;
    Logger m_log;
    std::atomic<std::uint64_t> m_generation{0}; ///< of the run that counts
    mutable std::mutex m_telling;               ///< held while an observer is told; guards what follows
    std::function<void(loadingData)> m_shown;   ///< hears the stage of a run that is shown as under way
    std::shared_ptr<const Run> m_current;       ///< the run that counts, if there is one
    bool m_stopped = false;
    std::optional<std::string> m_writeFailure;
    DispatchQueue m_queue{"downloadSelectedDocuments"};
};

} // namespace ledgerfinch
