// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerRecords.h"

#include <openssl/evp.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace ledgerfinch::support {

namespace {

constexpr std::array<KindNames, 4> kindNames{{
    {"tags", "tag", "tag", "Tag"},
    {"correspondents", "correspondent", "correspondent", "Correspondent"},
    {"document_types", "documenttype", "document type", "DocumentType"},
    {"storage_paths", "storagepath", "storage path", "StoragePath"},
}};

void addMissing(std::vector<Id>& to, const std::vector<Id>& from) {
    for (auto id : from) {
        if (std::find(to.begin(), to.end(), id) == to.end()) to.push_back(id);
    }
}

/// The plain letter of an accented one in U+00C0..U+017F; '.' where nothing is left, as of a sharp s.
constexpr std::string_view plainLetters = "AAAAAA.CEEEEIIII.NOOOOO..UUUUY..aaaaaa.ceeeeiiii.nooooo..uuuuy.y"
                                          "AaAaAaCcCcCcCcDd..EeEeEeEeEeGgGgGgGgHh..IiIiIiIiI...JjKk.LlLlLlL"
                                          "l..NnNnNnn..OoOoOo..RrRrRrSsSsSsSsTtTt..UuUuUuUuUuUuWwYyYZzZzZzs";

char32_t takeCodePoint(std::string_view& text) {
    auto lead = static_cast<unsigned char>(text.front());
    std::size_t length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    length = std::min(length, text.size());
    char32_t point = length == 1 ? lead : lead & (0xFFU >> (length + 1));
    for (std::size_t index = 1; index < length; ++index)
        point = (point << 6) | (static_cast<unsigned char>(text[index]) & 0x3FU);
    text.remove_prefix(length);
    return point;
}

void appendCodePoint(std::string& to, char32_t point) {
    if (point < 0x80) {
        to += char(point);
    } else if (point < 0x800) {
        to += char(0xC0 | (point >> 6));
        to += char(0x80 | (point & 0x3F));
    } else if (point < 0x10000) {
        to += char(0xE0 | (point >> 12));
        to += char(0x80 | ((point >> 6) & 0x3F));
        to += char(0x80 | (point & 0x3F));
    } else {
        to += char(0xF0 | (point >> 18));
        to += char(0x80 | ((point >> 12) & 0x3F));
        to += char(0x80 | ((point >> 6) & 0x3F));
        to += char(0x80 | (point & 0x3F));
    }
}

char32_t lowerPoint(char32_t point) {
    if (point >= 'A' && point <= 'Z') return point + 32;
    if (point >= 0xC0 && point <= 0xDE && point != 0xD7) return point + 32;
    if (point >= 0x100 && point <= 0x17F) {
        auto oddIsLower = point < 0x139 || (point > 0x148 && point < 0x179);
        return oddIsLower == (point % 2 == 0) ? point + 1 : point;
    }
    if (point >= 0x391 && point <= 0x3A9) return point + 32;
    if (point >= 0x410 && point <= 0x42F) return point + 32;
    return point;
}

std::string digestHex(const EVP_MD* algorithm, std::string_view bytes) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned length = 0;
    EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, algorithm, nullptr);
    std::string text;
    for (unsigned index = 0; index < length; ++index) {
        constexpr std::string_view digits = "0123456789abcdef";
        text += digits[digest[index] >> 4];
        text += digits[digest[index] & 15];
    }
    return text;
}

} // namespace

void ObjectPermissions::normalise() {
    addMissing(viewUsers, changeUsers);
    addMissing(viewGroups, changeGroups);
}

const KindNames& namesOf(Kind kind) {
    return kindNames[std::size_t(kind)];
}

Micros State::now() {
    lastTime = std::max(clock(), lastTime + 1);
    return lastTime;
}

Id State::takeId(const std::string& table) {
    auto& next = nextIds.try_emplace(table, 1).first->second;
    return next++;
}

void State::reserveId(const std::string& table, Id id) {
    auto& next = nextIds.try_emplace(table, 1).first->second;
    next = std::max(next, id + 1);
}

User* State::userByName(std::string_view username) {
    for (auto& [id, user] : users) {
        if (user.username == username) return &user;
    }
    return nullptr;
}

const User* State::userByToken(std::string_view token) const {
    for (const auto& [id, user] : users) {
        if (!user.token.empty() && user.token == token) return &user;
    }
    return nullptr;
}

Document* State::liveDocument(Id id) {
    auto found = documents.find(id);
    return found == documents.end() || found->second.deletedAt ? nullptr : &found->second;
}

const Document* State::liveDocument(Id id) const {
    auto found = documents.find(id);
    return found == documents.end() || found->second.deletedAt ? nullptr : &found->second;
}

std::string asciiOf(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        auto point = takeCodePoint(text);
        if (point < 0x80) {
            result += char(point);
        } else if (point >= 0xC0 && point < 0xC0 + plainLetters.size()) {
            auto plain = plainLetters[point - 0xC0];
            if (plain != '.') result += plain;
        }
    }
    return result;
}

std::string slugOf(std::string_view name) {
    std::string slug;
    auto gap = false;
    for (auto letter : asciiOf(name)) {
        auto isWord = std::isalnum(static_cast<unsigned char>(letter)) != 0 || letter == '_';
        if (isWord) {
            if (gap && !slug.empty()) slug += '-';
            gap = false;
            slug += char(std::tolower(static_cast<unsigned char>(letter)));
        } else if (letter == ' ' || letter == '-' || letter == '\t' || letter == '\n') {
            gap = true;
        }
    }
    return slug;
}

std::string textColorOn(std::string_view color) {
    if (color.size() != 7) return "#000000";
    auto part = [&](std::size_t at) {
        return double(std::strtol(std::string(color.substr(at, 2)).c_str(), nullptr, 16)) / 256.0;
    };
    auto red = part(1), green = part(3), blue = part(5);
    auto luminance = std::sqrt(0.299 * red * red + 0.587 * green * green + 0.114 * blue * blue);
    return luminance < 0.53 ? "#ffffff" : "#000000";
}

std::string lowerAscii(std::string_view text) {
    std::string result(text);
    for (auto& letter : result) {
        if (letter >= 'A' && letter <= 'Z') letter = char(letter + 32);
    }
    return result;
}

std::string lowerText(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        if (static_cast<unsigned char>(text.front()) < 0x80) {
            auto letter = text.front();
            result += letter >= 'A' && letter <= 'Z' ? char(letter + 32) : letter;
            text.remove_prefix(1);
        } else {
            appendCodePoint(result, lowerPoint(takeCodePoint(text)));
        }
    }
    return result;
}

std::size_t textLength(std::string_view text) {
    return std::size_t(std::count_if(text.begin(), text.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string_view textPrefix(std::string_view text, std::size_t length) {
    if (text.size() <= length) return text;
    std::size_t at = 0;
    for (std::size_t points = 0; at < text.size(); ++at) {
        if ((text[at] & 0xC0) == 0x80) continue;
        if (points++ == length) break;
    }
    return text.substr(0, at);
}

std::string sha1Hex(std::string_view bytes) {
    return digestHex(EVP_sha1(), bytes);
}

std::string md5Hex(std::string_view bytes) {
    return digestHex(EVP_md5(), bytes);
}

std::string sha256Hex(std::string_view bytes) {
    return digestHex(EVP_sha256(), bytes);
}

} // namespace ledgerfinch::support
