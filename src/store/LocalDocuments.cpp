// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "platform/Text.h"
#include "store/MergeSupport.h"

namespace ledgerfinch {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kLargestFile = std::int64_t{1} << 30;
constexpr std::size_t kLongestStem = 150;
constexpr std::size_t kLongestExtension = 20;

/// The file's own name, as long as a document's folder takes it.
std::string storedName(const fs::path& source) {
    auto name = text::toValidUtf8(source.filename().string());
    if (DocumentFiles::isPlainFileName(name)) return name;
    auto stem = name.substr(0, kLongestStem);
    auto extension = fs::path(name).extension().string();
    if (extension.size() > kLongestExtension) extension.clear();
    return text::toValidUtf8(stem) + extension;
}

void fill(ManagedObjectContext& context, CD_Document& document, const LocalAnalysis& analysis, Timestamp now) {
    if (analysis.text) {
        const auto content = context.insert<CD_Document_Content>();
        content->setContent(*analysis.text);
        document.setContent(content);
    }
    if (analysis.documentType) document.setDocument_type(context.firstWithID<CD_Document_Type>(*analysis.documentType));
    if (analysis.correspondent)
        document.setCorrespondent(context.firstWithID<CD_Correspondent>(*analysis.correspondent));
    document.setTags(merge::resolve<CD_Tag>(context, analysis.tags));
    document.setCreated(analysis.created.value_or(now));
    document.setModified(now);
    document.setAdded(now);
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
    context->performAndWait([&] {
        const auto highest = context->max(CD_Document::kEntityName, "id");
        const auto document = context->insert<CD_Document>();
        if (!request.example) document->setId(highest && *highest ? **highest + 1 : 1);
        document->setUuid(uuid);
        document->setTitle(request.title.value_or(text::toValidUtf8(request.source.stem().string())));
        document->setOriginal_file_name(text::toValidUtf8(request.source.filename().string()));
        fill(*context, *document, analysis, m_services.clock->now());
        if (const auto saved = context->save(); saved) {
            result = document->objectID();
        } else {
            m_log.error("Failed to save document %@", saved.error().message);
            context->rollback();
            result = saved.error();
        }
    });
    if (!result) {
        m_files.removeFiles(uuid);
    } else if (request.removeSource) {
        if (const auto removed = m_services.files->removeAll(request.source); removed)
            m_log.debug("Deleted file: %s", request.source.string());
        else
            m_log.error("Error deleting file: %@", removed.error().message);
    }
    return result;
}

} // namespace ledgerfinch
