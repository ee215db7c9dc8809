// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerSamples.h"

#include "support/PaperlessServerSeed.h"

#include <algorithm>

namespace ledgerfinch::support {

namespace {

constexpr Micros day = 24 * 3600 * second;
/// Midnight of 1 January 2026 in UTC: samples look the same whenever they are made.
constexpr Micros sampleNow = 1'767'225'600 * second;

constexpr std::array<std::string_view, 64> words{
    "Rechnung",  "invoice",      "Betrag",    "amount",   "Vertrag", "contract", "Überweisung", "payment",
    "Straße",    "street",       "München",   "Köln",     "Größe",   "size",     "Nummer",      "number",
    "Kunde",     "customer",     "Datum",     "date",     "Miete",   "rent",     "Strom",       "electricity",
    "Wasser",    "water",        "Gas",       "Telefon",  "phone",   "Konto",    "account",     "Steuer",
    "tax",       "Versicherung", "insurance", "Beitrag",  "fee",     "Zahlung",  "fällig",      "due",
    "der",       "the",          "und",       "and",      "für",     "for",      "mit",         "with",
    "bis",       "until",        "Übersicht", "overview", "Brief",   "letter",   "Käufer",      "buyer",
    "Lieferung", "delivery",     "geprüft",   "checked",  "bezahlt", "paid",     "Anlage",      "annex"};

constexpr std::array<std::string_view, 10> titleStarts{"Rechnung",  "Invoice", "Vertrag", "Contract", "Kontoauszug",
                                                       "Statement", "Brief",   "Letter",  "Beleg",    "Receipt"};

constexpr std::array<std::string_view, 20> companies{
    "Stadtwerke",   "Telefon AG", "Versicherung",   "Autohaus",  "Buchhandlung", "Energy Ltd", "Bakery",
    "Krankenkasse", "Finanzamt",  "Hausverwaltung", "Bank",      "Möbelhaus",    "Pharmacy",   "Railways",
    "Gärtnerei",    "Insurance",  "Zahnarzt",       "Werkstatt", "Verlag",       "Post"};

constexpr std::array<std::string_view, 10> palette{"#a6cee3", "#1f78b4", "#b2df8a", "#33a02c", "#fb9a99",
                                                   "#e31a1c", "#fdbf6f", "#ff7f00", "#cab2d6", "#6a3d9a"};

constexpr std::array<std::string_view, 10> fieldTypes{"string", "date", "monetary", "boolean",      "integer",
                                                      "float",  "url",  "select",   "documentlink", "string"};

/// xorshift64*: the same numbers on every machine.
class Dice {
public:
    explicit Dice(std::uint64_t seed) : m_state(seed * 0x9E3779B97F4A7C15ULL + 1) {}
    std::size_t below(std::size_t limit) {
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return limit == 0 ? 0 : std::size_t((m_state * 0x2545F4914F6CDD1DULL) >> 33) % limit;
    }
    bool oneIn(std::size_t number) { return below(number) == 0; }
    template <typename List>
    auto pick(const List& list) {
        return list[below(list.size())];
    }

private:
    std::uint64_t m_state;
};

std::string numbered(std::string_view name, std::size_t number) {
    auto digits = std::to_string(number);
    return std::string(name) + " " + std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits;
}

OptionalId sampleOwner(Dice& dice) {
    auto roll = dice.below(10);
    if (roll < 6) return 3;
    if (roll < 8) return 4;
    return roll == 8 ? OptionalId(5) : std::nullopt;
}

ObjectPermissions samplePermissions(Dice& dice) {
    ObjectPermissions permissions;
    if (!dice.oneIn(4)) return permissions;
    permissions.viewUsers = {4, 5};
    if (dice.oneIn(2)) permissions.viewGroups = {Id(1 + dice.below(2))};
    if (dice.oneIn(2)) permissions.changeUsers = {4};
    permissions.normalise();
    return permissions;
}

void addAttributes(State& state, Kind kind, std::size_t count, Dice& dice) {
    static constexpr std::array<std::string_view, 4> names{"Tag", "", "Type", "Path"};
    for (std::size_t number = 1; number <= count; ++number) {
        Attribute attribute;
        attribute.id = state.takeId(std::string(namesOf(kind).path));
        auto name = kind == Kind::Correspondent ? companies[number % companies.size()] : names[std::size_t(kind)];
        attribute.name = numbered(name, number);
        attribute.matchingAlgorithm = std::int64_t(dice.below(7));
        if (attribute.matchingAlgorithm == 4) attribute.matchingAlgorithm = 0;
        attribute.match = dice.oneIn(2) ? std::string(dice.pick(words)) : std::string();
        attribute.isInsensitive = !dice.oneIn(4);
        attribute.owner = sampleOwner(dice);
        attribute.permissions = samplePermissions(dice);
        attribute.color = palette[number % palette.size()];
        attribute.isInboxTag = kind == Kind::Tag && number == 1;
        if (kind == Kind::StoragePath) attribute.path = "{{ created_year }}/" + attribute.name + "/{{ title }}";
        state.table(kind)[attribute.id] = std::move(attribute);
    }
}

void addCustomFields(State& state, std::size_t count) {
    for (std::size_t number = 1; number <= count; ++number) {
        CustomField field;
        field.id = state.takeId("custom_fields");
        field.dataType = fieldTypes[(number - 1) % fieldTypes.size()];
        field.name = numbered("Field", number);
        if (field.dataType == "monetary") field.extraData = Json{{"default_currency", "EUR"}};
        if (field.dataType == "select") {
            for (const char* label : {"Offen", "In Arbeit", "Erledigt"}) {
                auto id = "sel" + sha1Hex(field.name + label).substr(0, 13);
                field.options.push_back({id, label, false});
            }
        }
        state.customFields[field.id] = std::move(field);
    }
}

void addSavedViews(State& state, std::size_t count, Dice& dice) {
    for (std::size_t number = 1; number <= count; ++number) {
        SavedView view;
        view.id = state.takeId("saved_views");
        view.name = numbered("View", number);
        view.owner = 3;
        (dice.oneIn(2) ? view.onDashboardOf : view.inSidebarOf).insert(*view.owner);
        view.sortField = number % 3 == 0 ? "title" : "created";
        view.sortReverse = number % 2 == 0;
        view.filterRules.push_back(
            {6, std::to_string(1 + number % std::max<std::size_t>(1, state.table(Kind::Tag).size()))});
        if (number % 2 == 0) view.filterRules.push_back({0, std::string(dice.pick(words))});

        state.savedViews[view.id] = std::move(view);
    }
}

std::string sampleText(Dice& dice, std::size_t bytes) {
    std::string text;
    text.reserve(bytes + 32);
    while (text.size() < bytes) {
        text += dice.pick(words);
        auto roll = dice.below(24);
        if (roll == 0) {
            text += '\n';
        } else if (roll == 1) {
            text += ' ' + std::to_string(1 + dice.below(9999)) + ',' + std::to_string(10 + dice.below(90)) + " EUR\n";
        } else {
            text += ' ';
        }
    }
    return text;
}

Json sampleValue(Dice& dice, const CustomField& field, Id document) {
    const auto& type = field.dataType;
    if (type == "date") return localDateText(sampleNow - Micros(dice.below(2000)) * day);
    if (type == "monetary")
        return "EUR" + std::to_string(1 + dice.below(5000)) + "." + std::to_string(10 + dice.below(90));
    if (type == "boolean") return dice.oneIn(2);
    if (type == "integer") return std::int64_t(dice.below(100000));
    if (type == "float") return double(dice.below(100000)) / 8;
    if (type == "url") return "https://example.org/" + std::to_string(dice.below(1000));
    if (type == "select") return field.options[dice.below(field.options.size())].id;
    if (type == "documentlink") return document > 1 ? Json::array({document - 1}) : Json::array();
    return std::string(dice.pick(words)) + " " + std::to_string(dice.below(1000));
}

OptionalId pickId(Dice& dice, std::size_t count, std::size_t noneIn) {
    if (count == 0 || dice.oneIn(noneIn)) return std::nullopt;
    return Id(1 + dice.below(count));
}

Document sampleDocument(State& state, Dice& dice, const SampleOptions& options) {
    Document document;
    document.id = state.takeId("documents");
    document.title = numbered(dice.pick(titleStarts), std::size_t(document.id)) + " " + std::string(dice.pick(words));
    document.content = sampleText(dice, options.textBytes);
    document.correspondent = pickId(dice, options.correspondents, 10);
    document.documentType = pickId(dice, options.documentTypes, 8);
    document.storagePath = pickId(dice, options.storagePaths, 3);
    for (auto left = dice.below(4); left > 0 && options.tags > 0; --left) {
        auto tag = Id(1 + dice.below(options.tags));
        if (std::find(document.tags.begin(), document.tags.end(), tag) == document.tags.end())
            document.tags.push_back(tag);
    }
    document.created = localDateText(sampleNow - Micros(dice.below(3650)) * day);
    document.added = sampleNow - Micros(dice.below(700)) * day - Micros(dice.below(86'400'000)) * 1000;
    document.modified = document.added + Micros(dice.below(5)) * day + Micros(dice.below(1'000'000));
    document.filed = document.added;
    if (dice.oneIn(3)) document.archiveSerialNumber = 1000 + document.id;
    document.originalFileName = "scan_" + std::to_string(document.id) + ".pdf";
    document.hasArchive = dice.oneIn(3);
    document.owner = sampleOwner(dice);
    document.permissions = samplePermissions(dice);
    document.pageCount = std::int64_t(1 + dice.below(4));
    if (dice.oneIn(20)) {
        document.notes.push_back(
            {state.takeId("notes"), std::string(dice.pick(words)) + " prüfen", document.modified, 3});
    }
    for (std::size_t index = 0; index < options.valuesPerDocument && !state.customFields.empty(); ++index) {
        auto field = Id(1 + (std::size_t(document.id) * options.valuesPerDocument + index) % state.customFields.size());
        auto found = state.customFields.find(field);
        if (found == state.customFields.end()) continue;
        document.customFields.push_back({field, sampleValue(dice, found->second, document.id)});
    }
    return document;
}

} // namespace

void generateSamples(State& state, std::size_t count, const SampleOptions& options) {
    Dice dice(options.seed);
    seedUsers(state);
    state.thumbnailsAreWebp = false;
    addAttributes(state, Kind::Tag, options.tags, dice);
    addAttributes(state, Kind::Correspondent, options.correspondents, dice);
    addAttributes(state, Kind::DocumentType, options.documentTypes, dice);
    addAttributes(state, Kind::StoragePath, options.storagePaths, dice);
    addCustomFields(state, options.customFields);
    addSavedViews(state, options.savedViews, dice);
    generateDocuments(state, count, options);
}

void generateDocuments(State& state, std::size_t count, const SampleOptions& options) {
    Dice dice(options.seed + state.documents.size() * 7919);
    for (std::size_t number = 0; number < count; ++number) {
        auto document = sampleDocument(state, dice, options);
        state.documents.emplace_hint(state.documents.end(), document.id, std::move(document));
    }
    state.changed();
}

} // namespace ledgerfinch::support
