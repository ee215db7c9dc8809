// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "records/JsonReader.h"
#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

namespace ledgerfinch {
namespace {

/// False when what was delivered is still missing here. A relation that leads somewhere stays: it may have been edited.
template <class T>
bool linkAgain(merge::Finder& finder, CD_Document& document, const JsonObject& delivered, std::string_view member,
               Ref<T> (CD_Document::*getter)() const, void (CD_Document::*setter)(const Ref<T>&)) {
    const auto id = delivered.integer(member);
    if (!id || (document.*getter)()) return true;
    const auto target = finder.find<T>(*id);
    if (target) (document.*setter)(target);
    return target != nullptr;
}

bool linkTagsAgain(merge::Finder& finder, CD_Document& document, const JsonObject& delivered) {
    const auto ids = delivered.integers("tags");
    if (!ids) return true;
    const auto tags = merge::resolve<CD_Tag>(finder, ids);
    for (const auto& tag : tags)
        document.addTagsObject(tag);
    return tags.size() == ids->size();
}

bool linkAgain(merge::Finder& finder, CD_Document& document) {
    const auto delivered = serverShadow(document);
    if (!delivered) return true;
    // Every relation gets its turn, also after one that is still missing.
    bool complete = linkAgain(finder, document, *delivered, "correspondent", &CD_Document::correspondent,
                              &CD_Document::setCorrespondent);
    complete &= linkAgain(finder, document, *delivered, "document_type", &CD_Document::document_type,
                          &CD_Document::setDocument_type);
    complete &= linkAgain(finder, document, *delivered, "storage_path", &CD_Document::storage_path,
                          &CD_Document::setStorage_path);
    complete &= linkTagsAgain(finder, document, *delivered);
    return complete;
}

} // namespace

std::size_t CoreDataHandler::resolveUnresolved(ContextRef context) {
    context = contextOrView(std::move(context));
    std::size_t resolved = 0;
    for (const auto& item : RepairList(*this).entries(RepairList::kUnresolved, context)) {
        if (item.kind != CD_Document::kEntityName) continue;
        context->performAndWait([&] {
            bool isWhole = true;
            Ref<CD_Document> document;
            const auto linked = merge::mergeRecord(*context, m_log, "Failed to save document %@", [&](auto& finder) {
                // A document that went takes the search for its relations along.
                isWhole = true;
                const auto documents = merge::deliveredDocuments(finder, item.id);
                document = documents.empty() ? nullptr : documents.front();
                if (document) isWhole = linkAgain(finder, *document);
                const auto entry = repair::find(*context, item.kind, item.id, RepairList::kUnresolved);
                if (isWhole && entry) context->remove(*entry);
                return document;
            });
            if (linked && isWhole && document) ++resolved;
            if (document) context->refresh(*document, MergeChanges::No);
        });
    }
    return resolved;
}

} // namespace ledgerfinch
