// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/endpoints/Files.h"

#include "connection/endpoints/Pages.h"
#include "platform/MimeTypes.h"
#include "records/JsonReader.h"
#include "store/CoreDataHandler.h"

#include <algorithm>
#include <cctype>

namespace ledgerfinch {

namespace {

std::string documentPath(std::int64_t id, std::string_view rest) {
    return "/api/documents/" + std::to_string(id) + "/" + std::string(rest);
}

Error failure(const HttpResponse& response) {
    const int code = effectiveStatus(response);
    return {response.error ? response.error->description : "The server answered " + std::to_string(code), code};
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

bool isPage(std::string type) {
    std::transform(type.begin(), type.end(), type.begin(), [](unsigned char c) { return std::tolower(c); });
    return type == "text/html" || type == "application/xhtml+xml";
}

} // namespace

std::string fetchOriginalMimeType(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    constexpr std::string_view kUnknown = "undefined";
    const auto response =
        api.send(api.request("GET", documentPath(documentId, "metadata/"), ApiHandler::Accept::No), cancellation);
    if (effectiveStatus(response) != 200) return std::string(kUnknown);
    const auto metadata = JsonObject::parse(response.body);
    if (!metadata) {
        api.log().error("Encountered an error while decoding document metadata.");
        return std::string(kUnknown);
    }
    return metadata->text("original_mime_type").value_or(std::string(kUnknown));
}

Result<DownloadedDocument> downloadDocumentData(ApiHandler& api, std::int64_t documentId,
                                                const std::function<void(std::int64_t, std::int64_t)>& progress,
                                                Cancellation* cancellation) {
    const auto mimeType = fetchOriginalMimeType(api, documentId, cancellation);
    if (cancellation != nullptr && cancellation->isCancelled()) return cancelled();
    const bool wanted = api.services().defaults->boolean("downloadOriginalFiles").value_or(false);
    const bool supported = DocumentFiles::supportsOriginal(mimeType);
    if (!supported) api.log().info("Found unsupported mime type, downloading archived PDF...");
    auto request =
        api.request("GET", documentPath(documentId, wanted && supported ? "download/?original=true" : "download/"),
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
    // The login page of a proxy comes with success too.
    if (isPage(type) && !isPage(mimeType)) {
        api.log().error("Received invalid data while downloading document.");
        Error reason{"The server sent a page in place of the document.", status::kUnreadable};
        api.log().error("%{public}s", reason.message);
        return reason;
    }
    return DownloadedDocument{std::move(response.body), std::move(type)};
}

Result<std::string> downloadThumbnail(ApiHandler& api, std::int64_t documentId, Cancellation* cancellation) {
    auto response =
        api.send(api.request("GET", documentPath(documentId, "thumb/"), ApiHandler::Accept::No), cancellation);
    if (effectiveStatus(response) != 200) return failure(response);
    if (!mimeTypes::looksLikeImage(response.body)) {
        api.log().error("Received invalid data for preview image...");
        return Error{"Received invalid data for preview image...", status::kUnreadable};
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
