// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cassert>
#include <string>
#include <utility>
#include <variant>

namespace ledgerfinch {

/// Why something failed: a sentence for the log or the person, and a code whose meaning belongs to the module that made
/// it.
struct Error {
    std::string message;
    int code = 0;
};

/// A value or the reason why there is none.
template <class T>
class [[nodiscard]] Result {
public:
    Result(T value) : m_content(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : m_content(std::in_place_index<1>, std::move(error)) {}

    [[nodiscard]] bool ok() const { return m_content.index() == 0; }
    explicit operator bool() const { return ok(); }

    /// Only when ok().
    T& value() & {
        assert(ok());
        return std::get<0>(m_content);
    }
    const T& value() const& {
        assert(ok());
        return std::get<0>(m_content);
    }
    T&& value() && {
        assert(ok());
        return std::get<0>(std::move(m_content));
    }
    T& operator*() & { return value(); }
    const T& operator*() const& { return value(); }
    T* operator->() { return &value(); }
    const T* operator->() const { return &value(); }

    /// Only when not ok().
    [[nodiscard]] const Error& error() const {
        assert(!ok());
        return std::get<1>(m_content);
    }

private:
    std::variant<T, Error> m_content;
};

/// Success without a value, or the reason of the failure.
template <>
class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error) : m_error(std::move(error)), m_ok(false) {}

    [[nodiscard]] bool ok() const { return m_ok; }
    explicit operator bool() const { return m_ok; }
    [[nodiscard]] const Error& error() const {
        assert(!m_ok);
        return m_error;
    }

private:
    Error m_error;
    bool m_ok = true;
};

} // namespace ledgerfinch
