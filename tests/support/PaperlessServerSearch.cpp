// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerSearch.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr Micros day = 24 * 3600 * second;

/// A word to look for, by itself or in one field ("tag:inbox").
struct Term {
    std::string field;
    std::string word;
};

struct Query {
    std::vector<Term> terms;
    std::optional<Micros> addedFrom;
    bool isBad = false;
};

/// "[-1 year to now]" as a number of days back; the only range that the search understands.
std::optional<Micros> rangeStart(std::string_view range, Micros now) {
    if (!range.ends_with(" to now]") || !range.starts_with("[-")) return std::nullopt;
    range.remove_prefix(2);
    auto count = std::max(1, std::atoi(std::string(range).c_str()));
    auto unit = range.find("year") != std::string_view::npos    ? 365
                : range.find("month") != std::string_view::npos ? 30
                : range.find("week") != std::string_view::npos  ? 7
                                                                : 1;
    return now - count * unit * day;
}

Query parse(std::string_view text, Micros now) {
    Query query;
    while (!text.empty()) {
        auto start = text.find_first_not_of(' ');
        if (start == std::string_view::npos) break;
        text.remove_prefix(start);
        auto colon = text.find(':');
        auto space = std::min(text.find(' '), text.size());
        if (colon < space && colon + 1 < text.size() && text[colon + 1] == '[') {
            auto end = text.find(']');
            auto from =
                end == std::string_view::npos ? std::nullopt : rangeStart(text.substr(colon + 1, end - colon), now);
            if (!from) {
                query.isBad = true;
                return query;
            }
            query.addedFrom = from;
            text.remove_prefix(end + 1);
            continue;
        }
        auto token = text.substr(0, space);
        text.remove_prefix(space);
        std::string field;
        if (colon < space) {
            field = lowerAscii(token.substr(0, colon));
            token.remove_prefix(colon + 1);
        }
        for (auto& word : wordsOf(token))
            query.terms.push_back({field, std::move(word)});
    }
    return query;
}

std::size_t count(const std::vector<std::string>& words, const std::string& word) {
    return std::size_t(std::count(words.begin(), words.end(), word));
}

std::string nameOf(const State& state, Kind kind, const OptionalId& id) {
    return id ? state.table(kind).at(*id).name : std::string();
}

std::string tagNames(const State& state, const Document& document) {
    std::string names;
    for (auto tag : document.tags)
        names += state.table(Kind::Tag).at(tag).name + " ";
    return names;
}

std::size_t hits(const State& state, const Document& document, const Term& term) {
    if (term.field == "tag") return count(wordsOf(tagNames(state, document)), term.word);
    if (term.field == "title") return count(wordsOf(document.title), term.word);
    if (term.field == "correspondent")
        return count(wordsOf(nameOf(state, Kind::Correspondent, document.correspondent)), term.word);
    if (term.field == "type")
        return count(wordsOf(nameOf(state, Kind::DocumentType, document.documentType)), term.word);
    auto total = count(wordsOf(document.content), term.word) + count(wordsOf(document.title), term.word);
    if (!term.field.empty()) return total;
    total += count(wordsOf(tagNames(state, document)), term.word);
    total += count(wordsOf(nameOf(state, Kind::Correspondent, document.correspondent)), term.word);
    total += count(wordsOf(nameOf(state, Kind::DocumentType, document.documentType)), term.word);
    for (const auto& note : document.notes)
        total += count(wordsOf(note.text), term.word);
    for (const auto& value : document.customFields) {
        if (value.value.is_string()) total += count(wordsOf(value.value.get<std::string>()), term.word);
    }
    return total;
}

/// The score of a document, 0 when it doesn't match.
double scoreOf(const State& state, const Document& document, const Query& query) {
    if (query.addedFrom && document.added < *query.addedFrom) return 0;
    double score = query.addedFrom ? 1 : 0;
    for (const auto& term : query.terms) {
        auto found = hits(state, document, term);
        if (found == 0) return 0;
        score += double(found);
    }
    return score;
}

void keep(SelectedDocuments& selected, const std::function<double(Id)>& score, bool byScore) {
    std::vector<std::pair<double, Id>> found;
    for (auto id : selected.ids) {
        if (auto value = score(id); value > 0) found.emplace_back(value, id);
    }
    if (byScore) {
        std::stable_sort(found.begin(), found.end(),
                         [](const auto& left, const auto& right) { return left.first > right.first; });
    }
    auto best = found.empty() ? 1.0 : std::max_element(found.begin(), found.end())->first;
    selected.ids.clear();
    for (const auto& [value, id] : found) {
        selected.ids.push_back(id);
        selected.scores.push_back(value / best);
    }
}

/// How often the words stand in a text that has them all, else 0.
double wordScore(std::string_view text, const std::vector<std::string>& words) {
    auto lower = lowerText(text);
    double total = 0;
    for (const auto& word : words) {
        auto before = total;
        for (auto at = lower.find(word); at != std::string::npos; at = lower.find(word, at + word.size()))
            ++total;
        if (total == before) return 0;
    }
    return total;
}

/// The searches that release 3 has besides the query.
struct SimpleSearch {
    std::string words;
    bool onlyTitle = false;
};

std::optional<SimpleSearch> simpleSearch(const State& state, const Request& request) {
    if (!state.release.hasSimpleSearch) return std::nullopt;
    if (auto text = request.argument("text")) return SimpleSearch{*text, false};
    if (auto title = request.argument("title_search")) return SimpleSearch{*title, true};
    return std::nullopt;
}

} // namespace

std::vector<std::string> wordsOf(std::string_view text) {
    auto lower = lowerText(text);
    std::vector<std::string> words;
    std::string word;
    for (auto byte : lower) {
        if (std::isalnum(static_cast<unsigned char>(byte)) != 0 || static_cast<unsigned char>(byte) >= 0x80) {
            word += byte;
        } else if (!word.empty()) {
            words.push_back(std::move(word));
            word.clear();
        }
    }
    if (!word.empty()) words.push_back(std::move(word));
    return words;
}

void applySearch(SelectedDocuments& selected, const State& state, const Request& request) {
    auto byScore = !request.argument("ordering");
    if (auto like = request.argument("more_like_id")) {
        selected.isSearch = true;
        const auto* model = state.liveDocument(std::atoll(like->c_str()));
        if (model == nullptr) {
            selected.ids.clear();
            return;
        }
        auto words = wordsOf(model->content);
        std::set<std::string> vocabulary(words.begin(), words.end());
        keep(
            selected,
            [&](Id id) {
                if (id == model->id) return 0.0;
                double common = 0;
                for (const auto& word : wordsOf(state.documents.at(id).content))
                    common += vocabulary.contains(word) ? 1 : 0;
                return common;
            },
            byScore);
    } else if (auto text = request.argument("query")) {
        selected.isSearch = true;
        auto query = parse(*text, state.clock());
        if (query.isBad || (query.terms.empty() && !query.addedFrom)) {
            selected.ids.clear();
            return;
        }
        keep(
            selected, [&](Id id) { return scoreOf(state, state.documents.at(id), query); }, byScore);
    } else if (auto plain = simpleSearch(state, request)) {
        selected.isSearch = true;
        auto words = wordsOf(plain->words);
        auto score = [&](Id id) {
            const auto& document = state.documents.at(id);
            return wordScore(plain->onlyTitle ? document.title : document.title + "\n" + document.content, words);
        };
        keep(selected, score, byScore);
    }
}

Json searchHit(const State& state, const Document& document, const std::string& query, double score, std::size_t rank) {
    std::string highlights;
    auto isThree = state.release.hasSimpleSearch;
    auto lower = lowerText(document.content);
    auto words = wordsOf(query);
    if (!words.empty() && lower.size() == document.content.size()) {
        if (auto at = lower.find(words.front()); at != std::string::npos) {
            auto word = document.content.substr(at, words.front().size());
            highlights = isThree ? "<b>" + word + "</b>" : "<span class=\"match term0\">" + word + "</span>";
        }
    }
    return Json{{"score", score},
                {"highlights", highlights},
                {"note_highlights", isThree ? Json() : Json("")},
                {"rank", isThree ? rank + 1 : rank}};
}

} // namespace ledgerfinch::support
