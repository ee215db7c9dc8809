// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/TestModel.h"

#include <unistd.h>

namespace ledgerfinch::testing {
namespace {

template <class T>
std::function<std::shared_ptr<ManagedObject>()> maker() {
    return [] {
        return std::make_shared<T>();
    };
}

RelationDescription toOne(std::string name, std::string target, std::string inverse,
                          DeleteRule rule = DeleteRule::Nullify) {
    return {std::move(name), std::move(target), Cardinality::ToOne, std::move(inverse), rule};
}

RelationDescription toMany(std::string name, std::string target, std::string inverse,
                           DeleteRule rule = DeleteRule::Nullify) {
    return {std::move(name), std::move(target), Cardinality::ToMany, std::move(inverse), rule};
}

const AttributeDescription kId{"id", AttributeType::Int64, Indexed::No};
const AttributeDescription kName{"name", AttributeType::String, Indexed::No};

} // namespace

std::vector<EntityDescription> archiveEntities() {
    using T = AttributeType;
    return {
        {"Paper",
         {kId,
          {"key", T::Uuid, Indexed::Yes},
          {"title", T::String, Indexed::No},
          {"created", T::Date, Indexed::Yes},
          {"serial", T::Int64, Indexed::No},
          {"flag", T::Boolean, Indexed::No},
          {"picture", T::Binary, Indexed::No}},
         {toOne("body", "PaperBody", "ofPaper", DeleteRule::Cascade), toOne("sender", "Sender", "papers"),
          toOne("owner", "Person", "owned"), toMany("tags", "Tag", "papers"),
          toMany("notes", "Note", "ofPaper", DeleteRule::Cascade), toMany("readers", "Person", "canRead"),
          toMany("related", "Paper", "relatedBy"), toMany("relatedBy", "Paper", "related")},
         maker<Paper>()},
        {"PaperBody", {{"text", T::String, Indexed::No}}, {toOne("ofPaper", "Paper", "body")}, maker<Body>()},
        {"Tag", {kId, kName}, {toMany("papers", "Paper", "tags")}, maker<Tag>()},
        {"Sender",
         {kId, kName},
         {toMany("papers", "Paper", "sender"), toMany("editors", "Person", "canEdit")},
         maker<Sender>()},
        {"Person",
         {kId, kName},
         {toMany("owned", "Paper", "owner"), toMany("canRead", "Paper", "readers"),
          toOne("canEdit", "Sender", "editors")},
         maker<Person>()},
        {"Note", {kId, {"text", T::String, Indexed::No}}, {toOne("ofPaper", "Paper", "notes")}, maker<Note>()},
    };
}

const Model& archiveModel() {
    static const Model kModel("Archive", 1, archiveEntities());
    return kModel;
}

const Model& laterArchiveModel() {
    static const Model kModel("Archive", 2, [] {
        auto entities = archiveEntities();
        entities[0].attributes.push_back({"pages", AttributeType::Int64, Indexed::Yes});
        entities[0].relations.push_back(toOne("shelf", "Shelf", "papers"));
        entities[0].relations.push_back(toMany("links", "Shelf", "linked"));
        entities.push_back({"Shelf",
                            {kId, kName},
                            {toMany("papers", "Paper", "shelf"), toMany("linked", "Paper", "links")},
                            maker<Named>()});
        return entities;
    }());
    return kModel;
}

std::vector<std::string>& Paper::hookLog() {
    static thread_local std::vector<std::string> log;
    return log;
}

namespace {
std::string stateOf(const ManagedObject& object) {
    std::string text;
    if (object.isInserted()) text += " inserted";
    if (object.isUpdated()) text += " updated";
    if (object.isDeleted()) text += " deleted";
    return text;
}
} // namespace

void Paper::willSave() {
    if (!titleAtSave.empty()) setTitle(titleAtSave);
    hookLog().push_back("will" + stateOf(*this));
}

void Paper::didSave() {
    hookLog().push_back("did" + stateOf(*this));
}

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "lf-objectstore-XXXXXX").string();
    path = ::mkdtemp(pattern.data());
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
}

void StoreTest::open() {
    auto opened = PersistentContainer::open(archiveModel(), {.file = folder.path / "archive.sqlite", .vfs = {}}, log);
    ASSERT_TRUE(opened) << opened.error().message;
    container = *opened;
    view = container->viewContext();
    view->setAutomaticallyMergesChangesFromParent(true);
    Paper::hookLog().clear();
}

void StoreTest::close() {
    view.reset();
    container.reset();
}

void StoreTest::TearDown() {
    if (container) expectOk(container->verify());
    close();
}

Ref<Paper> StoreTest::paper(ManagedObjectContext& context, std::int64_t id, const std::string& title) {
    auto object = context.insert<Paper>();
    object->setValue(Paper::Id, id);
    if (!title.empty()) object->setTitle(title);
    return object;
}

} // namespace ledgerfinch::testing
