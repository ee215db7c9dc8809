// SPDX-License-Identifier: GPL-3.0-or-later
#include "store/entities/Models.h"

#include "store/entities/Entities.h"

namespace ledgerfinch {
namespace {

template <class T>
EntityDescription describe(std::function<std::shared_ptr<ManagedObject>()> make = [] {
    return std::make_shared<T>();
}) {
    EntityDescription description;
    description.name = T::kEntityName;
    for (const auto& attribute : T::kAttributes)
        description.attributes.push_back({std::string(attribute.name), attribute.type, attribute.indexed});
    for (const auto& relation : T::kRelations)
        description.relations.push_back({std::string(relation.name), std::string(relation.target), relation.cardinality,
                                         std::string(relation.inverse), relation.deleteRule});
    description.make = std::move(make);
    return description;
}

// Grows with every change of the entities below.
constexpr int kLedgerfinchVersion = 1;
constexpr int kQueryVersion = 1;

} // namespace

std::unique_ptr<const Model> makeLedgerfinchModel(std::shared_ptr<DocumentSink> sink) {
    std::vector<EntityDescription> entities;
    entities.push_back(describe<CD_Document>([sink] { return std::make_shared<CD_Document>(sink.get()); }));
    entities.push_back(describe<CD_Document_Content>());
    entities.push_back(describe<CD_Note>());
    entities.push_back(describe<CD_Custom_Field>());
    entities.push_back(describe<CD_Custom_Field_Value>());
    entities.push_back(describe<CD_Tag>());
    entities.push_back(describe<CD_Correspondent>());
    entities.push_back(describe<CD_Document_Type>());
    entities.push_back(describe<CD_Storage_Path>());
    entities.push_back(describe<CD_Saved_View>());
    entities.push_back(describe<CD_Filter_Rule>());
    entities.push_back(describe<CD_User>());
    entities.push_back(describe<CD_Group>());
    entities.push_back(describe<CD_Permission>());
    entities.push_back(describe<RepairEntry>());
    return std::make_unique<const Model>("Ledgerfinch", kLedgerfinchVersion, std::move(entities));
}

const Model& ledgerfinchModel() {
    static const std::unique_ptr<const Model> model = makeLedgerfinchModel(nullptr);
    return *model;
}

const Model& queryModel() {
    static const Model model("Ledgerfinch-Queries", kQueryVersion,
                             {describe<CD_Custom_Query>(), describe<CD_Custom_Filter>()});
    return model;
}

} // namespace ledgerfinch
