// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/ConnectionFixture.h"

#include "connection/Status.h"
#include "connection/endpoints/Attributes.h"
#include "connection/endpoints/Documents.h"
#include "connection/endpoints/Notes.h"
#include "connection/endpoints/Removals.h"
#include "connection/endpoints/Writes.h"
#include "store/RepairList.h"
#include "store/ServerShadow.h"

#include <algorithm>
#include <clocale>
#include <utility>

namespace ledgerfinch::test {
namespace {

/// What a PATCH of the document may change besides what it says.
Json without(std::optional<Json> record, const std::vector<std::string>& keys) {
    Json rest = record.value_or(Json());
    for (const auto& key : keys)
        rest.erase(key);
    return rest;
}

/// What the server changes by itself along with a document's title: the files are named after it.
const std::vector<std::string> kFollowing{"title", "modified", "archived_file_name"};

class Writes : public ConnectionTest {
protected:
    void mirrorAs(const std::string& user) {
        handler = handlerFor(user);
        for (auto* fetch : {fetchGroups, fetchUsers, fetchTags, fetchDocumentTypes, fetchCorrespondents,
                            fetchStoragePaths, fetchCustomFields, fetchSavedViews, fetchAllDocuments})
            (void)fetch(*handler, options());
        server.clearRequests();
    }
    template <class T>
    Ref<T> object(std::int64_t id) {
        Ref<T> found;
        inStore([&](ManagedObjectContext& context) { found = context.firstWithID<T>(id); });
        EXPECT_TRUE(found) << T::kEntityName << " " << id;
        return found;
    }
    /// Changes, sends, saves on success; the status.
    template <class T>
    int edit(std::int64_t id, const std::function<void(T&)>& change,
             int (*update)(ApiHandler&, const std::shared_ptr<T>&)) {
        const auto entity = object<T>(id);
        if (!entity) return 0;
        inStore([&](ManagedObjectContext&) { change(*entity); });
        const int answered = update(*handler, entity);
        inStore([&](ManagedObjectContext& context) {
            if (answered != 200) context.rollback();
            EXPECT_TRUE(context.save().ok());
        });
        return answered;
    }
    int editDocument(std::int64_t id, const std::function<void(CD_Document&)>& change) {
        return edit<CD_Document>(id, change, updateDocument);
    }
    [[nodiscard]] std::vector<RepairItem> repairs() {
        return RepairList(*core).entries(RepairList::kRefused, core->backgroundContext());
    }
    /// Files are named after correspondents and types too.
    std::vector<Json> documentsBesideFileNames() {
        auto documents = server.documents();
        for (auto& document : documents)
            document.erase("archived_file_name");
        return documents;
    }
    Json bodyOf(std::string_view request) { return Json::parse(onlyRequest(request).request.body); }

    std::shared_ptr<ApiHandler> handler;
};

class FirstLaw : public Writes, public ::testing::WithParamInterface<std::string> {};

TEST_P(FirstLaw, EditingATitleChangesNothingElseOnTheServer) {
    server.seedFromRecordings();
    mirrorAs(GetParam());
    std::size_t accepted = 0;
    std::size_t refused = 0;
    for (const auto id : localIds<CD_Document>()) {
        const auto before = without(server.document(id), kFollowing);
        const int answered = editDocument(id, [](CD_Document& document) { document.setTitle("Edited"); });
        const auto after = server.document(id);
        ASSERT_EQ(without(after, kFollowing), before) << id << " answered " << answered;
        const bool renamed = after->at("title") == "Edited";
        ASSERT_EQ(renamed, answered == 200) << id << " " << answered;
        ++(answered == 200 ? accepted : refused);
    }
    EXPECT_EQ(repairs().size(), refused);
    const auto& user = GetParam();
    EXPECT_EQ(accepted > 100, user == "admin" || user == "alice") << accepted;
    EXPECT_EQ(accepted == 0, user == "carol" || user == "dora" || user == "bob") << accepted;
    EXPECT_EQ(refused == 0, user == "admin" || user == "carol" || user == "dora") << refused;
}

INSTANTIATE_TEST_SUITE_P(EveryUser, FirstLaw, ::testing::Values("admin", "alice", "bob", "carol", "dora"),
                         [](const auto& each) { return each.param; });

TEST_F(Writes, EditingANameChangesNothingElseOfAnyAttribute) {
    server.seedFromRecordings();
    mirrorAs("admin");
    const auto check = [this]<class T>(const std::string& table, int (*update)(ApiHandler&, const std::shared_ptr<T>&),
                                       const std::vector<std::string>& keys) {
        const auto documents = documentsBesideFileNames();
        const auto ids = localIds<T>();
        EXPECT_GT(ids.size(), 1U) << table;
        for (const auto id : ids) {
            const auto before = without(server.record(table, id), {"name", "slug"});
            server.clearRequests();
            EXPECT_EQ(edit<T>(
                          id, [](T& object) { object.setName(object.name().value_or("") + "x"); }, update),
                      200)
                << table << id;
            EXPECT_EQ(without(server.record(table, id), {"name", "slug"}), before) << table << id;
            const auto request = onlyRequest("PATCH /api/" + table + "/" + std::to_string(id) + "/").request;
            EXPECT_EQ(keysOf(request.body), keys) << table;
        }
        EXPECT_TRUE(documentsBesideFileNames() == documents) << table << " changed documents";
    };
    const std::vector<std::string> attribute{"name",           "match", "matching_algorithm",
                                             "is_insensitive", "owner", "set_permissions"};
    auto path = attribute;
    path.push_back("path");
    check(
        "tags", updateTag,
        {"name", "color", "match", "matching_algorithm", "is_insensitive", "is_inbox_tag", "owner", "set_permissions"});
    check("correspondents", updateCorrespondent, attribute);
    check("document_types", updateDocumentType, attribute);
    check("storage_paths", updateStoragePath, path);
    check("custom_fields", updateCustomField, {"name", "data_type", "extra_data"});
    check("saved_views", updateSavedView,
          {"name", "show_on_dashboard", "show_in_sidebar", "sort_field", "sort_reverse"});
    check("groups", updateGroup, {"name", "permissions"});
}

TEST_F(Writes, EditingAUsersNameChangesNothingElse) {
    server.seedFromRecordings();
    mirrorAs("admin");
    for (const auto id : localIds<CD_User>()) {
        const auto before = without(server.record("users", id), {"first_name"});
        server.clearRequests();
        EXPECT_EQ(edit<CD_User>(
                      id, [](CD_User& user) { user.setFirst_name("Changed"); }, updateUser),
                  200);
        EXPECT_EQ(without(server.record("users", id), {"first_name"}), before) << id;
        EXPECT_EQ(keysOf(onlyRequest("PATCH ").request.body),
                  (std::vector<std::string>{"username", "email", "first_name", "last_name", "is_staff", "is_active",
                                            "is_superuser", "groups", "inherited_permissions"}));
    }
}

class OneDocument : public Writes {
protected:
    void SetUp() override {
        server.clear();
        for (const auto* name : {"one", "two", "three"})
            server.add("tags", {{"name", name}});
        server.add("correspondents", {{"name", "Someone"}});
    }
    void add(const Json& fields) {
        Json record{{"title", "Paper"}, {"owner", 3}};
        record.update(fields.is_null() ? Json::object() : fields);
        id = server.addDocument(record);
        mirrorAs("admin");
    }
    std::int64_t id = 0;
};

TEST_F(OneDocument, TheBodyHasItsKeysInOrder) {
    add({{"archive_serial_number", nullptr}, {"created", "2024-03-01"}});
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle("New"); }), 200);
    const auto request = onlyRequest("PATCH ").request;
    EXPECT_EQ(request.target, "/api/documents/" + std::to_string(id) + "/");
    EXPECT_EQ(request.header("accept"), "application/json; version=2");
    EXPECT_EQ(request.header("content-type"), "application/json");
    EXPECT_EQ(keysOf(request.body),
              (std::vector<std::string>{"title", "correspondent", "document_type", "storage_path", "tags", "created",
                                        "archive_serial_number", "owner", "set_permissions", "custom_fields"}));
    const auto body = Json::parse(request.body);
    EXPECT_TRUE(body["archive_serial_number"].is_null());
    EXPECT_TRUE(body["correspondent"].is_null());
    EXPECT_EQ(body["set_permissions"].dump(), R"({"view":{"users":[],"groups":[]},"change":{"users":[],"groups":[]}})");
}

TEST_F(OneDocument, ASerialNumberOfZeroGoesAsNullUnlessTheServerHasIt) {
    add({{"archive_serial_number", 7}});
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setArchive_serial_number(0); }), 200);
    EXPECT_TRUE(bodyOf("PATCH ")["archive_serial_number"].is_null());
    EXPECT_TRUE(server.document(id)->at("archive_serial_number").is_null());
    // A number of its own on the server.
    server.editDocument(id, {{"archive_serial_number", 0}});
    mirrorAs("admin");
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle("New"); }), 200);
    EXPECT_EQ(server.document(id)->at("archive_serial_number"), 0);
}

TEST_F(OneDocument, TheChosenDayIsTheDayThatIsStored) {
    add({{"created", "2024-03-01"}});
    for (const auto* day : {"2024-02-29", "2024-07-01", "2024-03-31", "2024-10-27", "1890-06-01"}) {
        EXPECT_EQ(editDocument(id, [&](CD_Document& document) { document.setCreated(dates::parseDateOnly(day)); }),
                  200);
        EXPECT_EQ(server.document(id)->at("created_date"), day);
        EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle(*document.title() + "x"); }), 200);
        EXPECT_EQ(server.document(id)->at("created_date"), day) << "untouched";
    }
}

TEST_F(OneDocument, AnEditDoesNotUndoTheOneBefore) {
    add({{"correspondent", 1}, {"tags", {1}}});
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle("First"); }), 200);
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setCorrespondent(nullptr); }), 200);
    EXPECT_EQ(
        editDocument(
            id, [this](CD_Document& document) { document.addTagsObject(document.context()->firstWithID<CD_Tag>(2)); }),
        200);
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setOwner(nullptr); }), 200);
    const auto stored = *server.document(id);
    EXPECT_EQ(stored["title"], "First");
    EXPECT_TRUE(stored["correspondent"].is_null());
    EXPECT_EQ(stored["tags"].size(), 2U);
    EXPECT_TRUE(stored["owner"].is_null());
}

TEST_F(OneDocument, AWriteThatIsSavedFirstKeepsItsValuesForTheNextOne) {
    add({});
    const auto document = object<CD_Document>(id);
    std::vector<PreparedWrite> writes;
    inStore([&](ManagedObjectContext& context) {
        for (const auto& change : std::vector<std::function<void()>>{[&] { document->setTitle("Saved first"); },
                                                                     [&] {
                                                                         document->setArchive_serial_number(12);
                                                                     }}) {
            change();
            writes.push_back(prepareUpdate(*document));
            keepDelivered(*document, writes.back().delivered);
            ASSERT_TRUE(context.save().ok());
        }
    });
    for (const auto& write : writes)
        EXPECT_TRUE(send(*handler, write).accepted());
    EXPECT_EQ(server.document(id)->at("title"), "Saved first");
    EXPECT_EQ(server.document(id)->at("archive_serial_number"), 12);
}

TEST_F(OneDocument, ARelationClearedOnTheServerStaysCleared) {
    add({{"correspondent", 1}});
    server.editDocument(id, {{"correspondent", nullptr}});
    ASSERT_EQ(fetchDocument(*handler, id, core->backgroundContext()), 200);
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle("New"); }), 200);
    EXPECT_TRUE(server.document(id)->at("correspondent").is_null());
}

TEST_F(OneDocument, WhatThisDeviceDoesNotKnowStaysInEveryList) {
    add({{"tags", {1, 2}},
         {"permissions",
          {{"view", {{"users", {4, 5}}, {"groups", {1}}}}, {"change", {{"users", {5}}, {"groups", Json::array()}}}}}});
    // As for a user without the right to list users, and with a tag that came after the list.
    inStore([](ManagedObjectContext& context) {
        for (const auto user : {4, 5})
            context.remove(*context.firstWithID<CD_User>(user));
        context.remove(*context.firstWithID<CD_Tag>(2));
        ASSERT_TRUE(context.save().ok());
    });
    EXPECT_EQ(editDocument(id,
                           [](CD_Document& document) {
                               document.addTagsObject(document.context()->firstWithID<CD_Tag>(3));
                               document.setViewable_by_user({document.context()->firstWithID<CD_User>(6)});
                           }),
              200);
    const auto stored = *server.document(id);
    auto tags = stored["tags"].get<std::vector<int>>();
    std::sort(tags.begin(), tags.end());
    EXPECT_EQ(tags, (std::vector<int>{1, 2, 3}));
    auto viewers = stored["permissions"]["view"]["users"].get<std::vector<int>>();
    std::sort(viewers.begin(), viewers.end());
    EXPECT_EQ(viewers, (std::vector<int>{4, 5, 6}));
    EXPECT_EQ(stored["permissions"]["view"]["groups"], Json({1}));
    EXPECT_EQ(stored["permissions"]["change"]["users"], Json({5}));
}

TEST_F(OneDocument, PermissionsThatWereNeverDeliveredAreNotMadeUp) {
    add({});
    inStore([&](ManagedObjectContext& context) {
        const auto document = context.firstWithID<CD_Document>(id);
        auto shadow = *serverShadow(*document);
        shadow.remove("permissions");
        document->setServer_shadow(shadow.toText());
        ASSERT_TRUE(context.save().ok());
    });
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle("New"); }), 200);
    EXPECT_FALSE(bodyOf("PATCH ").contains("set_permissions"));
}

class CustomFields : public OneDocument {
protected:
    void SetUp() override {
        OneDocument::SetUp();
        for (const auto& [name, type] : std::vector<std::pair<std::string, std::string>>{{"text", "string"},
                                                                                         {"day", "date"},
                                                                                         {"flag", "boolean"},
                                                                                         {"number", "integer"},
                                                                                         {"fraction", "float"},
                                                                                         {"sum", "monetary"},
                                                                                         {"links", "documentlink"},
                                                                                         {"long", "longtext"}})
            fields[name] = server.add("custom_fields", {{"name", name}, {"data_type", type}});
        fields["choice"] = server.add(
            "custom_fields",
            {{"name", "choice"}, {"data_type", "select"}, {"extra_data", {{"select_options", {"a", "b", "c"}}}}});
    }
    [[nodiscard]] Json value(const std::string& name, const Json& content) {
        return {{"field", fields.at(name)}, {"value", content}};
    }
    [[nodiscard]] Json stored(const std::string& name) {
        const auto record = *server.document(id);
        for (const auto& each : record.at("custom_fields"))
            if (each["field"] == fields.at(name)) return each["value"];
        return "absent";
    }
    /// Replaces all value objects, as the editing screen does, after letting `change` alter what they hold.
    void replaceValues(CD_Document& document,
                       const std::function<void(const std::string& name, CD_Custom_Field_Value&)>& change) {
        std::vector<Ref<CD_Custom_Field_Value>> values;
        for (const auto& old : document.custom_field_values()) {
            auto fresh = document.context()->insert<CD_Custom_Field_Value>();
            fresh->setOfField(old->ofField());
            fresh->setValue(old->value());
            fresh->setValue_as_string(old->value_as_string());
            fresh->setCurrency(old->currency());
            change(old->ofField()->name().value_or(""), *fresh);
            values.push_back(std::move(fresh));
        }
        document.setCustom_field_values(values);
    }
    std::map<std::string, std::int64_t> fields;
};

TEST_F(CustomFields, OnlyTheValuesThatChangedAreSentAnew) {
    const auto other = server.addDocument({{"title", "Other"}});
    add({{"custom_fields",
          {value("text", "kept"), value("day", "2024-03-01"), value("number", 16777217), value("fraction", 0.1),
           value("sum", "EUR-12.50"), value("links", {other}), value("long", "line\nline"), value("choice", 2),
           value("flag", nullptr)}}});
    EXPECT_EQ(editDocument(id,
                           [this](CD_Document& document) {
                               replaceValues(document, [](const std::string& name, CD_Custom_Field_Value& fresh) {
                                   if (name == "text") fresh.setValue("\"changed\"");
                                   if (name == "flag") fresh.setValue("true");
                               });
                           }),
              200);
    EXPECT_EQ(stored("text"), "changed");
    EXPECT_EQ(stored("flag"), true);
    EXPECT_EQ(stored("number"), 16777217);
    EXPECT_EQ(stored("fraction"), 0.1);
    EXPECT_EQ(stored("sum"), "EUR-12.50");
    EXPECT_EQ(stored("day"), "2024-03-01");
    EXPECT_EQ(stored("links"), Json({other}));
    EXPECT_EQ(stored("long"), "line\nline");
    EXPECT_EQ(stored("choice"), 2);
}

TEST_F(CustomFields, EachKindIsSentInItsForm) {
    add({{"custom_fields",
          {value("day", "2024-03-01"), value("number", 1), value("fraction", 1.5), value("sum", "EUR1.00"),
           value("choice", 0), value("text", nullptr)}}});
    EXPECT_EQ(editDocument(id,
                           [this](CD_Document& document) {
                               replaceValues(document, [](const std::string& name, CD_Custom_Field_Value& fresh) {
                                   if (name == "day")
                                       fresh.setValue(std::to_string(
                                           dates::secondsSinceReferenceDate(*dates::parseDateOnly("2025-07-31"))));
                                   if (name == "number") fresh.setValue("-7");
                                   if (name == "fraction") fresh.setValue("2.25");
                                   if (name == "choice") fresh.setValue("1.0");
                                   if (name == "sum") {
                                       fresh.setValue("1234567.9");
                                       fresh.setValue_as_string("1234567.89");
                                       fresh.setCurrency("USD");
                                   }
                               });
                           }),
              200);
    EXPECT_EQ(stored("day"), "2025-07-31");
    EXPECT_EQ(stored("number"), -7);
    EXPECT_EQ(stored("fraction"), 2.25);
    EXPECT_EQ(stored("sum"), "USD1234567.89");
    EXPECT_EQ(stored("choice"), 1);
    EXPECT_TRUE(stored("text").is_null());
    const auto sent = bodyOf("PATCH ")["custom_fields"];
    EXPECT_EQ(sent[0].begin().key(), "field");
    for (const auto& each : sent)
        EXPECT_TRUE(each["field"] != fields.at("choice") || each["value"].is_number_integer());
}

TEST_F(CustomFields, AFieldTakenOutGoesAndAnUnknownOneStays) {
    add({{"custom_fields", {value("text", "out"), value("number", 3), value("day", "2024-03-01")}}});
    inStore([this](ManagedObjectContext& context) {
        // As if the field's definition had not reached this device.
        const auto unknown = context.firstWithID<CD_Custom_Field>(fields.at("number"));
        for (const auto& each : unknown->values())
            context.remove(*each);
        context.remove(*unknown);
        ASSERT_TRUE(context.save().ok());
    });
    EXPECT_EQ(editDocument(id,
                           [](CD_Document& document) {
                               std::vector<Ref<CD_Custom_Field_Value>> kept;
                               for (const auto& each : document.custom_field_values())
                                   if (each->ofField()->name() != "text") kept.push_back(each);
                               document.setCustom_field_values(kept);
                           }),
              200);
    EXPECT_EQ(stored("text"), "absent");
    EXPECT_EQ(stored("number"), 3);
    EXPECT_EQ(stored("day"), "2024-03-01");
}

TEST_F(CustomFields, OptionsKeepTheirDocumentsWhenRenamedAddedAndReordered) {
    add({{"custom_fields", {value("choice", 1)}}});
    std::vector<std::pair<std::string, std::string>> renamed{{"b", "renamed"}};
    const auto options = [&](const std::string& text) {
        const auto field = object<CD_Custom_Field>(fields.at("choice"));
        inStore([&](ManagedObjectContext&) { field->setExtra_data(text); });
        const int answered = updateCustomField(*handler, field, std::exchange(renamed, {}));
        inStore([](ManagedObjectContext& context) { EXPECT_TRUE(context.save().ok()); });
        return answered;
    };
    EXPECT_EQ(options(R"({"select_options":["a","renamed","c","new"]})"), 200);
    EXPECT_EQ(stored("choice"), 1);
    EXPECT_EQ(options(R"({"select_options":["new","renamed","a","c"]})"), 200);
    EXPECT_EQ(stored("choice"), 1);
    EXPECT_EQ(options(R"({"select_options":["renamed","new","a","c"]})"), 200);
    EXPECT_EQ(stored("choice"), 0);
    // Another option in the place of one that was removed is not that one.
    EXPECT_EQ(options(R"({"select_options":["other","new","a","c"]})"), 200);
    EXPECT_TRUE(stored("choice").is_null());
    // Where the ids can't be learnt nothing is sent.
    server.clearRequests();
    server.faults().onPath("GET /api/custom_fields/", Fault::answer(406));
    EXPECT_EQ(options(R"({"select_options":["x"]})"), 406);
    EXPECT_EQ(server.requestCount("PATCH "), 0U);
    EXPECT_EQ(repairs(), (std::vector<RepairItem>{{"CD_Custom_Field", fields.at("choice"), "refused"}}));
}

TEST_F(CustomFields, OptionsThatNobodyTouchedGoAsTheServerHasThem) {
    add({{"custom_fields", {value("choice", 1)}}});
    server.edit("custom_fields", fields.at("choice"), {{"extra_data", {{"select_options", {"a", "b", "c", "later"}}}}});
    const auto before = server.record("custom_fields", fields.at("choice"))->at("extra_data");
    const auto choice = stored("choice");
    EXPECT_EQ(edit<CD_Custom_Field>(
                  fields.at("choice"), [](CD_Custom_Field& field) { field.setName("Renamed"); }, updateCustomField),
              200);
    EXPECT_EQ(server.record("custom_fields", fields.at("choice"))->at("extra_data"), before);
    EXPECT_EQ(stored("choice"), choice);
}

TEST_F(CustomFields, ADifferenceThatThirtyTwoBitsDoNotHoldIsSent) {
    add({{"custom_fields", {value("number", 16777216), value("fraction", 16777216.0), value("sum", "EUR1234567.88")}}});
    EXPECT_EQ(editDocument(id,
                           [this](CD_Document& document) {
                               replaceValues(document, [](const std::string& name, CD_Custom_Field_Value& fresh) {
                                   if (name == "number" || name == "fraction") fresh.setValue("16777217");
                                   if (name == "sum") {
                                       fresh.setValue("1234567.89");
                                       fresh.setValue_as_string("1234567.89");
                                   }
                               });
                           }),
              200);
    EXPECT_EQ(stored("number"), 16777217);
    EXPECT_EQ(stored("fraction"), 16777217.0);
    EXPECT_EQ(stored("sum"), "EUR1234567.89");
}

TEST_F(CustomFields, TheSameNumberInOtherDigitsIsNoChange) {
    add({{"custom_fields", {value("fraction", 0.1), value("number", 16777217), value("sum", "EUR12.5")}}});
    EXPECT_EQ(editDocument(id,
                           [this](CD_Document& document) {
                               replaceValues(document, [](const std::string& name, CD_Custom_Field_Value& fresh) {
                                   if (name == "fraction") fresh.setValue("0.10000000149011612");
                                   if (name == "sum") fresh.setValue_as_string("12.50");
                               });
                           }),
              200);
    EXPECT_EQ(stored("fraction"), 0.1);
    EXPECT_EQ(stored("number"), 16777217);
    EXPECT_EQ(stored("sum"), "EUR12.5");
}

TEST_F(CustomFields, MoneyHasAPointInEveryLanguage) {
    add({{"custom_fields", {value("sum", "EUR1.00")}}});
    const std::string before = std::setlocale(LC_NUMERIC, nullptr);
    if (std::setlocale(LC_NUMERIC, "de_DE.UTF-8") == nullptr) GTEST_LOG_(INFO) << "de_DE isn't installed";
    EXPECT_EQ(editDocument(id,
                           [this](CD_Document& document) {
                               replaceValues(document, [](const std::string&, CD_Custom_Field_Value& fresh) {
                                   fresh.setValue("1234567.5");
                                   fresh.setValue_as_string("1.234.567,50");
                               });
                           }),
              200);
    std::setlocale(LC_NUMERIC, before.c_str());
    EXPECT_EQ(stored("sum"), "EUR1234567.50");
}

TEST_F(OneDocument, PermissionsThatWereNotDeliveredAreAskedForBeforeOneListIsChanged) {
    add({{"permissions",
          {{"view", {{"users", {4}}, {"groups", {1}}}}, {"change", {{"users", {5}}, {"groups", Json::array()}}}}}});
    const auto document = object<CD_Document>(id);
    const auto forget = [&] {
        inStore([&](ManagedObjectContext& context) {
            auto shadow = *serverShadow(*document);
            shadow.remove("permissions");
            document->setServer_shadow(shadow.toText());
            document->setViewable_by_user({});
            ASSERT_TRUE(context.save().ok());
        });
    };
    const auto addViewer = [](CD_Document& each) {
        each.setViewable_by_user({each.context()->firstWithID<CD_User>(6)});
    };
    forget();
    EXPECT_EQ(editDocument(id, addViewer), 200);
    const auto stored = server.document(id)->at("permissions");
    const auto sent = bodyOf("PATCH ")["set_permissions"];
    auto viewers = sent["view"]["users"].get<std::vector<int>>();
    std::sort(viewers.begin(), viewers.end());
    EXPECT_EQ(viewers, (std::vector<int>{4, 5, 6})) << "who may change may see";
    EXPECT_EQ(sent["view"]["groups"], Json({1}));
    EXPECT_EQ(sent["change"]["users"], Json({5}));

    forget();
    server.clearRequests();
    server.faults().onPath("GET /api/documents/", Fault::answer(200, R"({"id":)" + std::to_string(id) + "}"));
    EXPECT_EQ(editDocument(id, addViewer), status::kNotSent);
    EXPECT_EQ(server.requestCount("PATCH "), 0U);
    EXPECT_EQ(server.document(id)->at("permissions"), stored);
}

TEST_F(OneDocument, WhatIsNotTheServersIsNeverSentToIt) {
    add({});
    const auto document = object<CD_Document>(id);
    std::optional<std::string> shadow;
    inStore([&](ManagedObjectContext& context) {
        shadow = document->server_shadow();
        document->setServer_shadow(std::nullopt);
        ASSERT_TRUE(context.save().ok());
    });
    EXPECT_EQ(editDocument(id, [](CD_Document& each) { each.setTitle("Local"); }), status::kNotSent);
    inStore([&](ManagedObjectContext& context) {
        document->setServer_shadow(shadow);
        ASSERT_TRUE(context.save().ok());
    });
    // The server has a store, and it isn't this one.
    ASSERT_TRUE(registerInstance(*services.defaults, server.url()).ok());
    EXPECT_EQ(editDocument(id, [](CD_Document& each) { each.setTitle("Elsewhere"); }), status::kNotSent);
    EXPECT_EQ(server.requestCount("PATCH "), 0U);
    EXPECT_TRUE(repairs().empty());
}

TEST_F(OneDocument, AChangeIsOnTheRepairListWhileItIsOnItsWay) {
    add({{"tags", {1}}});
    std::vector<RepairItem> seen;
    Fault watching;
    watching.rewrite = [&](const std::string& body, const std::string&) {
        seen = repairs();
        return body;
    };
    for (const auto* method : {"PATCH ", "POST ", "DELETE "})
        server.faults().onPath(method, watching);
    const std::vector<RepairItem> document{{"CD_Document", id, "refused"}};
    EXPECT_EQ(editDocument(id, [](CD_Document& each) { each.setTitle("New"); }), 200);
    EXPECT_EQ(std::exchange(seen, {}), document);
    EXPECT_EQ(addNote(*handler, id, "text").status, 200);
    EXPECT_EQ(std::exchange(seen, {}), document);
    EXPECT_TRUE(repairs().empty());

    // An earlier doubt isn't settled by a later success.
    ASSERT_TRUE(RepairList(*core).add("CD_Document", id, RepairList::kRefused, core->backgroundContext()).ok());
    EXPECT_EQ(addNote(*handler, id, "text").status, 200);
    EXPECT_EQ(repairs(), document);
    // Nor by an answer that tells nothing.
    server.faults().onPath("GET ", Fault::answer(403), 1);
    EXPECT_EQ(runRepairs(*handler, options()), 200);
    EXPECT_EQ(repairs(), document);
    EXPECT_EQ(deleteTag(*handler, 1), 204);
    EXPECT_EQ(seen.size(), 2U);
    EXPECT_EQ(repairs(), document);
}

TEST_F(OneDocument, ARefusedEditStaysInTheFormAndIsFetchedAgain) {
    add({{"correspondent", 1}});
    const auto document = object<CD_Document>(id);
    for (const auto& fault : {Fault::answer(500), Fault::answer(403), Fault::dropConnection()}) {
        server.faults().clear();
        server.faults().onPath("PATCH ", fault);
        inStore([&](ManagedObjectContext&) { document->setTitle("Refused"); });
        const int answered = updateDocument(*handler, document);
        EXPECT_NE(answered, 200);
        EXPECT_EQ(repairs(), (std::vector<RepairItem>{{"CD_Document", id, "refused"}}));
        inStore([&](ManagedObjectContext& context) {
            EXPECT_EQ(document->title(), "Refused");
            EXPECT_TRUE(document->hasChanged("title"));
            context.rollback();
        });
    }
    EXPECT_TRUE(log->contains("Error updating document "));

    // Nobody answers yet: the entry stays. Then null counts as cleared.
    server.faults().onPath("GET ", Fault::dropConnection(), 1);
    EXPECT_EQ(runRepairs(*handler, options()), status::kNoAnswer);
    EXPECT_EQ(repairs().size(), 1U);
    server.editDocument(id, {{"correspondent", nullptr}, {"title", "The server's"}});
    EXPECT_EQ(runRepairs(*handler, options()), 200);
    EXPECT_TRUE(repairs().empty());
    inStore([&](ManagedObjectContext&) {
        EXPECT_EQ(document->title(), "The server's");
        EXPECT_FALSE(document->correspondent());
    });
}

TEST_F(OneDocument, AWriteThatArrivedUnheardIsFetchedAgain) {
    add({});
    server.faults().onPath("PATCH ", Fault::dropConnection(true), 1);
    EXPECT_EQ(editDocument(id, [](CD_Document& document) { document.setTitle("Arrived"); }), status::kNoAnswer);
    EXPECT_EQ(runRepairs(*handler, options()), 200);
    inStore(
        [this](ManagedObjectContext& context) { EXPECT_EQ(context.firstWithID<CD_Document>(id)->title(), "Arrived"); });
}

TEST_F(OneDocument, ARefusedRemovalOfATagBringsBackItsDocuments) {
    add({{"tags", {1, 2}}});
    server.faults().onPath("DELETE ", Fault::answer(403), 1);
    EXPECT_EQ(deleteTag(*handler, 1), 403);
    EXPECT_EQ(repairs(), (std::vector<RepairItem>{{"CD_Tag", 1, "refused"}, {"CD_Document", id, "refused"}}));
    inStore([](ManagedObjectContext& context) {
        context.remove(*context.firstWithID<CD_Tag>(1));
        ASSERT_TRUE(context.save().ok());
    });
    EXPECT_EQ(runRepairs(*handler, options()), 200);
    inStore(
        [this](ManagedObjectContext& context) { EXPECT_EQ(context.firstWithID<CD_Document>(id)->tags().size(), 2U); });
    EXPECT_EQ(deleteTag(*handler, 1), 204);
    EXPECT_TRUE(repairs().empty());
    EXPECT_EQ(deleteTag(*handler, 1), 404);
    EXPECT_TRUE(repairs().empty()) << "what is gone needs no repair";
    EXPECT_EQ(server.requests("DELETE ").front().request.header("accept").find("version"), std::string_view::npos);
}

TEST_F(OneDocument, ARemovalGoesToItsOwnPath) {
    add({});
    const std::vector<std::pair<std::string, int (*)(ApiHandler&, std::int64_t)>> removals{
        {"tags", deleteTag},
        {"correspondents", deleteCorrespondent},
        {"storage_paths", deleteStoragePath},
        {"custom_fields", deleteCustomField},
        {"saved_views", deleteSavedView},
        {"document_types", deleteDocumentType},
        {"documents", deleteDocument},
        {"users", deleteUser},
        {"groups", deleteGroup}};
    for (const auto& [table, remove] : removals) {
        const auto rule = server.faults().onPath("DELETE /api/" + table + "/5/$", Fault::answer(204));
        EXPECT_EQ(remove(*handler, 5), 204);
        EXPECT_EQ(server.faults().fired(rule), 1U) << table;
    }
}

} // namespace
} // namespace ledgerfinch::test
