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
    Link(ManagedObjectContext& context, const std::optional<std::int64_t>& id)
        : delivered(id.has_value()), object(id ? context.firstWithID<T>(*id) : nullptr) {}

    [[nodiscard]] bool isUnresolved() const { return delivered && !object; }

    bool delivered = false;
    Ref<T> object;
};

/// A document's relations, resolved before anything is written.
struct Links {
    Links(ManagedObjectContext& context, const Document& record)
        : correspondent(context, record.correspondent), storagePath(context, record.storage_path),
          documentType(context, record.document_type), tags(resolve<CD_Tag>(context, record.tags)),
          owner(context, record.owner), access(resolveAccess(context, record.permissions)),
          tagsMissing(record.tags && tags.size() < record.tags->size()) {}

    /// Users that aren't known here don't count: an account without the right to list users never learns them.
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
    DocumentWriter(ManagedObjectContext& context, const Document& record, Authority authority, const Logger& log)
        : m_context(context), m_record(record), m_serverWins(authority == Authority::ServerWins), m_log(log) {}

    Ref<CD_Document> write() {
        const Links links(m_context, m_record);
        const auto notes = resolveNotes();
        m_document = m_context.firstWithID<CD_Document>(m_record.id);
        const bool isNew = !m_document;
        if (isNew) m_document = m_context.insert<CD_Document>();
        m_document->setId(m_record.id);
        if (!m_document->uuid()) m_document->setUuid(Uuid::random());

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
        writeFieldValues(m_context, *m_document,
                         m_record.custom_fields.value_or(std::vector<Custom_Field_of_Document>{}), m_log);
        setServerShadow(*m_document, m_record.raw);
        noteRepairs(links, isNew);
        return m_document;
    }

private:
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
        if (m_record.created) m_document->setCreated(parseServerDate(*m_record.created));
        if (m_record.modified) m_document->setModified(parseServerDate(*m_record.modified));
        if (m_record.added) m_document->setAdded(parseServerDate(*m_record.added));
        if (m_record.archive_serial_number)
            m_document->setArchive_serial_number(*m_record.archive_serial_number);
        else if (m_serverWins && deliveredAsNull(m_record.raw, "archive_serial_number"))
            m_document->setArchive_serial_number(0);
        setIfPresent(*m_document, &CD_Document::setOriginal_file_name, m_record.original_file_name);
    }

    /// A note that is known here stays as it is, unless the server has the last word.
    std::vector<Ref<CD_Note>> resolveNotes() {
        std::vector<Ref<CD_Note>> notes;
        if (!m_record.notes) return notes;
        for (const auto& delivered : *m_record.notes) {
            auto note = m_context.firstWithID<CD_Note>(delivered.id);
            if (!note || m_serverWins) {
                if (!note) note = m_context.insert<CD_Note>();
                note->setId(delivered.id);
                note->setNote(delivered.note);
                note->setCreated(delivered.created ? parseServerDate(*delivered.created) : std::nullopt);
                const auto author = delivered.user ? m_context.firstWithID<CD_User>(*delivered.user) : nullptr;
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
        if (links.isUnresolved())
            repair::put(m_context, CD_Document::kEntityName, id, RepairList::kUnresolved);
        else if (!isNew)
            repair::drop(m_context, CD_Document::kEntityName, id, RepairList::kUnresolved);
        if (m_serverWins) repair::drop(m_context, CD_Document::kEntityName, id, RepairList::kRefused);
    }

    ManagedObjectContext& m_context;
    const Document& m_record;
    bool m_serverWins;
    const Logger& m_log;
    Ref<CD_Document> m_document;
};

} // namespace

ObjectID mergeDocument(ManagedObjectContext& context, const Document& record, Authority authority, const Logger& log) {
    const auto document = DocumentWriter(context, record, authority, log).write();
    if (!save(context, log, "Failed to save document %@")) return {};
    context.refresh(*document, MergeChanges::No);
    return document->objectID();
}

} // namespace merge

MergeOutcome CoreDataHandler::saveDocuments(const std::vector<Document>& records, ContextRef context,
                                            Authority authority) {
    context = contextOrView(std::move(context));
    MergeOutcome outcome;
    merge::saveEach(records, Delivery::Partial, outcome,
                    [&](const Document& record) { return saveDocument(record, context, authority).isValid(); });
    return outcome;
}

ObjectID CoreDataHandler::saveDocument(const Document& record, ContextRef context, Authority authority) {
    context = contextOrView(std::move(context));
    ObjectID saved;
    context->performAndWait([&] { saved = merge::mergeDocument(*context, record, authority, m_log); });
    return saved;
}

} // namespace ledgerfinch
