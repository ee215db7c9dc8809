// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerFiles.h"

#include <zlib.h>

#include <algorithm>
#include <cstdio>

namespace ledgerfinch::support {

namespace {

constexpr std::size_t pictureWidth = 200;
constexpr std::size_t pictureHeight = 283;
constexpr unsigned ink = 90;
constexpr unsigned paper = 255;

/// A page with lines of text as bars; their lengths follow from the number.
bool isInk(std::int64_t number, std::size_t x, std::size_t y) {
    if (x == 0 || y == 0 || x + 1 == pictureWidth || y + 1 == pictureHeight) return true;
    if (x < 20 || y < 24 || y > 250) return false;
    if (y < 36) return x < 60 + std::size_t(number * 37 % 90);
    auto line = (y - 36) / 10;
    if ((y - 36) % 10 < 6 || (line + std::size_t(number)) % 7 == 0) return false;
    auto length = 90 + (line * 53 + std::size_t(number) * 31) % 85;
    return x < 20 + length && (x + line * 11) % 23 > 3;
}

void appendBigEndian(std::string& to, std::uint32_t value) {
    for (int shift = 24; shift >= 0; shift -= 8)
        to += char(value >> shift & 0xFF);
}

void appendLittleEndian(std::string& to, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8)
        to += char(value >> shift & 0xFF);
}

/// PNG, section 5.3: length, type, data, checksum over type and data.
void appendPngChunk(std::string& to, std::string_view type, const std::string& data) {
    appendBigEndian(to, std::uint32_t(data.size()));
    auto body = std::string(type) + data;
    to += body;
    appendBigEndian(to, std::uint32_t(crc32(0, reinterpret_cast<const Bytef*>(body.data()), uInt(body.size()))));
}

std::string deflated(const std::string& data) {
    uLongf size = compressBound(uLong(data.size()));
    std::string packed(size, '\0');
    compress2(reinterpret_cast<Bytef*>(packed.data()), &size, reinterpret_cast<const Bytef*>(data.data()),
              uLong(data.size()), Z_BEST_SPEED);
    packed.resize(size);
    return packed;
}

/// WebP lossless writes its bits from the lowest one up.
class BitWriter {
public:
    void put(std::uint32_t value, int count) {
        for (int index = 0; index < count; ++index) {
            m_current |= (value >> index & 1U) << m_used;
            if (++m_used == 8) flush();
        }
    }
    std::string take() {
        if (m_used > 0) flush();
        return std::move(m_bytes);
    }

private:
    void flush() {
        m_bytes += char(m_current);
        m_current = 0;
        m_used = 0;
    }
    std::string m_bytes;
    unsigned m_current = 0;
    int m_used = 0;
};

/// A prefix code of one symbol, which takes no bits to write.
void putSingle(BitWriter& bits, std::uint32_t symbol) {
    bits.put(1, 1);
    bits.put(0, 1);
    bits.put(1, 1);
    bits.put(symbol, 8);
}

std::string pdfText(std::string_view line) {
    std::string text;
    for (auto letter : asciiOf(line)) {
        if (letter == '(' || letter == ')' || letter == '\\') text += '\\';
        text += letter;
    }
    return text;
}

} // namespace

std::string makePdf(std::string_view title, std::string_view text) {
    constexpr std::size_t lineLength = 90;
    constexpr int lineCount = 50;
    std::string content = "BT /F1 16 Tf 56 786 Td (" + pdfText(textPrefix(title, 60)) + ") Tj /F1 10 Tf 0 -24 Td\n";
    for (int line = 0; line < lineCount && !text.empty(); ++line) {
        auto end = std::min(text.find('\n'), text.size());
        auto part = textPrefix(text.substr(0, end), lineLength);
        content += "(" + pdfText(part) + ") Tj 0 -14 Td\n";
        text.remove_prefix(part.size() == end ? std::min(end + 1, text.size()) : part.size());
    }
    content += "ET\n";
    const std::vector<std::string> objects{
        "<< /Type /Catalog /Pages 2 0 R >>", "<< /Type /Pages /Kids [3 0 R] /Count 1 >>",
        "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Contents 4 0 R "
        "/Resources << /Font << /F1 5 0 R >> >> >>",
        "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content + "endstream",
        "<< /Type /Font /Subtype /Type1 /BaseFont /Helvetica /Encoding /WinAnsiEncoding >>"};
    std::string pdf = "%PDF-1.4\n";
    std::string table = "0000000000 65535 f \n";
    for (std::size_t index = 0; index < objects.size(); ++index) {
        char entry[32];
        std::snprintf(entry, sizeof entry, "%010zu 00000 n \n", pdf.size());
        table += entry;
        pdf += std::to_string(index + 1) + " 0 obj\n" + objects[index] + "\nendobj\n";
    }
    auto start = pdf.size();
    auto count = std::to_string(objects.size() + 1);
    pdf += "xref\n0 " + count + "\n" + table + "trailer\n<< /Size " + count + " /Root 1 0 R >>\nstartxref\n" +
           std::to_string(start) + "\n%%EOF\n";
    return pdf;
}

std::string makePng(std::int64_t number) {
    std::string rows;
    for (std::size_t y = 0; y < pictureHeight; ++y) {
        rows += '\0';
        for (std::size_t x = 0; x < pictureWidth; ++x)
            rows += char(isInk(number, x, y) ? ink : paper);
    }
    std::string header;
    appendBigEndian(header, pictureWidth);
    appendBigEndian(header, pictureHeight);
    header += std::string("\x08\x00\x00\x00\x00", 5); // eight bits of grey
    std::string png = "\x89PNG\r\n\x1a\n";
    appendPngChunk(png, "IHDR", header);
    appendPngChunk(png, "IDAT", deflated(rows));
    appendPngChunk(png, "IEND", {});
    return png;
}

std::string makeWebp(std::int64_t number) {
    BitWriter bits;
    bits.put(0x2F, 8);
    bits.put(pictureWidth - 1, 14);
    bits.put(pictureHeight - 1, 14);
    bits.put(0, 4); // no alpha, version 0
    bits.put(1, 1);
    bits.put(2, 2); // one transform: green is subtracted from red and blue, which leaves 0 for grey
    bits.put(0, 1); // no other transform
    bits.put(0, 2); // no colour cache, one set of codes
    // Green: two symbols of one bit each, the smaller is 0.
    bits.put(1, 1);
    bits.put(1, 1);
    bits.put(1, 1);
    bits.put(ink, 8);
    bits.put(paper, 8);
    putSingle(bits, 0);
    putSingle(bits, 0);
    putSingle(bits, 255);
    putSingle(bits, 0);
    for (std::size_t y = 0; y < pictureHeight; ++y) {
        for (std::size_t x = 0; x < pictureWidth; ++x)
            bits.put(isInk(number, x, y) ? 0 : 1, 1);
    }
    auto data = bits.take();
    auto size = std::uint32_t(data.size());
    if (data.size() % 2 == 1) data += '\0';
    std::string webp = "RIFF";
    appendLittleEndian(webp, std::uint32_t(data.size()) + 12);
    webp += "WEBPVP8L";
    appendLittleEndian(webp, size);
    return webp + data;
}

std::string originalFile(const Document& document) {
    if (document.original) return *document.original;
    if (document.mimeType == "text/plain") return document.content;
    if (document.mimeType == "image/png") return makePng(document.id);
    return makePdf(document.title, document.content);
}

std::string archiveFile(const Document& document) {
    return document.hasArchive ? makePdf(document.title + " (archive)", document.content) : std::string();
}

std::string checksumOf(const Document& document, bool isSha256) {
    constexpr std::size_t sha256Digits = 64;
    if (!document.checksum.empty() && isSha256 == (document.checksum.size() == sha256Digits)) return document.checksum;
    return isSha256 ? sha256Hex(originalFile(document)) : md5Hex(originalFile(document));
}

std::string extensionOf(std::string_view mimeType) {
    if (mimeType == "image/png") return ".png";
    if (mimeType == "image/jpeg") return ".jpg";
    if (mimeType == "image/tiff") return ".tiff";
    if (mimeType == "image/gif") return ".gif";
    if (mimeType == "image/webp") return ".webp";
    if (mimeType == "image/bmp") return ".bmp";
    if (mimeType == "text/csv") return ".csv";
    if (mimeType == "text/plain") return ".txt";
    return ".pdf";
}

std::string mimeTypeOf(std::string_view bytes, std::string_view fileName) {
    if (bytes.substr(0, 1024).find("%PDF-") != std::string_view::npos) return "application/pdf";
    if (bytes.starts_with("\x89PNG")) return "image/png";
    if (bytes.starts_with("\xFF\xD8\xFF")) return "image/jpeg";
    if (bytes.starts_with("GIF8")) return "image/gif";
    if (bytes.starts_with("BM")) return "image/bmp";
    if (bytes.starts_with("II*") || bytes.starts_with("MM\0*")) return "image/tiff";
    if (bytes.starts_with("RIFF") && bytes.substr(0, 12).ends_with("WEBP")) return "image/webp";
    if (bytes.starts_with("PK\x03\x04")) return "application/zip";
    if (bytes.starts_with("\x7F"
                          "ELF"))
        return "application/x-executable";
    auto isText = bytes.find('\0') == std::string_view::npos && std::none_of(bytes.begin(), bytes.end(), [](char byte) {
                      return static_cast<unsigned char>(byte) < 0x20 &&
                             std::string_view("\t\n\r\f").find(byte) == std::string_view::npos;
                  });
    // libmagic takes many binary files for Targa pictures by their first three bytes.
    auto looksLikeTarga = bytes.size() > 18 && bytes[1] >= 0 && bytes[1] <= 1 &&
                          std::string_view("\x01\x02\x03\x09\x0A\x0B").find(bytes[2]) != std::string_view::npos;
    if (!isText) return looksLikeTarga ? "image/x-tga" : "application/octet-stream";
    return fileName.ends_with(".csv") ? "text/csv" : "text/plain";
}

} // namespace ledgerfinch::support
