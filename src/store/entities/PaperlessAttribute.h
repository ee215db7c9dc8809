// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ledgerfinch {

/// What tags, correspondents, document types and storage paths have in common, so that one selector, menu or overlay
/// serves all four. Used inside the queue of the object's context.
class PaperlessAttribute {
public:
    virtual ~PaperlessAttribute() = default;
    [[nodiscard]] virtual std::int64_t attributeId() const = 0;
    /// The name, or a fallback of its kind for an object without one.
    [[nodiscard]] virtual std::string attributeName() const = 0;
    /// Hexadecimal; only tags have colours.
    [[nodiscard]] virtual std::optional<std::string> attributeColor() const = 0;
    [[nodiscard]] virtual std::optional<std::string> attributeTextColor() const = 0;
};

} // namespace ledgerfinch
