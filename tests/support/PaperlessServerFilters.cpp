// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerFilters.h"

#include "support/PaperlessServerCustomQuery.h"
#include "support/PaperlessServerPermissions.h"
#include "support/PaperlessServerSearch.h"

#include <algorithm>
#include <charconv>
#include <cmath>

namespace ledgerfinch::support {

namespace {

using Predicate = std::function<bool(const Document&)>;
using Documents = std::vector<const Document*>;

std::optional<std::int64_t> number(std::string_view text) {
    std::int64_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::vector<Id> numbers(std::string_view text) {
    std::vector<Id> list;
    while (!text.empty()) {
        auto end = std::min(text.find(','), text.size());
        if (auto value = number(text.substr(0, end))) list.push_back(*value);
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return list;
}

bool truth(std::string_view text) {
    auto lower = lowerAscii(text);
    return lower == "true" || lower == "1";
}

template <typename T>
bool has(const std::vector<T>& list, const T& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

bool containsFolded(std::string_view text, const std::string& loweredPart) {
    return lowerText(text).find(loweredPart) != std::string::npos;
}

/// Filters of the form KEY__OPERATION on a single optional id.
std::optional<Predicate> relationFilter(std::string_view key, const std::string& value) {
    struct Relation {
        std::string_view name;
        OptionalId Document::*member;
    };
    static constexpr std::array<Relation, 4> relations{{{"correspondent", &Document::correspondent},
                                                        {"document_type", &Document::documentType},
                                                        {"storage_path", &Document::storagePath},
                                                        {"owner", &Document::owner}}};
    for (const auto& relation : relations) {
        if (!key.starts_with(relation.name)) continue;
        auto operation = key.substr(relation.name.size());
        auto member = relation.member;
        if (operation == "__isnull") {
            return [member, wanted = truth(value)](const Document& d) {
                return (d.*member).has_value() != wanted;
            };
        }
        if (operation == "__id") {
            return [member, id = number(value)](const Document& d) {
                return !id || d.*member == *id;
            };
        }
        if (operation == "__id__in") {
            return [member, ids = numbers(value)](const Document& d) {
                return d.*member && has(ids, *(d.*member));
            };
        }
        if (operation == "__id__none") {
            return [member, ids = numbers(value)](const Document& d) {
                return !(d.*member) || !has(ids, *(d.*member));
            };
        }
    }
    return std::nullopt;
}

std::optional<Predicate> tagFilter(const State& state, std::string_view key, const std::string& value) {
    if (key == "is_tagged")
        return [wanted = truth(value)](const Document& d) {
            return d.tags.empty() != wanted;
        };
    if (key == "is_in_inbox") {
        std::vector<Id> inbox;
        for (const auto& [id, tag] : state.table(Kind::Tag)) {
            if (tag.isInboxTag) inbox.push_back(id);
        }
        return [inbox, wanted = truth(value)](const Document& d) {
            return wanted == std::any_of(d.tags.begin(), d.tags.end(), [&](Id tag) { return has(inbox, tag); });
        };
    }
    auto ids = numbers(value);
    auto isTagged = [](const Document& d, Id tag) {
        return has(d.tags, tag);
    };
    if (key == "tags__id__all" || key == "tags__id") {
        return [=](const Document& d) {
            return std::all_of(ids.begin(), ids.end(), [&](Id tag) { return isTagged(d, tag); });
        };
    }
    if (key == "tags__id__in") {
        return [=](const Document& d) {
            return std::any_of(ids.begin(), ids.end(), [&](Id tag) { return isTagged(d, tag); });
        };
    }
    if (key == "tags__id__none") {
        return [=](const Document& d) {
            return std::none_of(ids.begin(), ids.end(), [&](Id tag) { return isTagged(d, tag); });
        };
    }
    return std::nullopt;
}

std::optional<Predicate> textFilter(std::string_view key, const std::string& value) {
    auto part = lowerText(value);
    if (key == "title__icontains")
        return [=](const Document& d) {
            return containsFolded(d.title, part);
        };
    if (key == "content__icontains")
        return [=](const Document& d) {
            return containsFolded(d.content, part);
        };
    if (key == "title_content") {
        return [=](const Document& d) {
            return containsFolded(d.title, part) || containsFolded(d.content, part);
        };
    }
    if (key == "mime_type")
        return [=](const Document& d) {
            return d.mimeType == value;
        };
    return std::nullopt;
}

template <typename T>
std::optional<Predicate> compareFilter(std::string_view operation, std::function<std::optional<T>(const Document&)> get,
                                       T wanted) {
    auto with = [&](auto compare) -> Predicate {
        return [=](const Document& d) {
            auto value = get(d);
            return value && compare(*value, wanted);
        };
    };
    if (operation == "gt") return with(std::greater<T>{});
    if (operation == "gte") return with(std::greater_equal<T>{});
    if (operation == "lt") return with(std::less<T>{});
    if (operation == "lte") return with(std::less_equal<T>{});
    if (operation.empty()) return with(std::equal_to<T>{});
    return std::nullopt;
}

struct TimeFilter {
    std::optional<Predicate> predicate;
    bool isBad = false;
};

/// created, added and modified with __gt, __gte, __lt, __lte, and the same behind __date.
TimeFilter timeFilter(std::string_view key, const std::string& value) {
    for (std::string_view name : {"created", "added", "modified"}) {
        if (!key.starts_with(name) || !key.substr(name.size()).starts_with("__")) continue;
        auto operation = key.substr(name.size() + 2);
        auto byDay = operation.starts_with("date__");
        if (byDay) operation.remove_prefix(6);
        if (operation != "gt" && operation != "gte" && operation != "lt" && operation != "lte") return {};
        auto time = parseTime(value);
        if (!time) return {{}, true};
        if (byDay || name == "created") {
            auto dayOf = [name](const Document& d) -> std::optional<std::string> {
                return name == "created" ? d.created : localDateText(name == "added" ? d.added : d.modified);
            };
            return {compareFilter<std::string>(operation, dayOf, localDateText(*time)), false};
        }
        auto timeOf = [name](const Document& d) -> std::optional<Micros> {
            return name == "added" ? d.added : d.modified;
        };
        return {compareFilter<Micros>(operation, timeOf, *time), false};
    }
    return {};
}

std::optional<Predicate> numberFilter(std::string_view key, const std::string& value) {
    if (key == "id__in")
        return [ids = numbers(value)](const Document& d) {
            return has(ids, d.id);
        };
    if (key == "id")
        return [id = number(value)](const Document& d) {
            return !id || d.id == *id;
        };
    if (key == "archive_serial_number__isnull") {
        return [wanted = truth(value)](const Document& d) {
            return d.archiveSerialNumber.has_value() != wanted;
        };
    }
    constexpr std::string_view asn = "archive_serial_number";
    if (key.starts_with(asn)) {
        auto wanted = number(value);
        auto operation = key.substr(asn.size());
        if (operation.starts_with("__")) operation.remove_prefix(2);
        if (!wanted) return std::nullopt;
        return compareFilter<std::int64_t>(
            operation, [](const Document& d) { return d.archiveSerialNumber; }, *wanted);
    }
    if (key == "has_custom_fields") {
        return [wanted = truth(value)](const Document& d) {
            return d.customFields.empty() != wanted;
        };
    }
    return std::nullopt;
}

struct Filters {
    std::vector<Predicate> predicates;
    Json errors = Json::object();
};

Filters filtersOf(const State& state, const Request& request) {
    Filters filters;
    for (const auto& [key, value] : request.query) {
        if (value.empty()) continue;
        if (auto predicate = relationFilter(key, value)) {
            filters.predicates.push_back(std::move(*predicate));
        } else if (auto tags = tagFilter(state, key, value)) {
            filters.predicates.push_back(std::move(*tags));
        } else if (auto text = textFilter(key, value)) {
            filters.predicates.push_back(std::move(*text));
        } else if (auto numeric = numberFilter(key, value)) {
            filters.predicates.push_back(std::move(*numeric));
        } else if (auto time = timeFilter(key, value); time.isBad) {
            filters.errors[key] = Json::array({"Enter a valid date/time."});
        } else if (time.predicate) {
            filters.predicates.push_back(std::move(*time.predicate));
        } else if (key == "custom_field_query" && state.release.ordersLists) {
            auto query = parseCustomQuery(state, value);
            if (query.predicate) filters.predicates.push_back(std::move(query.predicate));
            if (!query.error.is_null()) filters.errors[key] = std::move(query.error);
        }
    }
    return filters;
}

/// A sort key; absent values come first in an ascending order, as NULL does in SQLite.
struct SortKey {
    int rank = 0;
    double number = 0;
    std::string text;
    auto operator<=>(const SortKey&) const = default;
};

std::string relationName(const State& state, Kind kind, const OptionalId& id) {
    return id ? lowerAscii(state.table(kind).at(*id).name) : std::string();
}

/// The amount behind the currency letters of a monetary value.
double amountOf(const std::string& text) {
    auto start = text.find_first_of("-0123456789");
    return start == std::string::npos ? 0 : std::strtod(text.c_str() + start, nullptr);
}

SortKey customFieldKey(const State& state, const Document& document, Id field) {
    for (const auto& value : document.customFields) {
        if (value.field != field) continue;
        if (value.value.is_null()) return {1, 0, {}};
        if (value.value.is_boolean()) return {2, value.value.get<bool>() ? 1.0 : 0.0, {}};
        if (value.value.is_number()) return {2, value.value.get<double>(), {}};
        if (!value.value.is_string()) return {2, 0, {}};
        auto text = value.value.get<std::string>();
        auto isMoney = state.customFields.at(field).dataType == "monetary";
        return isMoney ? SortKey{2, amountOf(text), {}} : SortKey{2, 0, text};
    }
    return {0, 0, {}};
}

using KeyOf = std::function<SortKey(const Document&)>;

std::optional<KeyOf> keyOf(const State& state, std::string_view field) {
    auto byNumber = [](auto get) -> KeyOf {
        return [get](const Document& d) {
            return SortKey{1, double(get(d)), {}};
        };
    };
    if (field == "id") return byNumber([](const Document& d) { return d.id; });
    if (field == "modified") return byNumber([](const Document& d) { return d.modified; });
    if (field == "added") return byNumber([](const Document& d) { return d.added; });
    if (field == "num_notes") return byNumber([](const Document& d) { return d.notes.size() + d.deletedNotes; });
    if (field == "created")
        return [](const Document& d) {
            return SortKey{1, 0, d.created};
        };
    if (field == "title")
        return [](const Document& d) {
            return SortKey{1, 0, d.title};
        };
    if (field == "archive_serial_number" || field == "page_count" || field == "owner") {
        auto member = field == "owner"        ? &Document::owner
                      : field == "page_count" ? &Document::pageCount
                                              : &Document::archiveSerialNumber;
        return [member](const Document& d) {
            return SortKey{d.*member ? 1 : 0, double((d.*member).value_or(0)), {}};
        };
    }
    if (field == "correspondent__name") {
        return [&state](const Document& d) {
            return SortKey{d.correspondent ? 1 : 0, 0, relationName(state, Kind::Correspondent, d.correspondent)};
        };
    }
    if (field == "document_type__name") {
        return [&state](const Document& d) {
            return SortKey{d.documentType ? 1 : 0, 0, relationName(state, Kind::DocumentType, d.documentType)};
        };
    }
    constexpr std::string_view custom = "custom_field_";
    if (field.starts_with(custom)) {
        auto id = number(field.substr(custom.size()));
        if (!id || !state.customFields.contains(*id)) return std::nullopt;
        return [&state, id = *id](const Document& d) {
            return customFieldKey(state, d, id);
        };
    }
    return std::nullopt;
}

void sortBy(Documents& documents, const KeyOf& key, bool descending) {
    std::vector<std::pair<SortKey, const Document*>> keyed;
    keyed.reserve(documents.size());
    for (const auto* document : documents)
        keyed.emplace_back(key(*document), document);
    std::stable_sort(keyed.begin(), keyed.end(), [&](const auto& left, const auto& right) {
        return descending ? right.first < left.first : left.first < right.first;
    });
    std::transform(keyed.begin(), keyed.end(), documents.begin(), [](const auto& pair) { return pair.second; });
}

/// Sorts documents that come in the order of their ids. Unknown fields are ignored.
void order(Documents& documents, const State& state, const std::string& ordering) {
    std::vector<std::pair<KeyOf, bool>> keys;
    std::string_view rest = ordering;
    while (!rest.empty()) {
        auto end = std::min(rest.find(','), rest.size());
        auto field = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        auto descending = field.starts_with('-');
        if (descending) field.remove_prefix(1);
        if (field == "id" && keys.empty()) {
            if (descending) std::reverse(documents.begin(), documents.end());
            return;
        }
        if (auto key = keyOf(state, field)) keys.emplace_back(std::move(*key), descending);
    }
    // The oldest release orders nothing that it isn't asked to.
    if (keys.empty() && !state.release.ordersLists) return;
    if (keys.empty()) {
        std::reverse(documents.begin(), documents.end());
        std::stable_sort(documents.begin(), documents.end(),
                         [](const auto* left, const auto* right) { return left->created > right->created; });
        return;
    }
    for (auto key = keys.rbegin(); key != keys.rend(); ++key)
        sortBy(documents, key->first, key->second);
}

} // namespace

SelectedDocuments selectDocuments(const State& state, const Request& request, const User& viewer) {
    auto filters = filtersOf(state, request);
    if (!filters.errors.empty()) return {{}, jsonResponse(filters.errors, 400), false, {}};

    Documents documents;
    documents.reserve(state.documents.size());
    for (const auto& [id, document] : state.documents) {
        if (document.deletedAt || !maySee(viewer, document.owner, document.permissions)) continue;
        auto passes = std::all_of(filters.predicates.begin(), filters.predicates.end(),
                                  [&](const auto& predicate) { return predicate(document); });
        if (passes) documents.push_back(&document);
    }
    order(documents, state, request.argument("ordering").value_or(""));

    SelectedDocuments selected;
    for (const auto* document : documents)
        selected.ids.push_back(document->id);
    applySearch(selected, state, request);
    return selected;
}

} // namespace ledgerfinch::support
