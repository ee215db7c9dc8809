// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/Model.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch {

/// Text of a statement that each connection prepares once, under a number of its own.
struct SlotSql {
    std::string text;
    std::size_t slot = 0;
};

/// The statements about one relation. Every list of rows is in ascending order.
struct RelationSql {
    SlotSql members;          ///< rows at the other end of ?1; not for a Column
    SlotSql count;            ///< how many
    SlotSql addPair;          ///< join table: own ?1, other ?2
    SlotSql removePair;       ///< the same
    SlotSql hasPair;          ///< the same
    SlotSql releaseOthers;    ///< one-to-one Column: clears the column in every row but ?2 that holds ?1
    bool isFirstSide = false; ///< of a join table: the side that writes pairs
};

/// The statements about one entity. A row's columns are its attributes, then its to-one columns.
struct EntitySql {
    const Entity* entity = nullptr;
    std::vector<std::size_t> columnRelations;     ///< relations with a column, in column order
    std::vector<std::ptrdiff_t> columnOfRelation; ///< the column of a relation, or -1
    std::ptrdiff_t idAttribute = -1;              ///< the Int64 attribute "id"
    std::string columnList;                       ///< version and all columns, of the alias "t0"
    SlotSql load;                                 ///< version and columns of row ?1
    SlotSql insert;                               ///< row, columns
    SlotSql remove;
    SlotSql exists;
    SlotSql firstWithID;
    std::vector<RelationSql> relations;

    [[nodiscard]] std::size_t columnCount() const { return entity->attributes.size() + columnRelations.size(); }
    [[nodiscard]] const std::string& columnName(std::size_t column) const;
    /// Sets the columns given, in order, then row and version.
    [[nodiscard]] std::string update(const std::vector<std::size_t>& columns) const;
};

/// Everything about a model that is said in SQL, made once for each container.
class StoreSql {
public:
    explicit StoreSql(const Model& model);

    [[nodiscard]] const Model& model() const { return m_model; }
    [[nodiscard]] const EntitySql& operator[](std::size_t entity) const { return m_entities[entity]; }
    [[nodiscard]] std::size_t slotCount() const { return m_slotCount; }

private:
    SlotSql slot(std::string text) { return {std::move(text), m_slotCount++}; }

    const Model& m_model;
    std::vector<EntitySql> m_entities;
    std::size_t m_slotCount = 0;
};

/// A name as SQL takes it. Names of a model are safe by construction.
std::string sqlName(std::string_view name);

} // namespace ledgerfinch
