// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace ledgerfinch {

/// Unpacks a gzip or zlib stream (RFC 1952, RFC 1950) that comes in pieces. Qt would unpack by itself, but takes a
/// stream that breaks off for a whole one.
class Inflater {
public:
    enum class Status { Going, Broken, TooLarge };

    Inflater();
    ~Inflater();
    Inflater(const Inflater&) = delete;
    Inflater& operator=(const Inflater&) = delete;

    /// Appends what the piece unpacks to, as long as `output` stays within the limit.
    Status add(std::string_view piece, std::string& output, std::int64_t maximumBytes);
    /// True when the stream is at its end, or never began.
    [[nodiscard]] bool isComplete() const;

private:
    struct Private;
    std::unique_ptr<Private> m_d;
};

} // namespace ledgerfinch
