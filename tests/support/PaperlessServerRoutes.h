// SPDX-License-Identifier: GPL-3.0-or-later
// From a request to an answer: route, version, login, permission, method, endpoint, in the real server's order.
#pragma once

#include "support/PaperlessServerEndpoints.h"

#include <memory>

namespace ledgerfinch::support {

/// The parts that every answer carries, ready to be sent.
struct Answer {
    int status = 200;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    bool isAuthenticated = false;
};

class Routes {
public:
    Routes();
    ~Routes();

    /// Carries the request out. The caller holds the lock on the state.
    Answer answer(State& state, const Request& request);

private:
    struct Route;
    struct Match;
    Response respond(State& state, const Request& request, Match& match);
    std::vector<Route> m_routes;
    ListCache m_documentLists;

    void addRecordRoutes();
    void addDocumentRoutes();
    void addOtherRoutes();
};

} // namespace ledgerfinch::support
