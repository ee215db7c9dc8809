// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/Database.h"

#include "objectstore/SqlFunctions.h"
#include "platform/Escaping.h"

#include <algorithm>
#include <cerrno>
#include <limits>
#include <sqlite3.h>

namespace ledgerfinch::sqlite {
namespace {

constexpr int kBusyMilliseconds = 10'000;
/// Statements kept by text; those of fixed slots come on top.
constexpr std::size_t kCachedStatements = 96;

StoreErrorCode codeOf(int resultCode) {
    switch (resultCode & 0xff) {
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
        return StoreErrorCode::Damaged;
    case SQLITE_FULL:
        return StoreErrorCode::Full;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
    case SQLITE_INTERRUPT:
        return StoreErrorCode::Busy;
    case SQLITE_READONLY:
        return StoreErrorCode::ReadOnly;
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_AUTH:
        return StoreErrorCode::Unreadable;
    default:
        return StoreErrorCode::Failed;
    }
}

std::string sentenceOf(StoreErrorCode code) {
    switch (code) {
    case StoreErrorCode::Damaged:
        return "The store is damaged.";
    case StoreErrorCode::Full:
        return "The disk is full.";
    case StoreErrorCode::Busy:
        return "The store is busy.";
    case StoreErrorCode::ReadOnly:
        return "The store can't be written to.";
    case StoreErrorCode::Unreadable:
        return "The store can't be opened.";
    default:
        return "The store failed.";
    }
}

/// https://www.sqlite.org/uri.html
std::string immutableName(const std::filesystem::path& file) {
    std::error_code ignored;
    return "file:" + escaping::percentEncode(std::filesystem::absolute(file, ignored).string(), "%?#") + "?immutable=1";
}

} // namespace

Error makeError(int resultCode, sqlite3* handle, std::string_view what) {
    StoreErrorCode code = codeOf(resultCode);
    // A full disk is told as such where a page can't be written, but not where the log or its index can't grow.
    const int cause = handle && (resultCode & 0xff) == SQLITE_IOERR ? sqlite3_system_errno(handle) : 0;
    if (cause == ENOSPC || cause == EDQUOT) code = StoreErrorCode::Full;
    std::string message = sentenceOf(code);
    message.append(" (").append(what).append(": ");
    message.append(handle ? sqlite3_errmsg(handle) : sqlite3_errstr(resultCode));
    message.append(", ").append(std::to_string(resultCode)).append(")");
    return Error{std::move(message), static_cast<int>(code)};
}

Statement::~Statement() {
    sqlite3_finalize(m_handle);
}

void Statement::bind(int position, std::int64_t number) {
    sqlite3_bind_int64(m_handle, position, number);
}
void Statement::bind(int position, double number) {
    sqlite3_bind_double(m_handle, position, number);
}
void Statement::bindText(int position, std::string_view text) {
    sqlite3_bind_text64(m_handle, position, text.data() ? text.data() : "", text.size(), SQLITE_STATIC, SQLITE_UTF8);
}
void Statement::bindBlob(int position, const void* bytes, std::size_t size) {
    // A null pointer would bind NULL instead of an empty blob.
    sqlite3_bind_blob64(m_handle, position, size ? bytes : "", size, SQLITE_STATIC);
}
void Statement::bindNull(int position) {
    sqlite3_bind_null(m_handle, position);
}

int Statement::step() {
    return sqlite3_step(m_handle);
}
void Statement::reset() {
    sqlite3_reset(m_handle);
}
bool Statement::readsOnly() const {
    return sqlite3_stmt_readonly(m_handle) != 0;
}

bool Statement::isNull(int column) const {
    return sqlite3_column_type(m_handle, column) == SQLITE_NULL;
}
std::int64_t Statement::integer(int column) const {
    return sqlite3_column_int64(m_handle, column);
}
double Statement::real(int column) const {
    return sqlite3_column_double(m_handle, column);
}

std::string_view Statement::text(int column) const {
    const unsigned char* bytes = sqlite3_column_text(m_handle, column);
    if (!bytes) return {};
    return {reinterpret_cast<const char*>(bytes), static_cast<std::size_t>(sqlite3_column_bytes(m_handle, column))};
}

std::string_view Statement::blob(int column) const {
    const void* bytes = sqlite3_column_blob(m_handle, column);
    if (!bytes) return {};
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(sqlite3_column_bytes(m_handle, column))};
}

Result<std::unique_ptr<Database>> Database::open(const std::filesystem::path& file, const std::string& vfs,
                                                 OpenMode mode, Durability durability) {
    int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    switch (mode) {
    case OpenMode::ReadOnly:
        flags |= SQLITE_OPEN_READONLY;
        break;
    case OpenMode::Immutable:
        flags |= SQLITE_OPEN_READONLY | SQLITE_OPEN_URI;
        break;
    case OpenMode::ReadWrite:
        flags |= SQLITE_OPEN_READWRITE;
        break;
    case OpenMode::Create:
        flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
        break;
    }
    sqlite3* handle = nullptr;
    const std::string name = mode == OpenMode::Immutable ? immutableName(file) : file.string();
    const int opened = sqlite3_open_v2(name.c_str(), &handle, flags, vfs.empty() ? nullptr : vfs.c_str());
    std::unique_ptr<Database> database(new Database(handle));
    if (opened != SQLITE_OK) return makeError(opened, handle, "opening " + file.filename().string());

    sqlite3_busy_timeout(handle, kBusyMilliseconds);
    // A file from elsewhere can't make functions of ours run by its schema.
    sqlite3_db_config(handle, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    sqlite3_db_config(handle, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
    if (mode == OpenMode::ReadOnly || mode == OpenMode::Immutable)
        sqlite3_db_config(handle, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    // 16 MB: nearly as quick as a longer log, and a small disk doesn't fill up with it.
    sqlite3_wal_autocheckpoint(handle, 4'000);

    std::string settings = "PRAGMA cache_size=-4096;PRAGMA temp_store=MEMORY;PRAGMA journal_size_limit=16777216;";
    settings += durability == Durability::Full ? "PRAGMA synchronous=FULL;" : "PRAGMA synchronous=NORMAL;";
    if (const int code = database->execute(settings.c_str()); code != SQLITE_OK)
        return makeError(code, handle, "opening " + file.filename().string());
    if (const int code = installFunctions(handle); code != SQLITE_OK)
        return makeError(code, handle, "opening " + file.filename().string());
    return database;
}

Database::~Database() {
    m_slots.clear();
    m_byText.clear();
    sqlite3_close_v2(m_handle);
}

int Database::execute(const char* script) {
    return sqlite3_exec(m_handle, script, nullptr, nullptr, nullptr);
}

std::unique_ptr<Statement> Database::prepare(std::string_view sql) {
    sqlite3_stmt* handle = nullptr;
    if (sql.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) return nullptr;
    const int code = sqlite3_prepare_v3(m_handle, sql.data(), static_cast<int>(sql.size()), SQLITE_PREPARE_PERSISTENT,
                                        &handle, nullptr);
    if (code != SQLITE_OK || !handle) return nullptr;
    return std::make_unique<Statement>(handle);
}

Statement* Database::statement(std::string_view sql) {
    if (const auto found = m_byText.find(sql); found != m_byText.end()) {
        found->second.lastUse = ++m_uses;
        return found->second.statement.get();
    }
    auto prepared = prepare(sql);
    if (!prepared) return nullptr;
    if (m_byText.size() >= kCachedStatements) {
        // The least used one may be in the middle of a read by a caller further up; with this many it never is.
        const auto oldest = std::min_element(m_byText.begin(), m_byText.end(), [](const auto& a, const auto& b) {
            return a.second.lastUse < b.second.lastUse;
        });
        m_byText.erase(oldest);
    }
    Statement* result = prepared.get();
    m_byText.emplace(std::string(sql), Cached{std::move(prepared), ++m_uses});
    return result;
}

Statement* Database::statement(std::size_t slot, const std::string& sql) {
    if (slot < m_slots.size() && m_slots[slot]) return m_slots[slot].get();
    if (slot >= m_slots.size()) m_slots.resize(slot + 1);
    m_slots[slot] = prepare(sql);
    return m_slots[slot].get();
}

void Database::forgetSlotsFrom(std::size_t slot) {
    if (slot < m_slots.size()) m_slots.resize(slot);
}

Error Database::lastError(std::string_view what) const {
    return makeError(lastCode(), m_handle, what);
}
int Database::lastCode() const {
    return sqlite3_extended_errcode(m_handle);
}
std::int64_t Database::changes() const {
    return sqlite3_changes64(m_handle);
}
std::int64_t Database::totalChanges() const {
    return sqlite3_total_changes64(m_handle);
}
void Database::interrupt() {
    sqlite3_interrupt(m_handle);
}

bool Database::fingerprint(Fingerprint& result) {
    if (!m_walIndex) {
        sqlite3_file* file = nullptr;
        if (sqlite3_file_control(m_handle, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK || !file)
            return false;
        if (!file->pMethods || file->pMethods->iVersion < 2 || !file->pMethods->xShmMap) return false;
        // Region 0, 32 KB, not extended when it isn't there yet. The map lives as long as the connection.
        volatile void* region = nullptr;
        if (sqlite3_get_autocommit(m_handle) == 0) return false;
        if (file->pMethods->xShmMap(file, 0, 32 * 1024, 0, &region) != SQLITE_OK || !region) return false;
        m_walIndex = static_cast<const volatile std::uint64_t*>(region);
    }
    for (std::size_t i = 0; i < 6; ++i)
        result.words[i] = m_walIndex[i];
    return true;
}

int Transaction::begin() {
    Use begin(m_database.statement("BEGIN IMMEDIATE"));
    if (!begin) return m_database.lastCode();
    const int code = begin->step();
    m_open = code == SQLITE_DONE;
    return m_open ? SQLITE_OK : code;
}

int Transaction::commit() {
    Use commit(m_database.statement("COMMIT"));
    if (!commit) return m_database.lastCode();
    const int code = commit->step();
    if (code != SQLITE_DONE) return code;
    m_open = false;
    return SQLITE_OK;
}

void Transaction::rollback() {
    if (!m_open) return;
    m_open = false;
    // Some failures have rolled back already.
    if (sqlite3_get_autocommit(m_database.handle()) == 0) m_database.execute("ROLLBACK");
}

} // namespace ledgerfinch::sqlite
