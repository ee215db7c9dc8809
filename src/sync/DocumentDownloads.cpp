// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/DocumentDownloads.h"

#include "connection/Instances.h"
#include "connection/Status.h"
#include "store/ServerShadow.h"
#include "sync/DocumentFile.h"

#include <algorithm>
#include <span>
#include <utility>

namespace ledgerfinch {
namespace {

/// Objects of so many documents are in memory at once.
constexpr std::size_t kBatch = 200;
/// After so many documents in a row without an answer the server is taken to be away.
constexpr int kUnansweredInARow = 3;
/// After so many that came and could not be written the disk is taken to be full.
constexpr int kUnwrittenInARow = 3;
/// The code of getDocumentFile for a file that could not be written.
constexpr int kUnwritten = 0;

struct DocumentToDownload {
    Uuid uuid;
    std::int64_t id = 0;
    std::string title;
};

std::optional<DocumentToDownload> read(ManagedObjectContext& context, const ObjectID& id) {
    std::optional<DocumentToDownload> found;
    context.performAndWait([&] {
        const auto document = std::static_pointer_cast<CD_Document>(context.existingObject(id));
        if (!document || !document->uuid() || isLocalDocument(*document)) return;
        found = {*document->uuid(), document->id(), document->title().value_or("Untitled Document")};
    });
    return found;
}

} // namespace

struct DocumentDownloads::Run {
    std::uint64_t generation = 0;
    std::shared_ptr<ApiHandler> api;
    SyncObserver observer;
    std::shared_ptr<PersistentContainer> container;
    std::shared_ptr<Cancellation> cancellation = std::make_shared<Cancellation>();
};

DocumentDownloads::DocumentDownloads(Services& services, CoreDataHandler& core,
                                     DocumentsOfSavedView documentsOfSavedView)
    : m_services(services), m_core(core), m_documentsOfSavedView(std::move(documentsOfSavedView)),
      m_log(services.logger("DocumentsView")) {}

DocumentDownloads::~DocumentDownloads() {
    stop(); // the queue joins
}

void DocumentDownloads::downloadSelectedDocuments(std::shared_ptr<ApiHandler> api, SyncObserver observer) {
    std::shared_ptr<const Run> run;
    {
        const std::lock_guard lock(m_telling);
        // Under the same lock as stop(), so that nothing begins behind its back.
        if (m_stopped) return;
        endRun(InHand::Finish);
        m_writeFailure.reset();
        run = std::make_shared<const Run>(
            Run{m_generation.load(), std::move(api), std::move(observer), m_core.persistenceContainer()});
        m_current = run;
    }
    m_queue.async([this, run] { this->run(*run); });
}

void DocumentDownloads::endRun(InHand inHand) {
    ++m_generation;
    const auto ended = std::exchange(m_current, nullptr);
    if (ended && inHand == InHand::Drop) ended->cancellation->cancel();
    if (const auto shown = std::exchange(m_shown, nullptr)) shown(loadingData::finished);
}

void DocumentDownloads::cancel() {
    const std::lock_guard lock(m_telling);
    endRun(InHand::Finish);
}

void DocumentDownloads::stop() {
    const std::lock_guard lock(m_telling);
    m_stopped = true;
    endRun(InHand::Drop);
}

void DocumentDownloads::removeAllDownloads(std::function<void()> done) {
    {
        const std::lock_guard lock(m_telling);
        endRun(InHand::Drop);
    }
    m_queue.async([this, done = std::move(done)] {
        m_core.documentFiles().removeAllDownloads();
        if (done) done();
    });
}

std::optional<std::string> DocumentDownloads::writeFailure() const {
    const std::lock_guard lock(m_telling);
    return m_writeFailure;
}

void DocumentDownloads::wait() {
    m_queue.sync([] {});
}

void DocumentDownloads::run(const Run& run) {
    if (!isCurrent(run)) return;
    tellStage(run, loadingData::downloading);
    const bool ended = downloadAll(run, selectedDocuments(run));
    tellStage(run, loadingData::finished);
    if (ended) m_log.debug("Finished downloading documents");
}

std::vector<ObjectID> DocumentDownloads::selectedDocuments(const Run& run) const {
    if (m_services.defaults->boolean("download_all").value_or(false)) {
        FetchRequest request;
        request.entity = CD_Document::kEntityName;
        request.sort = {{"created"}};
        auto ids = run.container->fetchIDs(request);
        if (ids) return std::move(ids).value();
        m_log.error("The documents to download could not be read: %{public}s", ids.error().message);
        return {};
    }
    const auto view = m_services.defaults->integer("download_saved_view").value_or(0);
    if (view == 0) return {};
    if (!m_documentsOfSavedView) {
        m_log.error("Downloading the documents of a saved view is not available, nothing is downloaded");
        return {};
    }
    return m_documentsOfSavedView(*run.container, view).value_or(std::vector<ObjectID>());
}

bool DocumentDownloads::downloadAll(const Run& run, const std::vector<ObjectID>& documents) {
    int unanswered = 0;
    int unwritten = 0;
    for (std::size_t begin = 0; begin < documents.size(); begin += kBatch) {
        const auto context = run.container->newBackgroundContext();
        for (std::size_t index = begin; index < std::min(begin + kBatch, documents.size()); ++index) {
            if (!isCurrent(run)) return false;
            tellProgress(run, index + 1, documents.size());
            const auto done = download(run, *context, documents[index]);
            const int status = done ? 200 : done.error().code;
            unanswered = status == status::kNoAnswer ? unanswered + 1 : 0;
            unwritten = status == kUnwritten ? unwritten + 1 : 0;
            if (status == 401 || unanswered == kUnansweredInARow) return false;
            if (unwritten < kUnwrittenInARow) continue;
            m_log.error("Files can't be written, not downloading any more: %{public}s", done.error().message);
            const std::lock_guard lock(m_telling);
            if (run.generation == m_generation.load()) m_writeFailure = done.error().message;
            return false;
        }
    }
    return true;
}

Result<void> DocumentDownloads::download(const Run& run, ManagedObjectContext& context, const ObjectID& document) {
    const auto found = read(context, document);
    if (!found) return {};
    const auto folder = m_core.documentFiles().documentFolder(found->uuid);
    if (m_services.defaults->boolean("useiCloud").value_or(false)) m_core.cloud().downloadPlaceholder(folder);
    const auto file = getDocumentFile(*run.api, m_core.documentFiles(), found->uuid, found->id, found->title, {},
                                      run.cancellation.get());
    if (file) return {};
    if (!status::isEndedByCaller(file.error().code))
        m_log.error("Couldn't download %s: %{public}s", found->title, file.error().message);
    return file.error();
}

bool DocumentDownloads::isCurrent(const Run& run) const {
    return run.generation == m_generation.load() && m_core.persistenceContainer() == run.container &&
           addresses::same(run.api->Server(), m_services.defaults->string("server").value_or(""));
}

void DocumentDownloads::tellStage(const Run& run, loadingData stage) {
    const std::lock_guard lock(m_telling);
    if (run.generation != m_generation.load() || !run.observer.stage) return;
    m_shown = stage == loadingData::finished ? nullptr : run.observer.stage;
    run.observer.stage(stage);
}

void DocumentDownloads::tellProgress(const Run& run, std::size_t index, std::size_t count) {
    const std::lock_guard lock(m_telling);
    if (run.generation != m_generation.load() || !run.observer.additionalInformation) return;
    run.observer.additionalInformation(additionalLoadingInfo::success("Downloading Document " + std::to_string(index) +
                                                                      " of " + std::to_string(count)));
}

} // namespace ledgerfinch
