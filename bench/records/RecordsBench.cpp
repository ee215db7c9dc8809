// SPDX-License-Identifier: GPL-3.0-or-later
// How fast a page of 100 documents turns into records, beside what two parsers need for the bare parsing of the same
// bytes. All three are measured by turns in one run, so that the ratios hold whatever else the machine does.
//
//   bench_records [--check] [file]
//
// With --check the exit status tells whether the limits were kept.
#include "records/Decoders.h"
#include "records/JsonWriter.h"

#include <QByteArray>
#include <QJsonDocument>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <string_view>

#include <simdjson.h>

namespace {

using namespace ledgerfinch;

constexpr double kLeastAgainstQt = 4.0;
constexpr double kLeastAgainstDom = 0.5;

std::string words(std::mt19937& random, std::size_t bytes) {
    static constexpr std::string_view kWords[] = {"Rechnung", "Überweisung", "Größe",     "invoice", "Kunde", "Öl",
                                                  "contract", "München",     "Straße",    "payment", "lorem", "Betrag",
                                                  "co2",      "Vertrag",     "dolor sit", "Käse",    "Gas",   "Datum"};
    std::string text;
    while (text.size() < bytes) {
        text += kWords[random() % std::size(kWords)];
        text += random() % 7 == 0 ? '\n' : ' ';
    }
    return text;
}

/// A page as a server of today sends it, with the proportions of a recorded one: 100 documents of 4 KB of text, every
/// third shared with somebody and with a note, two field values on most.
std::string makePage() {
    std::mt19937 random(7);
    JsonWriter writer;
    writer.beginObject().member("count", 259).member("next", "http://localhost:8000/api/documents/?page=2");
    writer.key("previous").null().key("all").beginArray();
    for (int id = 1; id <= 259; ++id)
        writer.integer(id);
    writer.endArray().key("results").beginArray();
    for (int id = 1; id <= 100; ++id) {
        writer.beginObject().member("id", id).member("correspondent", id % 8).member("document_type", id % 5);
        writer.key("storage_path").null().member("title", words(random, 40)).member("content", words(random, 4000));
        writer.member("tags", std::vector<std::int64_t>{1, id % 16, 20}).member("created", "2024-03-01T00:00:00+01:00");
        writer.member("created_date", "2024-03-01").member("modified", "2026-11-14T16:55:43.732126+01:00");
        writer.member("added", "2026-11-14T16:55:43.732126+01:00").member("deleted_at", std::nullopt);
        writer.member("archive_serial_number", 1000 + id).member("original_file_name", "scan.pdf");
        writer.member("archived_file_name", "scan.pdf").member("owner", 3).member("user_can_change", true);
        const bool shared = id % 3 == 0;
        writer.rawMember("permissions",
                         shared ? R"({"view":{"users":[4,5],"groups":[1]},"change":{"users":[],"groups":[]}})"
                                : R"({"view":{"users":[],"groups":[]},"change":{"users":[],"groups":[]}})");
        writer.rawMember("notes",
                         !shared ? "[]" : R"([{"id":1,"note":"checked","created":"2026-11-14T16:55:43.7Z","user":3}])");
        writer.rawMember("custom_fields",
                         id % 6 == 0 ? "[]" : R"([{"value":"EUR12.50","field":1},{"value":17,"field":2}])");
        writer.member("page_count", 2).member("mime_type", "application/pdf").endObject();
    }
    return writer.endArray().endObject().take();
}

/// The best of a few calls in a row, after one that isn't timed: each of the three finds its own memory warm. What a
/// call returns is freed outside the measured time, as the parsers keep theirs.
template <class Function>
void measure(double& best, Function&& function) {
    for (int call = 0; call < 6; ++call) {
        const auto start = std::chrono::steady_clock::now();
        [[maybe_unused]] const auto result = function();
        const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
        if (call > 0) best = std::min(best, taken.count());
    }
}

} // namespace

int main(int argc, char** argv) {
    bool check = false;
    std::string body;
    for (int i = 1; i < argc; ++i) {
        if (std::string_view(argv[i]) == "--check") {
            check = true;
            continue;
        }
        std::ifstream file(argv[i], std::ios::binary);
        body.assign(std::istreambuf_iterator<char>(file), {});
    }
    if (body.empty()) body = makePage();

    double records = std::numeric_limits<double>::max();
    double qt = records;
    double dom = records;
    const DecodeContext context;
    const QByteArray qtBody(body.data(), static_cast<qsizetype>(body.size()));
    simdjson::dom::parser parser;
    std::size_t decoded = 0;
    std::size_t parsed = 0;
    for (int round = 0; round < 40; ++round) {
        measure(records, [&] {
            auto page = decodeDocuments(body, context);
            if (page && page->results) decoded += page->results->size();
            return page;
        });
        measure(dom, [&] {
            simdjson::dom::element root;
            if (parser.parse(body).get(root) == simdjson::SUCCESS) ++parsed;
            return root;
        });
        measure(qt, [&] {
            auto document = QJsonDocument::fromJson(qtBody);
            if (document.isObject()) ++parsed;
            return document;
        });
    }
    if (decoded == 0 || parsed == 0) {
        std::fprintf(stderr, "The page did not decode.\n");
        return 2;
    }

    const double againstQt = qt / records;
    const double againstDom = dom / records;
    std::printf("page: %zu KB\n", body.size() / 1000);
    std::printf("decodeDocuments          %8.3f ms\n", records);
    std::printf("simdjson DOM, parse only %8.3f ms   speed against it: %.2f (at least %.2f)\n", dom, againstDom,
                kLeastAgainstDom);
    std::printf("QJsonDocument, parse only%8.3f ms   speed against it: %.2f (at least %.2f)\n", qt, againstQt,
                kLeastAgainstQt);
    const bool kept = againstQt >= kLeastAgainstQt && againstDom >= kLeastAgainstDom;
    std::printf("%s\n", kept ? "The limits are kept." : "A LIMIT IS MISSED.");
    return check && !kept ? 1 : 0;
}
