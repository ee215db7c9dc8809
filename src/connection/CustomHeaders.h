// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Http.h"
#include "platform/Logger.h"
#include "platform/UserDefaults.h"
#include "platform/Uuid.h"

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ledgerfinch {

/// One header that a person wants sent with every request.
struct CustomHeader {
    std::string header; ///< the name
    std::string value;
    bool operator==(const CustomHeader&) const = default;
};

/// The headers of one server, in the order in which they were added.
struct CustomHeaders {
    std::vector<std::pair<Uuid, CustomHeader>> headers;
    bool operator==(const CustomHeaders&) const = default;
};

/// The custom headers of all servers: the setting "customHeaders", a JSON object from server address to an object whose
/// "headers" is a list of UUID text, object, UUID text, object.
struct AllCustomHeaders {
    static constexpr std::string_view kKey = "customHeaders";

    std::map<std::string, CustomHeaders> headers;
    /// Servers whose headers can't be read, as JSON text: kept as they are by whoever changes the others.
    std::map<std::string, std::string> unreadable = {};

    /// Absent when the text is no JSON object.
    [[nodiscard]] static std::optional<AllCustomHeaders> decode(std::string_view text);
    [[nodiscard]] std::string encode() const;
    /// Empty when the setting is absent or broken.
    [[nodiscard]] static AllCustomHeaders load(const UserDefaults& defaults);

    /// The headers under this address or, one slash at the end more or less, the same server. Null when there are none.
    [[nodiscard]] const CustomHeaders* find(std::string_view server) const;
};

/// Reads, changes and stores the setting, safe against other threads of this process. An entry that stands under the
/// same address with one slash more or less is dropped, so that what was set last is what is found.
Result<void> storeCustomHeaders(UserDefaults& defaults, std::string_view server, const CustomHeaders& headers);
Result<void> removeCustomHeaders(UserDefaults& defaults, std::string_view server);

/// Sets the custom headers of the server, each replacing an earlier one of its name. Names that are no header names
/// (RFC 9110 section 5.6.2) and values with control characters are passed over, and so is "Accept-Encoding": who sets
/// it unpacks the answer himself.
void applyCustomHeaders(const CustomHeaders& custom, HttpHeaders& headers, const Logger& log);

} // namespace ledgerfinch
