// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/CoreDataHandler.h"

#include "records/Decoders.h"
#include "records/JsonReader.h"
#include "store/CustomFieldValues.h"
#include "store/MergeSupport.h"
#include "store/ServerShadow.h"

#include <algorithm>

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

/// The values of all fields are written anew when one of them wasn't known before.
bool linkFieldsAgain(merge::Finder& finder, CD_Document& document, const JsonObject& delivered, const Logger& log) {
    const auto raw = delivered.raw("custom_fields");
    if (!raw) return true;
    const auto record =
        decodeDocument(R"({"id":0,"title":"","custom_fields":)" + std::string(*raw) + "}", DecodeContext{});
    if (!record || !record->custom_fields) return true;
    const auto present = document.custom_fields();
    std::size_t known = 0;
    bool isNew = false;
    for (const auto& entry : *record->custom_fields) {
        const auto field = finder.find<CD_Custom_Field>(entry.field);
        if (!field) continue;
        ++known;
        isNew |= std::find(present.begin(), present.end(), field) == present.end();
    }
    if (isNew) writeFieldValues(finder, document, *record->custom_fields, log);
    return known == record->custom_fields->size();
}

bool linkAgain(merge::Finder& finder, CD_Document& document, const Logger& log) {
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
    auto& context = finder.context();
    complete &= linkAgain(finder, document, *delivered, "owner", &CD_Document::owner, &CD_Document::setOwner) ||
                !merge::listCame<CD_User>(context);
    complete &= linkFieldsAgain(finder, document, *delivered, log) || !merge::listCame<CD_Custom_Field>(context);
    return complete;
}

} // namespace

std::size_t CoreDataHandler::resolveUnresolved(ContextRef context) {
    context = contextOrView(std::move(context));
    std::size_t resolved = 0;
    for (const auto& item : RepairList(*this).entries(RepairList::kUnresolved, context)) {
        if (item.kind != CD_Document::kEntityName) continue;
        std::optional<Error> failure;
        context->performAndWait([&] {
            bool isWhole = true;
            Ref<CD_Document> document;
            const auto linked = merge::mergeRecord(*context, m_log, "Failed to save document %@", [&](auto& finder) {
                // A document that went takes the search for its relations along.
                isWhole = true;
                const auto documents = merge::deliveredDocuments(finder, item.id);
                document = documents.empty() ? nullptr : documents.front();
                if (document) isWhole = linkAgain(finder, *document, m_log);
                if (isWhole) repair::drop(finder.context(), item.kind, item.id, RepairList::kUnresolved);
                return document;
            });
            if (!linked)
                failure = linked.error();
            else if (isWhole && document)
                ++resolved;
            if (document) context->refresh(*document, MergeChanges::No);
        });
        if (!failure || !merge::endsTheList(*failure)) continue;
        m_writeFailure.note(*failure);
        break;
    }
    return resolved;
}

} // namespace ledgerfinch
