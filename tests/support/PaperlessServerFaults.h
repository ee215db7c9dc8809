// SPDX-License-Identifier: GPL-3.0-or-later
// Ways for the sample server to fail on purpose.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ledgerfinch::support {

/// What goes wrong with one answer. Make one with the functions below.
struct Fault {
    /// Answers without carrying the request out.
    struct Canned {
        int status = 500;
        std::string contentType;
        std::string body;
        std::vector<std::pair<std::string, std::string>> headers;
    };
    std::optional<Canned> canned;
    std::function<std::string(const std::string& body, const std::string& url)> rewrite; ///< changes a real body
    std::optional<std::size_t> cutAfter;   ///< closes the connection after so many bytes of the body
    std::optional<std::size_t> stallAfter; ///< waits there
    std::chrono::milliseconds stallFor{0}; ///< 0: until `release`
    std::size_t dripBytes = 0;             ///< sends this many bytes at a time
    std::chrono::milliseconds dripEvery{0};
    std::optional<std::string> raw; ///< sent instead of HTTP; empty: the connection is closed without a byte
    bool withoutVersion = false;    ///< leaves x-version and x-api-version out
    bool isCarriedOut = true;       ///< whether the request has its effect

    /// Any status with any body; the request has no effect.
    static Fault answer(int status, std::string body = {}, std::string contentType = "application/json");
    /// An HTML page with status 200, as a captive portal sends it.
    static Fault htmlPage();
    /// Status 302 to another address.
    static Fault redirect(std::string url);
    /// The connection closes before a byte is sent. With `carriedOut` the server has already done its work.
    static Fault dropConnection(bool carriedOut = false);
    /// The connection closes inside the body.
    static Fault cutBody(std::size_t afterBytes = 10);
    /// The body stops after so many bytes, for a time or until `release`.
    static Fault stall(std::size_t afterBytes = 0, std::chrono::milliseconds duration = {});
    /// A few bytes at a time.
    static Fault drip(std::size_t bytes, std::chrono::milliseconds every);
    /// Bytes that aren't HTTP at all.
    static Fault garbage(std::string bytes = "\x16\x03\x01garbage\r\n\r\n");
    /// Complete HTTP whose JSON ends half way.
    static Fault truncatedJson();
    /// "next" points elsewhere.
    static Fault nextIs(std::string url);
    /// "next" points to the page itself.
    static Fault nextIsSelf();
    /// The page, blown up with white space to this size.
    static Fault hugePage(std::size_t bytes = 50'000'000);
    static Fault missingVersion();
};

/// Thread-safe. A rule fires for each request that it fits until it is used up; the first that fits wins.
class PaperlessServerFaults {
public:
    using RuleId = std::size_t;

    /// For the n-th request from now on, counted from 1 over all connections.
    RuleId onRequest(std::size_t number, Fault fault);
    /// For requests whose "METHOD /path?query" contains the regular expression; `times` 0 means always.
    RuleId onPath(std::string expression, Fault fault, std::size_t times = 0);
    /// How often the rule has fired.
    std::size_t fired(RuleId rule) const;
    void remove(RuleId rule);
    /// Removes all rules and lets stalled answers go on.
    void clear();
    /// Lets all stalled answers go on.
    void release();
    /// The number of answers that are stalled now.
    std::size_t stalled() const;

    // Used by the server.
    std::optional<Fault> take(std::string_view method, std::string_view target);
    /// Waits for the release or the time; false when the server is stopping.
    bool waitStalled(std::chrono::milliseconds duration);
    void stop();
    void start();

private:
    struct Rule {
        RuleId id = 0;
        std::size_t number = 0;
        std::string expression;
        Fault fault;
        std::size_t left = 0; ///< 0: any number
        std::size_t fired = 0;
        bool isOver = false;
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Rule> m_rules;
    RuleId m_nextId = 1;
    std::size_t m_requests = 0;
    std::size_t m_stalled = 0;
    std::size_t m_releases = 0;
    bool m_stopping = false;
};

} // namespace ledgerfinch::support
