// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/Model.h"

#include "objectstore/ManagedObject.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <set>
#include <utility>

namespace ledgerfinch {
namespace {

[[noreturn]] void contradiction(const std::string& model, const std::string& what) {
    std::fprintf(stderr, "The description of model %s contradicts itself: %s\n", model.c_str(), what.c_str());
    std::abort();
}

/// Names become names of tables and columns, and words of the predicate language.
bool isSafeName(std::string_view name) {
    const auto isLetter = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    };
    const auto isDigit = [](char c) {
        return c >= '0' && c <= '9';
    };
    return !name.empty() && name.size() <= 100 && isLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char c) { return isLetter(c) || isDigit(c); });
}

std::string lowered(std::string_view name) {
    std::string result(name);
    for (char& c : result)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return result;
}

/// FNV-1a, 64 bit.
class Hasher {
public:
    void add(std::string_view text) {
        for (const char c : text)
            addByte(static_cast<unsigned char>(c));
        addByte(0xff); // a boundary that no name holds
    }
    void add(int number) { add(std::to_string(number)); }
    [[nodiscard]] std::uint64_t value() const { return m_value; }

private:
    void addByte(unsigned char byte) { m_value = (m_value ^ byte) * 0x100000001b3ULL; }
    std::uint64_t m_value = 0xcbf29ce484222325ULL;
};

void checkNames(const std::string& model, const EntityDescription& entity) {
    if (!isSafeName(entity.name) || lowered(entity.name).starts_with("lf_") ||
        lowered(entity.name).starts_with("sqlite_"))
        contradiction(model, "unsafe entity name \"" + entity.name + "\"");
    // Columns are told apart without case.
    std::set<std::string> taken{"pk", "version", "rowid", "oid", "_rowid_"};
    const auto check = [&](const std::string& name) {
        if (!isSafeName(name)) contradiction(model, "unsafe name \"" + name + "\" in " + entity.name);
        if (!taken.insert(lowered(name)).second) contradiction(model, "\"" + name + "\" is taken in " + entity.name);
    };
    for (const auto& attribute : entity.attributes)
        check(attribute.name);
    for (const auto& relation : entity.relations)
        check(relation.name);
}

void resolveStorage(const Entity& owner, Relation& relation, const Entity& target) {
    const RelationDescription& mine = relation.description;
    const RelationDescription& theirs = target.relations[relation.inverse].description;
    const bool isFirst = std::pair(owner.name, mine.name) < std::pair(target.name, theirs.name);
    const bool toOne = mine.cardinality == Cardinality::ToOne;
    const bool inverseToOne = theirs.cardinality == Cardinality::ToOne;
    if (!toOne && !inverseToOne) {
        relation.storage = RelationStorage::JoinTable;
        relation.table =
            isFirst ? "lf_join_" + owner.name + "_" + mine.name : "lf_join_" + target.name + "_" + theirs.name;
        relation.ownColumn = isFirst ? "source" : "target";
        relation.targetColumn = isFirst ? "target" : "source";
    } else if (toOne && (!inverseToOne || isFirst)) {
        relation.storage = RelationStorage::Column;
        relation.ownColumn = mine.name;
    } else {
        relation.storage = RelationStorage::InverseColumn;
        relation.targetColumn = theirs.name;
    }
}

} // namespace

std::optional<std::size_t> Entity::attribute(std::string_view attributeName) const {
    for (std::size_t i = 0; i < attributes.size(); ++i)
        if (attributes[i].name == attributeName) return i;
    return std::nullopt;
}

std::optional<std::size_t> Entity::relation(std::string_view relationName) const {
    for (std::size_t i = 0; i < relations.size(); ++i)
        if (relations[i].description.name == relationName) return i;
    return std::nullopt;
}

Model::Model(std::string name, int version, std::vector<EntityDescription> entities)
    : m_name(std::move(name)), m_version(version) {
    if (version < 1) contradiction(m_name, "versions begin with 1");
    std::set<std::string> names;
    for (auto& description : entities) {
        checkNames(m_name, description);
        if (!names.insert(lowered(description.name)).second)
            contradiction(m_name, "two entities are named " + description.name);
        Entity entity;
        entity.name = entity.table = description.name;
        entity.index = m_entities.size();
        entity.attributes = std::move(description.attributes);
        for (auto& relation : description.relations)
            entity.relations.emplace_back().description = std::move(relation);
        entity.make = description.make ? std::move(description.make) : [] {
            return std::make_shared<ManagedObject>();
        };
        m_entities.push_back(std::move(entity));
    }

    // First every target and inverse, then the storage, which looks at both sides.
    for (Entity& entity : m_entities) {
        for (std::size_t i = 0; i < entity.relations.size(); ++i) {
            Relation& relation = entity.relations[i];
            const std::string label = entity.name + "." + relation.description.name;
            const Entity* target = find(relation.description.target);
            if (!target) contradiction(m_name, label + " has no target entity");
            const auto inverse = target->relation(relation.description.inverse);
            if (!inverse) contradiction(m_name, label + " has no inverse");
            const RelationDescription& back = target->relations[*inverse].description;
            if (back.target != entity.name || back.inverse != relation.description.name)
                contradiction(m_name, label + " isn't the inverse of its inverse");
            if (target->index == entity.index && *inverse == i) contradiction(m_name, label + " is its own inverse");
            relation.target = target->index;
            relation.inverse = *inverse;
        }
    }
    for (Entity& entity : m_entities)
        for (Relation& relation : entity.relations)
            resolveStorage(entity, relation, m_entities[relation.target]);

    Hasher hasher;
    hasher.add(m_name);
    for (const Entity& entity : m_entities) {
        hasher.add(entity.name);
        for (const auto& attribute : entity.attributes) {
            hasher.add(attribute.name);
            hasher.add(static_cast<int>(attribute.type));
            hasher.add(static_cast<int>(attribute.indexed));
        }
        for (const auto& relation : entity.relations) {
            hasher.add(relation.description.name);
            hasher.add(relation.description.target);
            hasher.add(relation.description.inverse);
            hasher.add(static_cast<int>(relation.description.cardinality));
            hasher.add(static_cast<int>(relation.description.deleteRule));
        }
    }
    m_hash = hasher.value();
}

const Entity* Model::find(std::string_view name) const {
    for (const Entity& entity : m_entities)
        if (entity.name == name) return &entity;
    return nullptr;
}

const Entity& Model::entity(std::string_view name) const {
    const Entity* found = find(name);
    if (!found) contradiction(m_name, "no entity is named \"" + std::string(name) + "\"");
    return *found;
}

} // namespace ledgerfinch
