// SPDX-License-Identifier: GPL-3.0-or-later
#include "sync/StoreDump.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace ledgerfinch::test {
namespace {

struct TextOfValue {
    std::string operator()(std::monostate) const { return "-"; }
    std::string operator()(std::int64_t number) const { return std::to_string(number); }
    std::string operator()(bool flag) const { return flag ? "true" : "false"; }
    std::string operator()(double number) const { return std::to_string(number); }
    std::string operator()(const std::string& text) const { return "'" + text + "'"; }
    std::string operator()(const Blob& blob) const { return "<" + blob.bytes + ">"; }
    std::string operator()(Timestamp time) const { return std::to_string(time.time_since_epoch().count()) + "us"; }
    std::string operator()(const Uuid&) const { return "uuid"; }
};

bool hasId(const Entity& entity) {
    return entity.attribute("id").has_value();
}

std::string attributesOf(const ManagedObject& object) {
    std::string text;
    const auto& attributes = object.entity().attributes;
    for (std::size_t index = 0; index < attributes.size(); ++index) {
        // Which delivery was the last one depends on the past.
        if (attributes[index].type == AttributeType::Uuid || attributes[index].name == "server_shadow") continue;
        text += " " + attributes[index].name + "=" + std::visit(TextOfValue{}, object.value(index));
    }
    return text;
}

std::string identityOf(const ManagedObject& object);

/// The members of one relation, in an order of their own. The other sides of relations from objects without ids are
/// left out, since those are written where they belong.
std::string relationOf(const ManagedObject& object, std::size_t index) {
    std::vector<std::string> members;
    for (const auto& member : object.entity().relations[index].description.cardinality == Cardinality::ToOne
                                  ? std::vector{object.toOne(index)}
                                  : object.toMany(index))
        if (member) members.push_back(identityOf(*member));
    std::sort(members.begin(), members.end());
    std::string text;
    for (const auto& member : members)
        text += " " + member;
    return text;
}

std::string identityOf(const ManagedObject& object) {
    if (hasId(object.entity())) return object.entity().name + "#" + std::visit(TextOfValue{}, object.value("id"));
    std::string text = "{" + object.entity().name + attributesOf(object);
    for (std::size_t index = 0; index < object.entity().relations.size(); ++index) {
        const auto& relation = object.entity().relations[index].description;
        // A custom field value's field; its document is where it is written.
        if (relation.name == "ofField") text += " ofField" + relationOf(object, index);
    }
    return text + "}";
}

} // namespace

StoreDump dumpStore(PersistentContainer& container) {
    StoreDump dump;
    const auto context = container.newBackgroundContext();
    context->performAndWait([&] {
        for (const Entity& entity : container.model().entities()) {
            if (!hasId(entity) || entity.name == "RepairEntry") continue; // bookkeeping
            FetchRequest request;
            request.entity = entity.name;
            auto objects = context->fetch(request);
            if (!objects) {
                dump["failure " + entity.name] = objects.error().message;
                continue;
            }
            for (const auto& object : *objects) {
                std::string text = attributesOf(*object);
                for (std::size_t index = 0; index < entity.relations.size(); ++index)
                    text += "\n  " + entity.relations[index].description.name + ":" + relationOf(*object, index);
                std::string key = entity.name + " " + std::visit(TextOfValue{}, object->value("id"));
                while (dump.contains(key))
                    key += " again";
                dump.emplace(std::move(key), std::move(text));
            }
        }
    });
    return dump;
}

std::string differences(const StoreDump& expected, const StoreDump& actual) {
    std::string text;
    int shown = 0;
    const auto show = [&](const std::string& line) {
        if (++shown <= 5) text += line + "\n";
    };
    for (const auto& [key, value] : expected) {
        const auto found = actual.find(key);
        if (found == actual.end())
            show("missing: " + key);
        else if (found->second != value)
            show(key + " differs:\n expected" + value + "\n actual" + found->second);
    }
    for (const auto& [key, value] : actual)
        if (!expected.contains(key)) show("surplus: " + key + value);
    if (shown > 5) text += "and " + std::to_string(shown - 5) + " more\n";
    return text;
}

} // namespace ledgerfinch::test
