// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/ChangeLog.h"

#include "objectstore/Inbox.h"

#include <algorithm>
#include <sqlite3.h>

namespace ledgerfinch {
namespace {

/// Entries kept; a process that stayed away for longer reads everything anew.
constexpr std::int64_t kKeptEntries = 2000;
constexpr std::int64_t kPruneEvery = 256;
constexpr std::size_t kMostChanges = 50'000;
constexpr char kEverything = 'E';
constexpr char kList = 'L';

void writeNumber(std::string& out, std::uint64_t number) {
    while (number >= 0x80) {
        out += static_cast<char>((number & 0x7f) | 0x80);
        number >>= 7;
    }
    out += static_cast<char>(number);
}

std::optional<std::uint64_t> readNumber(std::string_view& in) {
    std::uint64_t number = 0;
    for (int shift = 0; shift < 64; shift += 7) {
        if (in.empty()) return std::nullopt;
        const auto byte = static_cast<unsigned char>(in.front());
        in.remove_prefix(1);
        number |= std::uint64_t{byte & 0x7fU} << shift;
        if ((byte & 0x80) == 0) return number;
    }
    return std::nullopt;
}

/// Sorted ids, entity by entity, as differences.
void writeList(std::string& out, std::vector<ObjectID> ids, const std::vector<std::int64_t>& entityNumbers) {
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    std::size_t groups = 0;
    for (std::size_t i = 0; i < ids.size(); ++i)
        groups += i == 0 || ids[i].entity != ids[i - 1].entity;
    writeNumber(out, groups);
    for (std::size_t i = 0; i < ids.size();) {
        std::size_t end = i;
        while (end < ids.size() && ids[end].entity == ids[i].entity)
            ++end;
        writeNumber(out, static_cast<std::uint64_t>(entityNumbers[ids[i].entity]));
        writeNumber(out, end - i);
        std::uint64_t previous = 0;
        for (; i < end; ++i) {
            writeNumber(out, static_cast<std::uint64_t>(ids[i].row) - previous);
            previous = static_cast<std::uint64_t>(ids[i].row);
        }
    }
}

} // namespace

void append(ChangeSet& to, const ChangeSet& more) {
    if (to.everything) return;
    if (more.everything || to.inserted.size() + to.updated.size() + to.deleted.size() > kMostChanges) {
        to = ChangeSet{};
        to.everything = true;
        return;
    }
    to.inserted.insert(to.inserted.end(), more.inserted.begin(), more.inserted.end());
    to.updated.insert(to.updated.end(), more.updated.begin(), more.updated.end());
    to.deleted.insert(to.deleted.end(), more.deleted.begin(), more.deleted.end());
}

bool Inbox::push(const ChangeSet& changes) {
    const std::lock_guard guard(m_mutex);
    const bool wasEmpty = m_waiting.empty();
    append(m_waiting, changes);
    m_filled.store(true, std::memory_order_release);
    return wasEmpty;
}

ChangeSet Inbox::take() {
    const std::lock_guard guard(m_mutex);
    m_filled.store(false, std::memory_order_release);
    return std::exchange(m_waiting, ChangeSet{});
}

ChangeLog::ChangeLog(std::uint64_t store, std::int64_t writer, std::vector<std::int64_t> entityNumbers)
    : m_store(store), m_writer(writer), m_entityNumbers(std::move(entityNumbers)) {}

std::string ChangeLog::encode(const ChangeSet& changes) const {
    std::string bytes;
    if (changes.everything ||
        changes.inserted.size() + changes.updated.size() + changes.deleted.size() > kMostChanges) {
        bytes = kEverything;
        return bytes;
    }
    bytes += kList;
    writeList(bytes, changes.inserted, m_entityNumbers);
    writeList(bytes, changes.updated, m_entityNumbers);
    writeList(bytes, changes.deleted, m_entityNumbers);
    return bytes;
}

ChangeSet ChangeLog::decode(std::string_view bytes) const {
    ChangeSet everything;
    everything.everything = true;
    if (bytes.empty() || bytes.front() != kList) return everything;
    bytes.remove_prefix(1);
    ChangeSet changes;
    for (auto* list : {&changes.inserted, &changes.updated, &changes.deleted}) {
        const auto groups = readNumber(bytes);
        if (!groups) return everything;
        for (std::uint64_t group = 0; group < *groups; ++group) {
            const auto number = readNumber(bytes);
            const auto count = readNumber(bytes);
            if (!number || !count || *count > bytes.size()) return everything;
            const auto found =
                std::find(m_entityNumbers.begin(), m_entityNumbers.end(), static_cast<std::int64_t>(*number));
            std::uint64_t row = 0;
            for (std::uint64_t i = 0; i < *count; ++i) {
                const auto difference = readNumber(bytes);
                if (!difference) return everything;
                row += *difference;
                // An entity that this model doesn't have is nobody's here.
                if (found == m_entityNumbers.end()) continue;
                list->push_back({m_store, static_cast<std::uint32_t>(found - m_entityNumbers.begin()),
                                 static_cast<std::int64_t>(row)});
            }
        }
    }
    return changes;
}

int ChangeLog::write(sqlite::Database& database, const ChangeSet& changes) const {
    const std::string bytes = encode(changes);
    std::int64_t seq = 0;
    {
        sqlite::Use insert(database.statement("INSERT INTO lf_change(writer,changes) VALUES(?,?)"));
        if (!insert) return database.lastCode();
        insert->bind(1, m_writer);
        insert->bindBlob(2, bytes.data(), bytes.size());
        if (const int code = insert->step(); code != SQLITE_DONE) return code;
        seq = sqlite3_last_insert_rowid(database.handle());
    }
    if (seq % kPruneEvery != 0) return SQLITE_OK;
    sqlite::Use prune(database.statement("DELETE FROM lf_change WHERE seq<=?"));
    if (!prune) return database.lastCode();
    prune->bind(1, seq - kKeptEntries);
    const int code = prune->step();
    return code == SQLITE_DONE ? SQLITE_OK : code;
}

std::optional<ChangeLog::News> ChangeLog::readSince(sqlite::Database& database, std::int64_t seen) const {
    // Entries of our own come without their content; the entry seen last comes too, as a proof that there is no gap.
    sqlite::Use select(database.statement(
        "SELECT seq,CASE WHEN writer=? THEN NULL ELSE changes END FROM lf_change WHERE seq>=? ORDER BY seq"));
    if (!select) return std::nullopt;
    select->bind(1, m_writer);
    select->bind(2, seen);
    News news{{}, seen};
    bool isFirst = true;
    int code = SQLITE_ROW;
    while ((code = select->step()) == SQLITE_ROW) {
        const std::int64_t seq = select->integer(0);
        if (std::exchange(isFirst, false) && seq > seen + 1) news.changes.everything = true;
        if (seq > seen && !select->isNull(1)) append(news.changes, decode(select->blob(1)));
        news.last = seq;
    }
    if (code != SQLITE_DONE) return std::nullopt;
    return news;
}

} // namespace ledgerfinch
