// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/PersistentContainer.h"
#include "platform/LogSinks.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <string>
#include <vector>

/// A small archive with every kind of relation the engine knows.
namespace ledgerfinch::testing {

const Model& archiveModel();
/// The same model, one version later: a new entity, a new attribute, a new index and a new relation.
const Model& laterArchiveModel();
std::vector<EntityDescription> archiveEntities();

/// A paper. Hooks write down what they saw.
class Paper : public ManagedObject {
public:
    static constexpr std::string_view kEntityName = "Paper";
    enum Attribute : std::size_t { Id, Key, Title, Created, Serial, Flag, Picture };
    enum Relations : std::size_t { Body, Sender, Owner, Tags, Notes, Readers, Related, RelatedBy };

    std::string title() const {
        const auto* text = std::get_if<std::string>(&value(Title));
        return text ? *text : std::string();
    }
    void setTitle(std::string title) { setValue(Title, std::move(title)); }
    std::int64_t id() const { return std::get<std::int64_t>(value(Id)); }

    static std::vector<std::string>& hookLog();
    std::string titleAtSave; ///< when set, willSave writes it

protected:
    void willSave() override;
    void didSave() override;
};

class Named : public ManagedObject {
public:
    enum Attribute : std::size_t { Id, Name };
    std::string name() const {
        const auto* text = std::get_if<std::string>(&value(Name));
        return text ? *text : std::string();
    }
};
class Tag : public Named {
public:
    static constexpr std::string_view kEntityName = "Tag";
    enum Relations : std::size_t { Papers };
};
class Sender : public Named {
public:
    static constexpr std::string_view kEntityName = "Sender";
    enum Relations : std::size_t { Papers, Editors };
};
class Person : public Named {
public:
    static constexpr std::string_view kEntityName = "Person";
    enum Relations : std::size_t { Owned, CanRead, CanEdit };
};
/// One to one with the paper, whose table holds the column.
class Body : public ManagedObject {
public:
    static constexpr std::string_view kEntityName = "PaperBody";
    enum Attribute : std::size_t { Text };
    enum Relations : std::size_t { OfPaper };
};
class Note : public ManagedObject {
public:
    static constexpr std::string_view kEntityName = "Note";
    enum Attribute : std::size_t { Id, Text };
    enum Relations : std::size_t { OfPaper };
};

/// A folder of its own, removed at the end.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    std::filesystem::path path;
};

/// A store in a temporary folder. At the end of each test the file is whole.
class StoreTest : public ::testing::Test {
protected:
    void SetUp() override { open(); }
    void TearDown() override;

    void open();
    /// As if the program had ended.
    void close();
    Ref<Paper> paper(ManagedObjectContext& context, std::int64_t id, const std::string& title = {});
    template <class T>
    Ref<T> named(ManagedObjectContext& context, std::int64_t id, const std::string& name) {
        auto object = context.insert<T>();
        object->setValue(Named::Id, id);
        object->setValue(Named::Name, name);
        return object;
    }
    template <class T>
    std::vector<Ref<T>> all(ManagedObjectContext& context, const std::string& format = "TRUEPREDICATE",
                            std::vector<Value> arguments = {}, std::vector<SortDescriptor> sort = {}) {
        auto predicate = Predicate::parse(format, std::move(arguments));
        EXPECT_TRUE(predicate) << format << ": " << (predicate ? "" : predicate.error().message);
        if (!predicate) return {};
        auto found = context.fetch<T>({.entity = {}, .predicate = *predicate, .sort = std::move(sort), .limit = {}});
        EXPECT_TRUE(found) << (found ? "" : found.error().message);
        return found ? *found : std::vector<Ref<T>>{};
    }
    static void expectOk(const Result<void>& result) { EXPECT_TRUE(result) << (result ? "" : result.error().message); }

    TemporaryFolder folder;
    std::shared_ptr<MemoryLogSink> sink = std::make_shared<MemoryLogSink>();
    Logger log{sink, "StoreTest"};
    std::shared_ptr<PersistentContainer> container;
    std::shared_ptr<ManagedObjectContext> view;
};

} // namespace ledgerfinch::testing
