// SPDX-License-Identifier: GPL-3.0-or-later
// What is looked at before an endpoint sees a request: the version in the Accept header, the login.
#pragma once

#include "support/PaperlessServerWire.h"

namespace ledgerfinch::support {

/// Whether the Accept header takes JSON, and the version that it asks for.
struct Negotiated {
    bool acceptable = true;
    int version = 0; ///< 0: refused
    bool wantsHtml = false;
};

Negotiated negotiate(const Request& request, const Release& release);

struct Login {
    const User* user = nullptr;
    std::string_view error;
    std::string_view challenge = "Token";
};

Login loginOf(State& state, const Request& request);

} // namespace ledgerfinch::support
