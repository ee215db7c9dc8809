// SPDX-License-Identifier: GPL-3.0-or-later
#include "objectstore/StoreSql.h"

namespace ledgerfinch {

std::string sqlName(std::string_view name) {
    std::string result = "\"";
    result.append(name);
    result += '"';
    return result;
}

const std::string& EntitySql::columnName(std::size_t column) const {
    const std::size_t attributes = entity->attributes.size();
    return column < attributes ? entity->attributes[column].name
                               : entity->relations[columnRelations[column - attributes]].ownColumn;
}

std::string EntitySql::update(const std::vector<std::size_t>& columns) const {
    std::string text = "UPDATE " + sqlName(entity->table) + " SET ";
    for (const std::size_t column : columns)
        text += sqlName(columnName(column)) + "=?,";
    return text + "version=version+1 WHERE pk=? AND version=?";
}

StoreSql::StoreSql(const Model& model) : m_model(model) {
    for (const Entity& entity : model.entities()) {
        EntitySql sql;
        sql.entity = &entity;
        sql.columnOfRelation.assign(entity.relations.size(), -1);
        for (std::size_t i = 0; i < entity.relations.size(); ++i) {
            if (entity.relations[i].storage != RelationStorage::Column) continue;
            sql.columnOfRelation[i] =
                static_cast<std::ptrdiff_t>(entity.attributes.size() + sql.columnRelations.size());
            sql.columnRelations.push_back(i);
        }
        if (const auto id = entity.attribute("id"); id && entity.attributes[*id].type == AttributeType::Int64)
            sql.idAttribute = static_cast<std::ptrdiff_t>(*id);

        const std::string table = sqlName(entity.table);
        std::string columns = "t0.version";
        std::string names = "pk,version";
        std::string marks = "?,1";
        for (std::size_t column = 0; column < sql.columnCount(); ++column) {
            const std::string name = sqlName(sql.columnName(column));
            columns += ",t0." + name;
            names += "," + name;
            marks += ",?";
        }
        sql.columnList = columns;
        sql.load = slot("SELECT " + columns + " FROM " + table + " t0 WHERE t0.pk=?");
        sql.insert = slot("INSERT INTO " + table + "(" + names + ") VALUES(" + marks + ")");
        sql.remove = slot("DELETE FROM " + table + " WHERE pk=?");
        sql.exists = slot("SELECT 1 FROM " + table + " WHERE pk=?");
        if (sql.idAttribute >= 0)
            sql.firstWithID = slot("SELECT pk FROM " + table + " WHERE \"id\"=? ORDER BY pk LIMIT 1");

        for (const Relation& relation : entity.relations) {
            RelationSql made;
            const std::string own = sqlName(relation.ownColumn);
            const std::string other = sqlName(relation.targetColumn);
            if (relation.storage == RelationStorage::InverseColumn) {
                const std::string target = sqlName(model.entities()[relation.target].table);
                made.members = slot("SELECT pk FROM " + target + " WHERE " + other + "=? ORDER BY pk");
                made.count = slot("SELECT count(*) FROM " + target + " WHERE " + other + "=?");
            } else if (relation.storage == RelationStorage::JoinTable) {
                const std::string join = sqlName(relation.table);
                const std::string pair = " WHERE " + own + "=? AND " + other + "=?";
                made.members = slot("SELECT " + other + " FROM " + join + " WHERE " + own + "=? ORDER BY " + other);
                made.count = slot("SELECT count(*) FROM " + join + " WHERE " + own + "=?");
                made.addPair = slot("INSERT OR IGNORE INTO " + join + "(" + own + "," + other + ") VALUES(?,?)");
                made.removePair = slot("DELETE FROM " + join + pair);
                made.hasPair = slot("SELECT 1 FROM " + join + pair);
                made.isFirstSide = relation.ownColumn == "source";
            } else {
                made.releaseOthers = slot("UPDATE " + table + " SET " + own + "=NULL,version=version+1 WHERE " + own +
                                          "=? AND pk<>? RETURNING pk");
            }
            sql.relations.push_back(std::move(made));
        }
        m_entities.push_back(std::move(sql));
    }
}

} // namespace ledgerfinch
