// SPDX-License-Identifier: GPL-3.0-or-later
// What the engine costs above bare SQLite, as ratios of one run: absolute figures drift with the load of the machine.
//   bench_objectstore [documents for merging] [documents for opening]
#include "Limits.h"

#include "objectstore/PersistentContainer.h"
#include "platform/LogSinks.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <sqlite3.h>
#include <unistd.h>

using namespace ledgerfinch;
using bench::Limits;

namespace {

using Clock = std::chrono::steady_clock;

/// Of the process, so that others on the machine don't count.
double cpuMilliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e3 + static_cast<double>(now.tv_nsec) / 1e6;
}

double milliseconds(const std::function<void()>& work) {
    const auto start = Clock::now();
    work();
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

std::size_t residentKilobytes() {
    std::ifstream status("/proc/self/statm");
    std::size_t total = 0;
    std::size_t resident = 0;
    status >> total >> resident;
    return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) / 1024;
}

const Model& model() {
    using T = AttributeType;
    using C = Cardinality;
    using D = DeleteRule;
    static const AttributeDescription id{"id", T::Int64, Indexed::No};
    static const AttributeDescription name{"name", T::String, Indexed::No};
    const auto attributeEntity = [](const char* entityName, const char* inverse) {
        return EntityDescription{
            entityName, {id, name}, {{"ofDocument", "Document", C::ToMany, inverse, D::Nullify}}, {}};
    };
    static const Model kModel("Bench", 1,
                              {{"Document",
                                {id,
                                 {"uuid", T::Uuid, Indexed::Yes},
                                 {"title", T::String, Indexed::No},
                                 {"created", T::Date, Indexed::Yes},
                                 {"modified", T::Date, Indexed::No},
                                 {"added", T::Date, Indexed::Yes},
                                 {"archive_serial_number", T::Int64, Indexed::Yes},
                                 {"original_file_name", T::String, Indexed::No},
                                 {"user_can_change", T::Boolean, Indexed::No},
                                 {"thumbnail", T::Binary, Indexed::No}},
                                {{"content", "DocumentContent", C::ToOne, "ofDocument", D::Cascade},
                                 {"correspondent", "Correspondent", C::ToOne, "ofDocument", D::Nullify},
                                 {"document_type", "Type", C::ToOne, "ofDocument", D::Nullify},
                                 {"owner", "User", C::ToOne, "owned", D::Nullify},
                                 {"tags", "Tag", C::ToMany, "ofDocument", D::Nullify},
                                 {"viewers", "User", C::ToMany, "viewable", D::Nullify},
                                 {"editors", "User", C::ToMany, "editable", D::Nullify},
                                 {"values", "FieldValue", C::ToMany, "ofDocument", D::Cascade}},
                                {}},
                               {"DocumentContent",
                                {{"content", T::String, Indexed::No}},
                                {{"ofDocument", "Document", C::ToOne, "content", D::Nullify}},
                                {}},
                               attributeEntity("Correspondent", "correspondent"),
                               attributeEntity("Type", "document_type"),
                               attributeEntity("Tag", "tags"),
                               {"User",
                                {id, name},
                                {{"owned", "Document", C::ToMany, "owner", D::Nullify},
                                 {"viewable", "Document", C::ToMany, "viewers", D::Nullify},
                                 {"editable", "Document", C::ToMany, "editors", D::Nullify}},
                                {}},
                               {"Field", {id, name}, {{"values", "FieldValue", C::ToMany, "ofField", D::Nullify}}, {}},
                               {"FieldValue",
                                {{"value", T::Binary, Indexed::No}, {"value_as_string", T::String, Indexed::No}},
                                {{"ofDocument", "Document", C::ToOne, "values", D::Nullify},
                                 {"ofField", "Field", C::ToOne, "values", D::Nullify}},
                                {}}});
    return kModel;
}

/// Positions in the model above.
enum Doc : std::size_t { Id, Uid, Title, Created, Modified, Added, Serial, FileName, CanChange, Thumbnail };
enum DocRelation : std::size_t { ContentOf, CorrespondentOf, TypeOf, OwnerOf, Tags, Viewers, Editors, Values };

constexpr std::int64_t kAttributes = 50;

std::string textOf(std::size_t number) {
    std::string text;
    text.reserve(2600);
    while (text.size() < 2500)
        text += "Rechnung " + std::to_string(number * 7919 + text.size()) + " vom Konto der Gesellschaft. ";
    return text;
}

Timestamp timeOf(std::size_t number) {
    return Timestamp(std::chrono::seconds(1'600'000'000 + static_cast<std::int64_t>(number * 7919 % 100'000'000)));
}

void fillAttributes(ManagedObjectContext& context) {
    for (const char* entity : {"Correspondent", "Type", "Tag", "User", "Field"}) {
        for (std::int64_t i = 1; i <= kAttributes; ++i) {
            auto object = context.insert(entity);
            object->setValue(0, i);
            object->setValue(1, std::string(entity) + std::to_string(i));
        }
    }
    if (!context.save()) std::abort();
}

/// The id of the k-th thing a document has.
std::int64_t pick(std::size_t number, std::size_t k) {
    return static_cast<std::int64_t>((number * 31 + k * 17) % kAttributes) + 1;
}

/// One document as a merge writes it: look-ups, object, relations, save, fault.
void mergeDocument(ManagedObjectContext& context, std::size_t number) {
    const auto document = [&] {
        if (auto known = context.firstWithID("Document", static_cast<std::int64_t>(number))) return known;
        return context.insert("Document");
    };
    const auto correspondent = context.firstWithID("Correspondent", pick(number, 0));
    const auto type = context.firstWithID("Type", pick(number, 1));
    const auto owner = context.firstWithID("User", pick(number, 2));
    const std::vector<Ref<ManagedObject>> tags{context.firstWithID("Tag", pick(number, 3)),
                                               context.firstWithID("Tag", pick(number, 4)),
                                               context.firstWithID("Tag", pick(number, 5))};
    const std::vector<Ref<ManagedObject>> viewers{context.firstWithID("User", pick(number, 6))};
    const std::vector<Ref<ManagedObject>> editors{context.firstWithID("User", pick(number, 7))};
    const Ref<ManagedObject> fields[] = {context.firstWithID("Field", pick(number, 8)),
                                         context.firstWithID("Field", pick(number, 9))};
    const auto object = document();
    object->setValue(Id, static_cast<std::int64_t>(number));
    if (std::holds_alternative<std::monostate>(object->value(Uid))) object->setValue(Uid, Uuid::random());
    object->setToOne(CorrespondentOf, correspondent.get());
    object->setToOne(TypeOf, type.get());
    object->setValue(Title, "Document " + std::to_string(number));
    if (!object->toOneID(ContentOf).isValid()) {
        auto content = context.insert("DocumentContent");
        content->setValue(0, textOf(number));
        object->setToOne(ContentOf, content.get());
    }
    object->setToMany(Tags, tags);
    object->setToMany(Viewers, viewers);
    object->setToMany(Editors, editors);
    object->setValue(Created, timeOf(number));
    object->setValue(Modified, timeOf(number + 1));
    object->setValue(Added, timeOf(number + 2));
    object->setValue(Serial, static_cast<std::int64_t>(number));
    object->setValue(FileName, "document-" + std::to_string(number) + ".pdf");
    object->setToOne(OwnerOf, owner.get());
    object->setValue(CanChange, true);
    object->setValue(Thumbnail, Blob{std::string(200, 'x')});
    for (const auto& old : object->toMany(Values))
        context.remove(*old);
    for (const auto& field : fields) {
        auto value = context.insert("FieldValue");
        value->setToOne(1, field.get());
        value->setValue(0, Blob{"5.0"});
        value->setValue(1, std::string("5.0"));
        object->addToMany(Values, *value);
    }
    if (!context.save()) std::abort();
    context.refresh(*object, MergeChanges::No);
}

/// The same rows by prepared statements, a transaction for each document.
class Bare {
public:
    explicit Bare(const std::filesystem::path& file) {
        if (sqlite3_open_v2(file.c_str(), &m_handle, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr) != SQLITE_OK)
            std::abort();
        run("PRAGMA synchronous=NORMAL;PRAGMA foreign_keys=ON;PRAGMA cache_size=-4096;PRAGMA temp_store=MEMORY");
        sqlite3_wal_autocheckpoint(m_handle, 4'000);
    }
    ~Bare() {
        for (auto* statement : m_statements)
            sqlite3_finalize(statement);
        sqlite3_close(m_handle);
    }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    void check(bool succeeded) const {
        if (succeeded) return;
        std::fprintf(stderr, "%s\n", sqlite3_errmsg(m_handle));
        std::abort();
    }
    void run(const char* sql) { check(sqlite3_exec(m_handle, sql, nullptr, nullptr, nullptr) == SQLITE_OK); }
    sqlite3_stmt* prepare(const char* sql) {
        sqlite3_stmt* statement = nullptr;
        check(sqlite3_prepare_v3(m_handle, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) == SQLITE_OK);
        m_statements.push_back(statement);
        return statement;
    }
    static void step(sqlite3_stmt* statement) {
        if (sqlite3_step(statement) != SQLITE_DONE) std::abort();
        sqlite3_reset(statement);
    }
    void prepareInserts() {
        m_begin = prepare("BEGIN IMMEDIATE");
        m_commit = prepare("COMMIT");
        m_document =
            prepare("INSERT INTO Document(pk,version,id,uuid,title,created,modified,added,archive_serial_number,"
                    "original_file_name,user_can_change,thumbnail,content,correspondent,document_type,owner)"
                    " VALUES(?,1,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
        m_content = prepare("INSERT INTO DocumentContent(pk,version,content) VALUES(?,1,?)");
        m_value =
            prepare("INSERT INTO FieldValue(pk,version,value,value_as_string,ofDocument,ofField) VALUES(?,1,?,?,?,?)");
        m_tag = prepare("INSERT INTO lf_join_Document_tags VALUES(?,?)");
        m_viewer = prepare("INSERT INTO lf_join_Document_viewers VALUES(?,?)");
        m_editor = prepare("INSERT INTO lf_join_Document_editors VALUES(?,?)");
    }
    void insert(std::size_t number) {
        const auto row = static_cast<std::int64_t>(number);
        const std::string title = "Document " + std::to_string(number);
        const std::string text = textOf(number);
        const std::string fileName = "document-" + std::to_string(number) + ".pdf";
        const std::string thumbnail(200, 'x');
        const Uuid uuid = Uuid::random();
        step(m_begin);
        sqlite3_bind_int64(m_content, 1, row);
        sqlite3_bind_text(m_content, 2, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
        step(m_content);
        sqlite3_bind_int64(m_document, 1, row);
        sqlite3_bind_int64(m_document, 2, row);
        sqlite3_bind_blob(m_document, 3, uuid.bytes().data(), 16, SQLITE_STATIC);
        sqlite3_bind_text(m_document, 4, title.data(), static_cast<int>(title.size()), SQLITE_STATIC);
        for (int i = 0; i < 3; ++i)
            sqlite3_bind_int64(m_document, 5 + i,
                               timeOf(number + static_cast<std::size_t>(i)).time_since_epoch().count());
        sqlite3_bind_int64(m_document, 8, row);
        sqlite3_bind_text(m_document, 9, fileName.data(), static_cast<int>(fileName.size()), SQLITE_STATIC);
        sqlite3_bind_int64(m_document, 10, 1);
        sqlite3_bind_blob(m_document, 11, thumbnail.data(), static_cast<int>(thumbnail.size()), SQLITE_STATIC);
        sqlite3_bind_int64(m_document, 12, row);
        for (int i = 0; i < 3; ++i)
            sqlite3_bind_int64(m_document, 13 + i, pick(number, static_cast<std::size_t>(i)));
        step(m_document);
        const auto pair = [&](sqlite3_stmt* statement, std::int64_t member) {
            sqlite3_bind_int64(statement, 1, row);
            sqlite3_bind_int64(statement, 2, member);
            step(statement);
        };
        for (const std::size_t k : {3, 4, 5})
            pair(m_tag, pick(number, k));
        pair(m_viewer, pick(number, 6));
        pair(m_editor, pick(number, 7));
        for (const std::size_t k : {8, 9}) {
            sqlite3_bind_int64(m_value, 1, row * 2 + static_cast<std::int64_t>(k));
            sqlite3_bind_blob(m_value, 2, "5.0", 3, SQLITE_STATIC);
            sqlite3_bind_text(m_value, 3, "5.0", 3, SQLITE_STATIC);
            sqlite3_bind_int64(m_value, 4, row);
            sqlite3_bind_int64(m_value, 5, pick(number, k));
            step(m_value);
        }
        step(m_commit);
    }
    std::size_t readFirst(int count) {
        sqlite3_stmt* statement =
            prepare("SELECT pk,version,id,uuid,title,created,modified,added,archive_serial_number,"
                    "original_file_name,user_can_change,thumbnail,content,correspondent,"
                    "document_type,owner FROM Document ORDER BY created,pk LIMIT ?");
        sqlite3_bind_int(statement, 1, count);
        std::size_t bytes = 0;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            const std::string title(reinterpret_cast<const char*>(sqlite3_column_text(statement, 4)),
                                    static_cast<std::size_t>(sqlite3_column_bytes(statement, 4)));
            bytes += title.size() + static_cast<std::size_t>(sqlite3_column_int64(statement, 2) != 0);
        }
        return bytes;
    }

private:
    sqlite3* m_handle = nullptr;
    std::vector<sqlite3_stmt*> m_statements;
    sqlite3_stmt *m_begin{}, *m_commit{}, *m_document{}, *m_content{}, *m_value{}, *m_tag{}, *m_viewer{}, *m_editor{};
};

std::shared_ptr<PersistentContainer> openStore(const std::filesystem::path& file) {
    auto opened = PersistentContainer::open(model(), {.file = file, .vfs = {}},
                                            Logger(std::make_shared<MemoryLogSink>(), "StoreBench"));
    if (!opened) {
        std::fprintf(stderr, "%s\n", opened.error().message.c_str());
        std::abort();
    }
    return *opened;
}

double median(std::vector<double> values) {
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

void benchMerging(const std::filesystem::path& folder, std::size_t documents, Limits& limits) {
    for (const char* name : {"bare.sqlite", "engine.sqlite"}) {
        auto container = openStore(folder / name);
        auto context = container->newBackgroundContext();
        context->performAndWait([&] { fillAttributes(*context); });
    }
    Bare bare(folder / "bare.sqlite");
    bare.prepareInserts();
    auto container = openStore(folder / "engine.sqlite");
    auto context = container->newBackgroundContext();
    // In turns, so that the load of the machine falls on both.
    constexpr std::size_t kTurn = 500;
    double bareTime = 0;
    double engineTime = 0;
    double bareCpu = 0;
    double engineCpu = 0;
    std::size_t memoryAtStart = 0;
    for (std::size_t start = 1; start <= documents; start += kTurn) {
        const std::size_t end = std::min(start + kTurn, documents + 1);
        const double atStart = cpuMilliseconds();
        bareTime += milliseconds([&] {
            for (std::size_t number = start; number < end; ++number)
                bare.insert(number);
        });
        const double between = cpuMilliseconds();
        engineTime += milliseconds([&] {
            for (std::size_t number = start; number < end; ++number)
                context->performAndWait([&] { mergeDocument(*context, number); });
        });
        bareCpu += between - atStart;
        engineCpu += cpuMilliseconds() - between;
        if (start > documents / 2 && memoryAtStart == 0) memoryAtStart = residentKilobytes();
    }
    std::printf("merge of %zu documents, one save each: bare %.0f ms, engine %.0f ms\n", documents, bareTime,
                engineTime);
    limits.atMost("merge to bare statements", engineTime / bareTime, 2.0);
    std::printf("  processor time alone: bare %.1f us a document, engine %.1f us, ratio %.2f\n",
                bareCpu * 1000 / static_cast<double>(documents), engineCpu * 1000 / static_cast<double>(documents),
                engineCpu / bareCpu);
    std::printf("  memory %zu KB at half, %zu KB at the end\n", memoryAtStart, residentKilobytes());
    const auto written = container->rowsWritten();
    const double again = milliseconds([&] {
        for (std::size_t number = 1; number <= documents / 5; ++number)
            context->performAndWait([&] { mergeDocument(*context, number); });
    });
    std::printf("  the same again, only values rewritten: %.1f us a document, %.1f rows each\n",
                again * 1000 / (static_cast<double>(documents) / 5),
                static_cast<double>(container->rowsWritten() - written) / (static_cast<double>(documents) / 5));
}

void benchOpening(const std::filesystem::path& folder, std::size_t documents, Limits& limits) {
    const auto file = folder / "large.sqlite";
    {
        auto container = openStore(file);
        auto context = container->newBackgroundContext();
        context->performAndWait([&] { fillAttributes(*context); });
        Bare bare(file);
        bare.prepareInserts();
        for (std::size_t number = 1; number <= documents; ++number)
            bare.insert(number);
    }
    std::vector<double> bareTimes;
    std::vector<double> engineTimes;
    for (int i = 0; i < 31; ++i) {
        bareTimes.push_back(milliseconds([&] {
            Bare bare(file);
            if (bare.readFirst(50) == 0) std::abort();
        }));
        engineTimes.push_back(milliseconds([&] {
            auto container = openStore(file);
            auto context = container->viewContext();
            auto found = context->fetch({.entity = "Document", .predicate = {}, .sort = {{"created"}}, .limit = 50});
            std::size_t bytes = 0;
            for (const auto& object : *found)
                bytes += std::get<std::string>(object->value(Title)).size();
            if (bytes == 0) std::abort();
        }));
    }
    std::printf("opening %zu documents and reading the first 50 by date: bare %.3f ms, engine %.3f ms\n", documents,
                median(bareTimes), median(engineTimes));
    limits.atMost("opening to bare statements", median(engineTimes) / median(bareTimes), 1.5);
    auto container = openStore(file);
    std::printf("  all ids by date: %.1f ms\n", milliseconds([&] {
                    if (container->fetchIDs({.entity = "Document", .predicate = {}, .sort = {{"created"}}, .limit = {}})
                            ->size() != documents)
                        std::abort();
                }));
}

} // namespace

int main(int argc, char** argv) {
    const bool check = bench::takeCheck(argc, argv);
    Limits limits;
    const std::size_t merging = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 10'000;
    const std::size_t opening = argc > 2 ? std::strtoul(argv[2], nullptr, 10) : 100'000;
    std::string pattern = (std::filesystem::temp_directory_path() / "lf-bench-XXXXXX").string();
    const std::filesystem::path folder = ::mkdtemp(pattern.data());
    if (merging) benchMerging(folder, merging, limits);
    if (opening) benchOpening(folder, opening, limits);
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
    return limits.exitCode(check);
}
