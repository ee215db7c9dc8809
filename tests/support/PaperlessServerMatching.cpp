// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerMatching.h"

#include "support/PaperlessServerFilters.h"
#include "support/PaperlessServerPermissions.h"

#include <algorithm>
#include <regex>

namespace ledgerfinch::support {

namespace {

enum Algorithm { None, AnyWord, AllWords, Literal, Regex, Fuzzy, Automatic };

bool containsWord(const std::string& text, const std::string& word) {
    auto isWordByte = [](char byte) {
        return std::isalnum(static_cast<unsigned char>(byte)) != 0 || static_cast<unsigned char>(byte) >= 0x80;
    };
    for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
        auto startsWord = at == 0 || !isWordByte(text[at - 1]);
        auto end = at + word.size();
        if (startsWord && (end == text.size() || !isWordByte(text[end]))) return true;
    }
    return false;
}

bool matches(const Attribute& attribute, std::string text) {
    if (attribute.match.empty()) return false;
    auto match = attribute.match;
    if (attribute.isInsensitive) {
        text = lowerText(text);
        if (attribute.matchingAlgorithm != Regex) match = lowerText(match);
    }
    auto words = wordsOf(match);
    auto contains = [&](const std::string& word) {
        return containsWord(text, word);
    };
    switch (attribute.matchingAlgorithm) {
    case AnyWord:
        return std::any_of(words.begin(), words.end(), contains);
    case AllWords:
        return !words.empty() && std::all_of(words.begin(), words.end(), contains);
    case Literal:
        return containsWord(text, match);
    case Regex: {
        auto flags = attribute.isInsensitive ? std::regex::ECMAScript | std::regex::icase : std::regex::ECMAScript;
        return std::regex_search(text, std::regex(match, flags));
    }
    case Fuzzy:
        return text.find(match) != std::string::npos;
    default:
        return false;
    }
}

} // namespace

std::vector<Id> matchingAttributes(const State& state, Kind kind, const Document& document, const User& viewer) {
    std::vector<Id> ids;
    for (const auto& [id, attribute] : state.table(kind)) {
        if (maySee(viewer, attribute.owner, attribute.permissions) && matches(attribute, document.content))
            ids.push_back(id);
    }
    return ids;
}

} // namespace ledgerfinch::support
