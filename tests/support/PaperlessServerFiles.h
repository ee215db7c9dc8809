// SPDX-License-Identifier: GPL-3.0-or-later
// Files of documents: small real ones are made from the text where none was uploaded.
#pragma once

#include "support/PaperlessServerRecords.h"

namespace ledgerfinch::support {

/// A one-page PDF that shows the lines.
std::string makePdf(std::string_view title, std::string_view text);
/// A little picture of a page, different for each number.
std::string makePng(std::int64_t number);
/// The same picture as lossless WebP.
std::string makeWebp(std::int64_t number);
/// The uploaded bytes, or made-up ones of the document's type.
std::string originalFile(const Document& document);
/// The archived PDF, empty without one.
std::string archiveFile(const Document& document);
/// Of the original: the recorded one where it is of this kind, else that of the bytes.
std::string checksumOf(const Document& document, bool isSha256);
/// ".pdf", ".png", ".txt" ...
std::string extensionOf(std::string_view mimeType);
/// By the first bytes and the name, "application/octet-stream" when neither tells.
std::string mimeTypeOf(std::string_view bytes, std::string_view fileName);

} // namespace ledgerfinch::support
