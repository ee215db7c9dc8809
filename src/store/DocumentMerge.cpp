// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/DocumentMerge.h"

#include "store/CustomFieldValues.h"
#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

#include <algorithm>

namespace ledgerfinch {
namespace merge {
namespace {

/// One relation of a record: what was asked for, and what of it is known here.
template <class T>
struct Link {
    Link(Finder& finder, const std::optional<std::int64_t>& id)
        : delivered(id.has_value()), object(id ? finder.find<T>(*id) : nullptr) {}

    [[nodiscard]] bool isUnresolved() const { return delivered && !object; }

    bool delivered = false;
    Ref<T> object;
};

/// A document's relations, resolved before anything is written.
struct Links {
    Links(Finder& finder, const Document& record)
        : correspondent(finder, record.correspondent), storagePath(finder, record.storage_path),
          documentType(finder, record.document_type), tags(resolve<CD_Tag>(finder, record.tags)),
          owner(finder, record.owner), access(resolveAccess(finder, record.permissions)),
          tagsMissing(record.tags && tags.size() < record.tags->size()) {}

    [[nodiscard]] bool isUnresolved() const {
        return correspondent.isUnresolved() || storagePath.isUnresolved() || documentType.isUnresolved() || tagsMissing;
    }

    Link<CD_Correspondent> correspondent;
    Link<CD_Storage_Path> storagePath;
    Link<CD_Document_Type> documentType;
    std::vector<Ref<CD_Tag>> tags;
    Link<CD_User> owner;
    Access access;
    bool tagsMissing = false;
};

class DocumentWriter {
public:
    DocumentWriter(Finder& finder, const Document& record, Authority authority, const Logger& log)
        : m_finder(finder), m_context(finder.context()), m_record(record), m_authority(authority),
          m_serverWins(authority == Authority::ServerWins), m_log(log) {}

    Ref<CD_Document> write() {
        const Links links(m_finder, m_record);
        const auto notes = resolveNotes();
        m_document = findDelivered();
        const bool isNew = !m_document;
        if (isNew) m_document = m_context.insert<CD_Document>();
        m_document->setId(m_record.id);
        // A document whose values can't be read has a uuid all the same.
        if (!m_document->uuid() && !failedToLoad(*m_document)) m_document->setUuid(Uuid::random());

        link(links.correspondent, &CD_Document::setCorrespondent, "correspondent");
        link(links.storagePath, &CD_Document::setStorage_path, "storage_path");
        link(links.documentType, &CD_Document::setDocument_type, "document_type");
        m_document->setTitle(m_record.title);
        writeContent();
        m_document->setTags(links.tags);
        m_document->setViewable_by_user(links.access.viewUsers);
        m_document->setViewable_by_group(links.access.viewGroups);
        m_document->setEditable_by_user(links.access.changeUsers);
        m_document->setEditable_by_group(links.access.changeGroups);
        writeNotes(notes);
        writePlainValues();
        link(links.owner, &CD_Document::setOwner, "owner");
        setIfPresent(*m_document, &CD_Document::setUser_can_change, m_record.user_can_change);
        writeFields();
        setServerShadow(*m_document, m_record.raw);
        noteRepairs(links, isNew);
        return m_document;
    }

private:
    /// The document that a server delivered under this id. One that was added here and happens to bear the id makes
    /// room: it keeps its file and all it has, and takes a new id.
    Ref<CD_Document> findDelivered() {
        auto first = m_finder.find<CD_Document>(m_record.id);
        if (!first || first->server_shadow()) return first;
        if (failedToLoad(*first)) return first;
        FetchRequest request;
        auto sameId = Predicate::parse("id = %d", {Value(m_record.id)});
        if (sameId) request.predicate = std::move(*sameId);
        const auto all = sameId ? m_context.fetch<CD_Document>(std::move(request)) : sameId.error();
        if (!all) {
            m_finder.fail(all.error());
            return first;
        }
        Ref<CD_Document> delivered;
        for (const auto& document : *all) {
            if (document->server_shadow())
                delivered = delivered ? delivered : document;
            else
                makeRoom(*document);
        }
        return delivered;
    }

    void makeRoom(CD_Document& local) {
        const auto id = freeDocumentId(m_context);
        if (id)
            local.setId(*id);
        else
            m_finder.fail(id.error());
    }

    bool failedToLoad(const CD_Document& document) {
        if (document.isInserted() || !document.isFault()) return false;
        m_finder.fail(Error{"The document couldn't be read"});
        return true;
    }

    /// The relation to fields only grows, unless the server has the last word.
    void writeFields() {
        const auto delivered = m_record.custom_fields.value_or(std::vector<Custom_Field_of_Document>{});
        const auto met = writeFieldValues(m_finder, *m_document, delivered, m_log);
        m_fieldsMissing = met.size() < delivered.size();
        if (m_serverWins && m_record.custom_fields) m_document->setCustom_fields(met);
    }

    /// What a server has not, a document loses only when the server has the last word.
    template <class T>
    void link(const Link<T>& target, void (CD_Document::*setter)(const Ref<T>&), std::string_view member) {
        if (target.object)
            (*m_document.*setter)(target.object);
        else if (m_serverWins && (target.delivered || deliveredAsNull(m_record.raw, member)))
            (*m_document.*setter)(nullptr);
    }

    void writeContent() {
        if (!m_record.content) return;
        if (!m_document->toOneID(CD_Document::relationIndex<"content">()).isValid()) {
            const auto content = m_context.insert<CD_Document_Content>();
            content->setContent(*m_record.content);
            m_document->setContent(content);
        } else if (m_serverWins) {
            if (const auto content = m_document->content()) content->setContent(*m_record.content);
        }
    }

    void writePlainValues() {
        writeDate(&CD_Document::setCreated, m_record.created, "created");
        writeDate(&CD_Document::setModified, m_record.modified, "modified");
        writeDate(&CD_Document::setAdded, m_record.added, "added");
        take(*m_document, &CD_Document::setArchive_serial_number, m_record.archive_serial_number, m_record,
             "archive_serial_number", m_authority);
        take(*m_document, &CD_Document::setOriginal_file_name, m_record.original_file_name, m_record,
             "original_file_name", m_authority);
    }

    void writeDate(void (CD_Document::*setter)(std::optional<Timestamp>), const std::optional<std::string>& text,
                   std::string_view member) {
        if (text)
            (*m_document.*setter)(parseServerDate(*text));
        else if (m_serverWins && deliveredAsNull(m_record.raw, member))
            (*m_document.*setter)(std::nullopt);
    }

    /// A note that is known here stays as it is, unless the server has the last word.
    std::vector<Ref<CD_Note>> resolveNotes() {
        std::vector<Ref<CD_Note>> notes;
        if (!m_record.notes) return notes;
        for (const auto& delivered : *m_record.notes) {
            auto note = m_finder.find<CD_Note>(delivered.id);
            if (!note || m_serverWins) {
                if (!note) note = m_context.insert<CD_Note>();
                note->setId(delivered.id);
                note->setNote(delivered.note);
                note->setCreated(delivered.created ? parseServerDate(*delivered.created) : std::nullopt);
                const auto author = delivered.user ? m_finder.find<CD_User>(*delivered.user) : nullptr;
                if (author || m_serverWins) note->setUser(author);
            }
            notes.push_back(std::move(note));
        }
        return notes;
    }

    /// Notes that are no longer among the delivered go with the relation: without a document nobody reads them.
    void writeNotes(const std::vector<Ref<CD_Note>>& notes) {
        const auto before = m_document->notes();
        m_document->setNotes(notes);
        for (const auto& note : before)
            if (std::find(notes.begin(), notes.end(), note) == notes.end()) m_context.remove(*note);
    }

    void noteRepairs(const Links& links, bool isNew) {
        const auto id = m_record.id;
        if (links.isUnresolved() || (links.owner.isUnresolved() && listCame<CD_User>(m_context)) ||
            (m_fieldsMissing && listCame<CD_Custom_Field>(m_context)))
            repair::put(m_context, CD_Document::kEntityName, id, RepairList::kUnresolved);
        else if (!isNew)
            repair::drop(m_context, CD_Document::kEntityName, id, RepairList::kUnresolved);
        if (m_serverWins) repair::drop(m_context, CD_Document::kEntityName, id, RepairList::kRefused);
    }

    Finder& m_finder;
    ManagedObjectContext& m_context;
    const Document& m_record;
    Authority m_authority;
    bool m_serverWins;
    const Logger& m_log;
    Ref<CD_Document> m_document;
    bool m_fieldsMissing = false;
};

} // namespace

Result<ObjectID> mergeDocument(ManagedObjectContext& context, const Document& record, Authority authority,
                               const Logger& log) {
    auto merged = mergeRecord(context, log, "Failed to save document %@",
                              [&](Finder& finder) { return DocumentWriter(finder, record, authority, log).write(); });
    // A fault again: thousands of documents pass through.
    if (merged)
        if (const auto document = context.object(*merged)) context.refresh(*document, MergeChanges::No);
    return merged;
}

} // namespace merge

MergeOutcome CoreDataHandler::saveDocuments(const std::vector<Document>& records, ContextRef context,
                                            Authority authority) {
    MergeOutcome outcome;
    merge::mergeEach(*this, contextOrView(std::move(context)), m_log, records, Delivery::Partial, outcome,
                     [&](ManagedObjectContext& entered, const Document& record) {
                         return merge::mergeDocument(entered, record, authority, m_log);
                     });
    return outcome;
}

ObjectID CoreDataHandler::saveDocument(const Document& record, ContextRef context, Authority authority) {
    return merge::mergeAndWait(contextOrView(std::move(context)), [&](ManagedObjectContext& entered) {
        return merge::mergeDocument(entered, record, authority, m_log);
    });
}

} // namespace ledgerfinch
