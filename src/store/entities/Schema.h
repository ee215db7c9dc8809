// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "objectstore/ManagedObject.h"
#include "objectstore/Model.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace ledgerfinch {

/// What an entity class declares of itself, once: the store's model and the typed accessors both come from these
/// tables, and an accessor for a property that isn't in its table doesn't compile.
namespace schema {

struct Attribute {
    std::string_view name;
    AttributeType type = AttributeType::String;
    Indexed indexed = Indexed::No;
};

struct Relation {
    std::string_view name;
    std::string_view target;
    Cardinality cardinality = Cardinality::ToOne;
    std::string_view inverse;
    DeleteRule deleteRule = DeleteRule::Nullify;
};

constexpr Attribute integer(std::string_view name, Indexed indexed = Indexed::No) {
    return {name, AttributeType::Int64, indexed};
}
constexpr Attribute boolean(std::string_view name) {
    return {name, AttributeType::Boolean, Indexed::No};
}
constexpr Attribute text(std::string_view name) {
    return {name, AttributeType::String, Indexed::No};
}
constexpr Attribute date(std::string_view name, Indexed indexed = Indexed::No) {
    return {name, AttributeType::Date, indexed};
}
constexpr Attribute binary(std::string_view name) {
    return {name, AttributeType::Binary, Indexed::No};
}
constexpr Attribute uuid(std::string_view name, Indexed indexed = Indexed::No) {
    return {name, AttributeType::Uuid, indexed};
}
constexpr Relation toOne(std::string_view name, std::string_view target, std::string_view inverse,
                         DeleteRule rule = DeleteRule::Nullify) {
    return {name, target, Cardinality::ToOne, inverse, rule};
}
constexpr Relation toMany(std::string_view name, std::string_view target, std::string_view inverse,
                          DeleteRule rule = DeleteRule::Nullify) {
    return {name, target, Cardinality::ToMany, inverse, rule};
}

/// A property's name as a template argument.
template <std::size_t N>
struct Name {
    char characters[N]{};
    consteval Name(const char (&name)[N]) { std::copy_n(name, N, characters); }
    [[nodiscard]] constexpr std::string_view view() const { return {characters, N - 1}; }
};

/// The position of a name in a table; the size of the table when it isn't there.
constexpr std::size_t position(const auto& table, std::string_view name) {
    std::size_t index = 0;
    for (const auto& entry : table) {
        if (entry.name == name) return index;
        ++index;
    }
    return index;
}

/// The C++ type of an attribute: scalars are never absent, everything else may be.
template <AttributeType>
struct Native;
template <>
struct Native<AttributeType::Int64> {
    using Type = std::int64_t;
    using Stored = std::int64_t;
};
template <>
struct Native<AttributeType::Boolean> {
    using Type = bool;
    using Stored = bool;
};
template <>
struct Native<AttributeType::String> {
    using Type = std::optional<std::string>;
    using Stored = std::string;
};
template <>
struct Native<AttributeType::Date> {
    using Type = std::optional<Timestamp>;
    using Stored = Timestamp;
};
template <>
struct Native<AttributeType::Binary> {
    using Type = std::optional<std::string>;
    using Stored = Blob;
};
template <>
struct Native<AttributeType::Uuid> {
    using Type = std::optional<Uuid>;
    using Stored = Uuid;
};

} // namespace schema

/// The base of every entity class: reads and writes the properties of `Self`'s tables. As every managed object, used
/// only inside the queue of its context.
template <class Self>
class EntityObject : public ManagedObject {
public:
    /// Where the attribute or relation stands in the entity's description.
    template <schema::Name N>
    static consteval std::size_t attributeIndex() {
        constexpr std::size_t index = schema::position(Self::kAttributes, N.view());
        static_assert(index < Self::kAttributes.size(), "no such attribute");
        return index;
    }
    template <schema::Name N>
    static consteval std::size_t relationIndex() {
        constexpr std::size_t index = schema::position(Self::kRelations, N.view());
        static_assert(index < Self::kRelations.size(), "no such relation");
        return index;
    }

protected:
    template <schema::Name N>
    [[nodiscard]] auto get() const {
        constexpr std::size_t index = attributeIndex<N>();
        using Native = schema::Native<Self::kAttributes[index].type>;
        typename Native::Type result{};
        if (const auto* stored = std::get_if<typename Native::Stored>(&value(index))) {
            if constexpr (std::is_same_v<typename Native::Stored, Blob>)
                result = stored->bytes;
            else
                result = *stored;
        }
        return result;
    }

    template <schema::Name N, class Content>
    void set(Content content) {
        constexpr std::size_t index = attributeIndex<N>();
        constexpr AttributeType type = Self::kAttributes[index].type;
        static_assert(std::is_same_v<Content, typename schema::Native<type>::Type>, "the attribute has another type");
        if constexpr (type == AttributeType::Int64 || type == AttributeType::Boolean)
            setValue(index, Value(content));
        else if constexpr (type == AttributeType::Binary)
            setValue(index, content ? Value(Blob{std::move(*content)}) : Value());
        else
            setValue(index, content ? Value(std::move(*content)) : Value());
    }

    template <schema::Name N, class Target>
    [[nodiscard]] Ref<Target> one() const {
        return std::static_pointer_cast<Target>(toOne(checked<N, Target, Cardinality::ToOne>()));
    }
    template <schema::Name N, class Target>
    void setOne(const Ref<Target>& target) {
        setToOne(checked<N, Target, Cardinality::ToOne>(), target.get());
    }
    template <schema::Name N, class Target>
    [[nodiscard]] std::vector<Ref<Target>> many() const {
        std::vector<Ref<Target>> typed;
        auto members = toMany(checked<N, Target, Cardinality::ToMany>());
        typed.reserve(members.size());
        for (auto& member : members)
            typed.push_back(std::static_pointer_cast<Target>(std::move(member)));
        return typed;
    }
    template <schema::Name N, class Target>
    void setMany(const std::vector<Ref<Target>>& members) {
        const std::vector<Ref<ManagedObject>> untyped(members.begin(), members.end());
        setToMany(checked<N, Target, Cardinality::ToMany>(), untyped);
    }
    template <schema::Name N, class Target>
    void addTo(const Ref<Target>& member) {
        if (member) addToMany(checked<N, Target, Cardinality::ToMany>(), *member);
    }
    template <schema::Name N, class Target>
    void removeFrom(const Ref<Target>& member) {
        if (member) removeFromMany(checked<N, Target, Cardinality::ToMany>(), *member);
    }

private:
    template <schema::Name N, class Target, Cardinality C>
    static consteval std::size_t checked() {
        constexpr std::size_t index = relationIndex<N>();
        static_assert(Self::kRelations[index].target == Target::kEntityName, "the relation leads elsewhere");
        static_assert(Self::kRelations[index].cardinality == C, "the relation has the other cardinality");
        return index;
    }
};

} // namespace ledgerfinch
