// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "platform/Text.h"
#include "store/MergeSupport.h"

#include <algorithm>

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kLargestFile = std::int64_t{1} << 30;
constexpr std::string_view kFallbackName = "document";
constexpr std::size_t kLongestStem = 150;
constexpr std::size_t kLongestExtension = 20;

/// The file's own name, as long as a document's folder takes it. Names with a leading dot mean unfinished files and
/// placeholders there.
std::string storedName(const fs::path& source) {
    auto name = text::toValidUtf8(source.filename().string());
    name.erase(0, std::min(name.find_first_not_of('.'), name.size()));
    if (name.empty()) name = kFallbackName;
    if (DocumentFiles::isPlainFileName(name)) return name;
    auto stem = name.substr(0, kLongestStem);
    auto extension = fs::path(name).extension().string();
    if (extension.size() > kLongestExtension) extension.clear();
    return text::toValidUtf8(stem) + extension;
}

void fill(merge::Finder& finder, CD_Document& document, const LocalAnalysis& analysis, Timestamp now) {
    if (analysis.text) {
        const auto content = finder.context().insert<CD_Document_Content>();
        content->setContent(*analysis.text);
        document.setContent(content);
    }
    if (analysis.documentType) document.setDocument_type(finder.find<CD_Document_Type>(*analysis.documentType));
    if (analysis.correspondent) document.setCorrespondent(finder.find<CD_Correspondent>(*analysis.correspondent));
    document.setTags(merge::resolve<CD_Tag>(finder, analysis.tags));
    document.setCreated(analysis.created.value_or(now));
    document.setModified(now);
    document.setAdded(now);
}

/// The document's row, for a file that is in place.
Result<ObjectID> insertDocument(ManagedObjectContext& context, const LocalDocument& request, const Uuid& uuid,
                                const LocalAnalysis& analysis, Timestamp now, const Logger& log) {
    return merge::mergeRecord(context, log, "Failed to save document %@", [&](merge::Finder& finder) {
        const auto document = finder.context().insert<CD_Document>();
        if (!request.example) {
            if (const auto id = merge::freeDocumentId(finder.context()))
                document->setId(*id);
            else
                finder.fail(id.error());
        }
        document->setUuid(uuid);
        document->setTitle(request.title.value_or(text::toValidUtf8(request.source.stem().string())));
        document->setOriginal_file_name(text::toValidUtf8(request.source.filename().string()));
        fill(finder, *document, analysis, now);
        return document;
    });
}

/// The original goes only when a power cut can no longer take the document that replaces it.
void removeSource(FileSystem& files, PersistentContainer& container, const fs::path& source, const Logger& log) {
    auto removed = container.makeDurable();
    if (removed) removed = files.removeAll(source);
    if (removed)
        log.debug("Deleted file: %s", source.string());
    else
        log.error("Error deleting file: %@", removed.error().message);
}

} // namespace

Result<ObjectID> CoreDataHandler::addLocalDocument(const LocalDocument& request, const LocalAnalyser& analyse,
                                                   ContextRef context) {
    context = contextOrView(std::move(context));
    auto bytes = m_services.files->read(request.source, kLargestFile);
    if (!bytes) return bytes.error();
    const auto uuid = Uuid::random();
    // The file first: a document without its file would be worse than a file without its document.
    const auto file = m_files.storeFile(DocumentFiles::kDocuments, uuid, storedName(request.source), *bytes);
    if (!file) return file.error();
    const auto analysis = analyse ? analyse(*file) : LocalAnalysis{};

    Result<ObjectID> result = Error{"Not saved"};
    context->performAndWait(
        [&] { result = insertDocument(*context, request, uuid, analysis, m_services.clock->now(), m_log); });
    if (!result)
        m_files.removeFiles(uuid);
    else if (request.removeSource)
        removeSource(*m_services.files, context->container(), request.source, m_log);
    return result;
}

} // namespace ledgerfinch
