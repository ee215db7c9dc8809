// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/MimeTypes.h"

#include <QMimeDatabase>
#include <QMimeType>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <utility>

namespace ledgerfinch::mimeTypes {

namespace {

/// The types of documents; their extensions don't depend on the machine's database.
constexpr std::array<std::pair<std::string_view, std::string_view>, 22> kKnown{{
    {"application/pdf", "pdf"},
    {"image/png", "png"},
    {"image/jpeg", "jpeg"},
    {"image/tiff", "tiff"},
    {"image/gif", "gif"},
    {"image/webp", "webp"},
    {"image/heic", "heic"},
    {"image/heif", "heif"},
    {"image/bmp", "bmp"},
    {"text/plain", "txt"},
    {"text/html", "html"},
    {"text/csv", "csv"},
    {"message/rfc822", "eml"},
    {"application/zip", "zip"},
    {"application/msword", "doc"},
    {"application/vnd.openxmlformats-officedocument.wordprocessingml.document", "docx"},
    {"application/vnd.oasis.opendocument.text", "odt"},
    {"application/vnd.ms-excel", "xls"},
    {"application/vnd.openxmlformats-officedocument.spreadsheetml.sheet", "xlsx"},
    {"application/vnd.oasis.opendocument.spreadsheet", "ods"},
    {"application/vnd.ms-powerpoint", "ppt"},
    {"application/vnd.openxmlformats-officedocument.presentationml.presentation", "pptx"},
}};
constexpr std::array<std::pair<std::string_view, std::string_view>, 5> kFurtherExtensions{{
    {"image/jpeg", "jpg"},
    {"image/jpeg", "jpe"},
    {"image/tiff", "tif"},
    {"text/html", "htm"},
    {"application/vnd.oasis.opendocument.presentation", "odp"},
}};

bool isLetterOrDigit(char character) {
    return std::isalnum(static_cast<unsigned char>(character)) != 0;
}

bool isPlain(std::string_view text) {
    return !text.empty() && text.size() <= 32 && std::all_of(text.begin(), text.end(), isLetterOrDigit);
}

std::string lowerCase(std::string_view text) {
    std::string result(text);
    for (auto& character : result) {
        if (character >= 'A' && character <= 'Z') character = static_cast<char>(character - 'A' + 'a');
    }
    return result;
}

/// The type alone, without parameters and blanks, in lower case.
std::string essence(std::string_view mimeType) {
    mimeType = mimeType.substr(0, mimeType.find(';'));
    while (!mimeType.empty() && (mimeType.front() == ' ' || mimeType.front() == '\t'))
        mimeType.remove_prefix(1);
    while (!mimeType.empty() && (mimeType.back() == ' ' || mimeType.back() == '\t'))
        mimeType.remove_suffix(1);
    return lowerCase(mimeType);
}

QMimeType lookUp(const std::string& name) {
    return QMimeDatabase().mimeTypeForName(QString::fromStdString(name));
}

/// The name that all aliases share.
std::string canonical(const std::string& name) {
    const auto type = lookUp(name);
    return type.isValid() ? type.name().toStdString() : name;
}

std::optional<std::string> fromTable(std::string_view name) {
    for (const auto& [type, extension] : kKnown) {
        if (type == name) return std::string(extension);
    }
    if (name == "application/vnd.oasis.opendocument.presentation") return "odp";
    return std::nullopt;
}

} // namespace

std::optional<std::string> preferredExtension(std::string_view mimeType) {
    const auto name = essence(mimeType);
    if (auto extension = fromTable(name)) return extension;
    const auto type = lookUp(name);
    if (!type.isValid()) return std::nullopt;
    if (auto extension = fromTable(type.name().toStdString())) return extension;
    auto suffixes = type.suffixes();
    suffixes.prepend(type.preferredSuffix());
    for (const auto& suffix : std::as_const(suffixes)) {
        if (auto text = suffix.toStdString(); isPlain(text)) return text;
    }
    return std::nullopt;
}

std::optional<std::string> forExtension(std::string_view extension) {
    if (!isPlain(extension)) return std::nullopt;
    const auto wanted = lowerCase(extension);
    for (const auto& [type, known] : kKnown) {
        if (known == wanted) return std::string(type);
    }
    for (const auto& [type, known] : kFurtherExtensions) {
        if (known == wanted) return std::string(type);
    }
    const auto type = QMimeDatabase().mimeTypeForFile(QStringLiteral("file.") + QString::fromStdString(wanted),
                                                      QMimeDatabase::MatchExtension);
    if (!type.isValid() || type.isDefault()) return std::nullopt;
    return type.name().toStdString();
}

bool sameType(std::string_view first, std::string_view second) {
    const auto firstName = essence(first);
    const auto secondName = essence(second);
    if (firstName == secondName) return true;
    return canonical(firstName) == canonical(secondName);
}

bool looksLikeImage(std::string_view bytes) {
    using namespace std::string_view_literals;
    const bool webp = bytes.size() >= 12 && bytes.starts_with("RIFF"sv) && bytes.substr(8, 4) == "WEBP"sv;
    return webp || bytes.starts_with("\x89PNG\r\n\x1A\n"sv) || bytes.starts_with("\xFF\xD8\xFF"sv) ||
           bytes.starts_with("GIF87a"sv) || bytes.starts_with("GIF89a"sv);
}

bool endsTooEarly(std::string_view image) {
    using namespace std::string_view_literals;
    if (image.starts_with("RIFF"sv) && image.size() >= 8) {
        std::uint64_t size = 8;
        for (std::size_t i = 0; i < 4; ++i)
            size += static_cast<std::uint64_t>(static_cast<unsigned char>(image[4 + i])) << (8 * i);
        return image.size() < size;
    }
    if (!image.starts_with("\x89PNG"sv)) return false;
    constexpr std::size_t kLastChunkFromItsName = 8;
    const auto last = image.rfind("IEND"sv);
    return last == std::string_view::npos || image.size() - last < kLastChunkFromItsName;
}

} // namespace ledgerfinch::mimeTypes
