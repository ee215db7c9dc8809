// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"
#include "platform/Result.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

/// A thin layer over the C interface of SQLite: ownership, cached statements, errors as values.
namespace ledgerfinch::sqlite {

/// A sentence and a StoreErrorCode for a result code of SQLite; `handle` may be null.
Error makeError(int resultCode, sqlite3* handle, std::string_view what);

/// A prepared statement. Values are always bound, never pasted. Texts and blobs are bound without a copy: they stay
/// alive until the statement is reset.
class Statement {
public:
    explicit Statement(sqlite3_stmt* handle) : m_handle(handle) {}
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    void bind(int position, std::int64_t number);
    void bind(int position, double number);
    void bindText(int position, std::string_view text);
    void bindBlob(int position, const void* bytes, std::size_t size);
    void bindNull(int position);

    /// SQLITE_ROW, SQLITE_DONE, or a failure.
    int step();
    void reset();
    [[nodiscard]] bool readsOnly() const;

    [[nodiscard]] bool isNull(int column) const;
    [[nodiscard]] std::int64_t integer(int column) const;
    [[nodiscard]] double real(int column) const;
    /// Valid until the next step or reset.
    [[nodiscard]] std::string_view text(int column) const;
    [[nodiscard]] std::string_view blob(int column) const;

private:
    sqlite3_stmt* m_handle;
};

/// One use of a cached statement: resets it when it goes, so that no read stays open.
class Use {
public:
    explicit Use(Statement* statement) : m_statement(statement) {}
    ~Use() {
        if (m_statement) m_statement->reset();
    }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
    explicit operator bool() const { return m_statement != nullptr; }
    Statement* operator->() const { return m_statement; }
    Statement& operator*() const { return *m_statement; }

private:
    Statement* m_statement;
};

enum class OpenMode {
    ReadOnly,
    Immutable, ///< read only, of a file that nobody writes: leaves nothing beside it and asks for nothing beside it
    ReadWrite,
    Create
};

/// One connection, used by one thread at a time.
class Database {
public:
    /// With the settings every connection of a store has. Doesn't touch the file's content.
    static Result<std::unique_ptr<Database>> open(const std::filesystem::path& file, const std::string& vfs,
                                                  OpenMode mode, Durability durability);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    [[nodiscard]] sqlite3* handle() const { return m_handle; }

    /// Runs a script without results; SQLITE_OK or the failure.
    int execute(const char* script);
    /// The statement of this text, prepared once (the least used ones are dropped). Null on failure.
    Statement* statement(std::string_view sql);
    /// The statement of a number that the caller gave out; the text is looked at on first use only. Null on failure.
    Statement* statement(std::size_t slot, const std::string& sql);
    /// Slots from this one on are whoever has the connection; the next one numbers them anew.
    void forgetSlotsFrom(std::size_t slot);

    [[nodiscard]] Error error(int resultCode, std::string_view what) const {
        return makeError(resultCode, m_handle, what);
    }
    /// The failure of the last call.
    [[nodiscard]] Error lastError(std::string_view what) const;
    [[nodiscard]] int lastCode() const;
    [[nodiscard]] std::int64_t changes() const;
    [[nodiscard]] std::int64_t totalChanges() const;
    void interrupt();

    /// A fingerprint of the last commit of any connection in any process, without a lock or a system call: the header
    /// of the WAL index in shared memory (https://www.sqlite.org/walformat.html, 2.1). Equal fingerprints mean that
    /// nothing was committed in between. False when there is no such index.
    struct Fingerprint {
        std::uint64_t words[6] = {};
        bool operator==(const Fingerprint&) const = default;
    };
    bool fingerprint(Fingerprint& result);

private:
    explicit Database(sqlite3* handle) : m_handle(handle) {}
    std::unique_ptr<Statement> prepare(std::string_view sql);

    struct TextHash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    struct Cached {
        std::unique_ptr<Statement> statement;
        std::uint64_t lastUse = 0;
    };

    sqlite3* m_handle;
    std::vector<std::unique_ptr<Statement>> m_slots;
    std::unordered_map<std::string, Cached, TextHash, std::equal_to<>> m_byText;
    std::uint64_t m_uses = 0;
    const volatile std::uint64_t* m_walIndex = nullptr;
};

/// A write transaction (BEGIN IMMEDIATE), rolled back unless committed.
class Transaction {
public:
    explicit Transaction(Database& database) : m_database(database) {}
    ~Transaction() { rollback(); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    int begin();
    /// On failure the transaction is still open; roll back.
    int commit();
    void rollback();

private:
    Database& m_database;
    bool m_open = false;
};

} // namespace ledgerfinch::sqlite
