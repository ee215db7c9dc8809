// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Files.h"

#include "connection/endpoints/Pages.h"
#include "platform/MimeTypes.h"
#include "records/JsonReader.h"
#include "store/CoreDataHandler.h"

#include <optional>

namespace ledgerfinch {

namespace {

std::string documentPath(std::int64_t id, std::string_view rest) {
    return "/api/documents/" + std::to_string(id) + "/" + std::string(rest);
}

Error failure(const HttpResponse& response) {
    auto failure = failureOf(response);
    if (failure.reason.empty()) failure.reason = "The server sent nothing.";
    return {std::move(failure.reason), failure.status};
}

Error cancelled() {
    return {"The request was cancelled.", status::kCancelled};
}

std::string mimeTypeOf(const HttpResponse& response) {
    auto type = header(response.headers, "content-type").value_or("application/octet-stream");
    type = type.substr(0, type.find(';'));
    while (!type.empty() && type.back() == ' ')
        type.pop_back();
    return type;
}

/// Whether the transport could tell that the body is whole: only a length that was promised is checked there.
bool isSureToBeWhole(const HttpResponse& response) {
    return header(response.headers, "content-length") && !header(response.headers, "transfer-encoding");
}

Error cutOff() {
    return {"The connection was lost before the answer was complete.", status::kNoAnswer};
}

/// What the server tells of a document's files.
struct FileFacts {
    std::string originalMimeType = "undefined";
    std::optional<std::int64_t> originalSize;
    std::optional<std::int64_t> archiveSize; ///< absent without an archived form
};

FileFacts fetchFileFacts(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    FileFacts facts;
    const auto response =
        api.send(api.request("GET", documentPath(documentId, "metadata/"), ApiHandler::Accept::No), cancellation);
    if (effectiveStatus(response) != 200) return facts;
    const auto metadata = JsonObject::parse(response.body);
    if (!metadata) {
        api.log().error("Encountered an error while decoding document metadata.");
        return facts;
    }
    facts.originalMimeType = metadata->text("original_mime_type").value_or(facts.originalMimeType);
    facts.originalSize = metadata->integer("original_size");
    facts.archiveSize = metadata->integer("archive_size");
    return facts;
}

} // namespace

std::string fetchOriginalMimeType(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    return fetchFileFacts(api, documentId, cancellation).originalMimeType;
}

Result<DownloadedDocument> downloadDocumentData(ApiHandler& api, std::int64_t documentId,
                                                const std::function<void(std::int64_t, std::int64_t)>& progress,
                                                Cancellation* cancellation) {
    const auto facts = fetchFileFacts(api, documentId, cancellation);
    const auto& mimeType = facts.originalMimeType;
    if (cancellation != nullptr && cancellation->isCancelled()) return cancelled();
    const bool wanted = api.services().defaults->boolean("downloadOriginalFiles").value_or(false);
    const bool supported = DocumentFiles::supportsOriginal(mimeType);
    if (!supported) api.log().info("Found unsupported mime type, downloading archived PDF...");
    const bool original = wanted && supported;
    auto request = api.request("GET", documentPath(documentId, original ? "download/?original=true" : "download/"),
                               ApiHandler::Accept::No);
    request.downloadProgress = progress;
    auto response = api.send(std::move(request), cancellation);
    if (effectiveStatus(response) == status::kCancelled) return cancelled();
    if (effectiveStatus(response) != 200 || response.body.empty()) {
        const auto reason = failure(response);
        api.log().error("Received invalid data while downloading document.");
        api.log().error("%{public}s", reason.message);
        return reason;
    }
    auto type = mimeTypeOf(response);
    const auto expected = original || !facts.archiveSize ? facts.originalSize : facts.archiveSize;
    std::optional<Error> objection;
    // The login page of a proxy comes with success too.
    if (isWebPageType(type) && !isWebPageType(mimeType)) {
        const int status = api.noteUnreadable(response);
        objection = Error{api.reasonFor(status), status};
    } else if (!isSureToBeWhole(response) && expected && static_cast<std::int64_t>(response.body.size()) < *expected) {
        objection = cutOff();
    }
    if (objection) {
        api.log().error("Received invalid data while downloading document.");
        api.log().error("%{public}s", objection->message);
        return *objection;
    }
    return DownloadedDocument{std::move(response.body), std::move(type)};
}

Result<std::string> downloadThumbnail(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    auto response =
        api.send(api.request("GET", documentPath(documentId, "thumb/"), ApiHandler::Accept::No), cancellation);
    if (effectiveStatus(response) != 200) return failure(response);
    const bool isCut = !isSureToBeWhole(response) && mimeTypes::endsTooEarly(response.body);
    if (isCut || !mimeTypes::looksLikeImage(response.body)) {
        api.log().error("Received invalid data for preview image...");
        return Error{"Received invalid data for preview image...",
                     isCut ? status::kNoAnswer : api.noteUnreadable(response)};
    }
    return std::move(response.body);
}

Result<std::filesystem::path> getDocumentFile(ApiHandler& api, const Uuid& uuid, std::int64_t documentId,
                                              const std::function<void(std::int64_t, std::int64_t)>& progress,
                                              Cancellation* cancellation) {
    const auto& files = api.core().documentFiles();
    if (auto existing = files.existingDocumentFile(uuid)) return *existing;
    const auto downloaded = downloadDocumentData(api, documentId, progress, cancellation);
    if (!downloaded) return downloaded.error();
    return files.storeFile(DocumentFiles::kDocuments, uuid,
                           DocumentFiles::downloadName(uuid, downloaded.value().mimeType), downloaded.value().bytes);
}

Result<std::filesystem::path> getDocumentPreview(ApiHandler& api, const Uuid& uuid, std::int64_t documentId,
                                                 Cancellation* cancellation) {
    const auto image = downloadThumbnail(api, documentId, cancellation);
    if (!image) return image.error();
    return api.core().documentFiles().storePreview(uuid, image.value());
}

} // namespace ledgerfinch
