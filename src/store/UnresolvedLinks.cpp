// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "records/JsonReader.h"
#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

namespace ledgerfinch {
namespace {

/// True when the relation now is as delivered.
template <class T>
bool linkAgain(ManagedObjectContext& context, CD_Document& document, const JsonObject& delivered,
               std::string_view member, void (CD_Document::*setter)(const Ref<T>&)) {
    const auto id = delivered.integer(member);
    if (!id) return true;
    const auto target = context.firstWithID<T>(*id);
    if (target) (document.*setter)(target);
    return target != nullptr;
}

bool linkTagsAgain(ManagedObjectContext& context, CD_Document& document, const JsonObject& delivered) {
    const auto ids = delivered.integers("tags");
    if (!ids) return true;
    const auto tags = merge::resolve<CD_Tag>(context, ids);
    document.setTags(tags);
    return tags.size() == ids->size();
}

bool linkAgain(ManagedObjectContext& context, CD_Document& document) {
    const auto delivered = serverShadow(document);
    if (!delivered) return true;
    // Every relation gets its turn, also after one that is still missing.
    bool complete = linkAgain(context, document, *delivered, "correspondent", &CD_Document::setCorrespondent);
    complete &= linkAgain(context, document, *delivered, "document_type", &CD_Document::setDocument_type);
    complete &= linkAgain(context, document, *delivered, "storage_path", &CD_Document::setStorage_path);
    complete &= linkTagsAgain(context, document, *delivered);
    return complete;
}

} // namespace

std::size_t CoreDataHandler::resolveUnresolved(ContextRef context) {
    context = contextOrView(std::move(context));
    std::size_t resolved = 0;
    for (const auto& item : RepairList(*this).entries(RepairList::kUnresolved, context)) {
        if (item.kind != CD_Document::kEntityName) continue;
        context->performAndWait([&] {
            const auto document = context->firstWithID<CD_Document>(item.id);
            const bool complete = !document || linkAgain(*context, *document);
            if (complete) repair::drop(*context, item.kind, item.id, RepairList::kUnresolved);
            if (!merge::save(*context, m_log, "Failed to save document %@")) return;
            if (complete && document) ++resolved;
            if (document) context->refresh(*document, MergeChanges::No);
        });
    }
    return resolved;
}

} // namespace ledgerfinch
