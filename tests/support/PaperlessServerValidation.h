// SPDX-License-Identifier: GPL-3.0-or-later
// Reads the fields of a body the way the real server's serialisers do, collecting their error texts per field.
#pragma once

#include "support/PaperlessServerWire.h"

#include <functional>

namespace ledgerfinch::support {

struct TextRule {
    bool required = false; ///< only asked for by POST and PUT
    bool mayBeBlank = true;
    std::size_t longest = 0; ///< in characters; 0: any
};

/// "Invalid pk "99999" - object does not exist."
std::string invalidKeyText(const Json& key);
/// Python's name of a JSON value's type: "str", "int".
std::string_view typeName(const Json& value);

class BodyReader {
public:
    /// `partial` (a PATCH) lets required fields be missing.
    BodyReader(const Json& body, bool partial) : m_body(body), m_partial(partial) {}

    /// The value of a key; null when it is missing.
    const Json* find(std::string_view key) const;
    bool has(std::string_view key) const { return find(key) != nullptr; }
    bool isPartial() const { return m_partial; }

    // Each sets its target and answers true when the key is there and its value good.
    bool text(std::string_view key, std::string& target, const TextRule& rule = {});
    bool optionalText(std::string_view key, std::optional<std::string>& target, std::size_t longest = 0);
    bool boolean(std::string_view key, bool& target, bool required = false);
    bool integer(std::string_view key, std::optional<std::int64_t>& target, std::int64_t least, std::int64_t most);
    bool choice(std::string_view key, std::int64_t& target, std::int64_t least, std::int64_t most);
    bool choice(std::string_view key, std::string& target, const std::vector<std::string_view>& choices,
                bool required = false);
    bool relation(std::string_view key, OptionalId& target, const std::function<bool(Id)>& exists,
                  bool required = false, bool nullable = true);
    bool relations(std::string_view key, std::vector<Id>& target, const std::function<bool(Id)>& exists,
                   bool required = false);
    bool time(std::string_view key, std::optional<Micros>& target);
    bool permissions(const State& state, ObjectPermissions& target);

    void fail(std::string_view key, std::string text);
    /// Like fail, for errors that aren't a single text.
    void failWith(std::string_view key, Json errors) { m_errors[std::string(key)] = std::move(errors); }
    bool failed() const { return !m_errors.empty(); }
    bool failed(std::string_view key) const { return m_errors.contains(std::string(key)); }
    Response errors() const { return jsonResponse(m_errors, 400); }

private:
    /// The value to read; reports a missing or null one.
    const Json* take(std::string_view key, bool required, bool nullable);

    const Json& m_body;
    bool m_partial;
    Json m_errors = Json::object();
};

/// The integer that a key of a relation means: a number or the text of one.
OptionalId keyNumber(const Json& value);

template <typename Table>
auto existsIn(const Table& table) {
    return [&table](Id id) {
        return table.contains(id);
    };
}

} // namespace ledgerfinch::support
