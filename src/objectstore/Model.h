// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Value.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

class ManagedObject;

enum class AttributeType { Int64, Boolean, String, Date, Binary, Uuid };
enum class Indexed { No, Yes };
enum class Cardinality { ToOne, ToMany };
/// What happens to the other side when an object is deleted.
enum class DeleteRule { Nullify, Cascade };

struct AttributeDescription {
    std::string name;
    AttributeType type = AttributeType::String;
    Indexed indexed = Indexed::No;
};

struct RelationDescription {
    std::string name;
    std::string target; ///< entity name
    Cardinality cardinality = Cardinality::ToOne;
    std::string inverse; ///< relation name on the target; every relation has one
    DeleteRule deleteRule = DeleteRule::Nullify;
};

struct EntityDescription {
    std::string name;
    std::vector<AttributeDescription> attributes;
    std::vector<RelationDescription> relations;
    /// Makes an empty object of the entity's class.
    std::function<std::shared_ptr<ManagedObject>()> make;
};

/// How a relation lies in the file, derived from both of its sides.
enum class RelationStorage {
    Column,        ///< to-one: a column of this entity's table
    InverseColumn, ///< to-many whose inverse is to-one: the inverse's column
    JoinTable      ///< many-to-many: a table of pairs; of a one-to-one pair, the alphabetically first side (entity,
                   ///< relation) has the column
};

/// One relation, resolved against its model.
struct Relation {
    RelationDescription description;
    std::size_t target = 0;  ///< index of the target entity in the model
    std::size_t inverse = 0; ///< index of the inverse among the target's relations
    RelationStorage storage = RelationStorage::Column;
    std::string table;        ///< of a join table
    std::string ownColumn;    ///< of a join table: the column that holds this side; of Column: the column
    std::string targetColumn; ///< of a join table: the other side; of InverseColumn: the column in the target's table
};

/// One entity, resolved. Property positions are those of the description.
struct Entity {
    std::string name;
    std::size_t index = 0;
    std::string table;
    std::vector<AttributeDescription> attributes;
    std::vector<Relation> relations;
    std::function<std::shared_ptr<ManagedObject>()> make;

    [[nodiscard]] std::optional<std::size_t> attribute(std::string_view attributeName) const;
    [[nodiscard]] std::optional<std::size_t> relation(std::string_view relationName) const;
};

/// The schema of a store, immutable, shared by everything that works on it. A description that contradicts itself (a
/// missing inverse, a wrong target, an unsafe name) is a programming fault and stops the program at construction.
class Model {
public:
    /// `version` grows with every change of the entities; a store of a higher version is refused.
    Model(std::string name, int version, std::vector<EntityDescription> entities);

    [[nodiscard]] const std::string& name() const { return m_name; }
    [[nodiscard]] int version() const { return m_version; }
    [[nodiscard]] const std::vector<Entity>& entities() const { return m_entities; }
    /// Stops the program for an unknown name.
    [[nodiscard]] const Entity& entity(std::string_view name) const;
    [[nodiscard]] const Entity* find(std::string_view name) const;
    /// Hash over everything that decides the form of the file.
    [[nodiscard]] std::uint64_t hash() const { return m_hash; }

private:
    std::string m_name;
    int m_version = 0;
    std::vector<Entity> m_entities;
    std::uint64_t m_hash = 0;
};

} // namespace ledgerfinch
