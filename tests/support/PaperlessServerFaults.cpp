// SPDX-License-Identifier: GPL-3.0-or-later
#include "support/PaperlessServerFaults.h"

#include "support/PaperlessServerWire.h"

#include <algorithm>
#include <regex>

namespace ledgerfinch::support {

namespace {

/// Puts another value under "next" without disturbing the rest of the body.
std::string withNext(const std::string& body, const std::string& url) {
    constexpr std::string_view key = "\"next\":";
    auto start = body.find(key);
    if (start == std::string::npos) return body;
    start += key.size();
    auto end = body[start] == '"' ? body.find('"', start + 1) + 1 : body.find(',', start);
    std::string quoted;
    appendQuoted(quoted, url);
    return body.substr(0, start) + quoted + body.substr(end);
}

} // namespace

Fault Fault::answer(int status, std::string body, std::string contentType) {
    Fault fault;
    fault.canned = Canned{status, std::move(contentType), std::move(body), {}};
    fault.isCarriedOut = false;
    return fault;
}

Fault Fault::htmlPage() {
    return answer(200, "<!DOCTYPE html>\n<html><head><title>Welcome</title></head><body>Please log in.</body></html>\n",
                  "text/html; charset=utf-8");
}

Fault Fault::redirect(std::string url) {
    auto fault = answer(302, {}, "text/html; charset=utf-8");
    fault.canned->headers.emplace_back("location", std::move(url));
    return fault;
}

Fault Fault::dropConnection(bool carriedOut) {
    Fault fault;
    fault.raw = std::string();
    fault.isCarriedOut = carriedOut;
    return fault;
}

Fault Fault::cutBody(std::size_t afterBytes) {
    Fault fault;
    fault.cutAfter = afterBytes;
    return fault;
}

Fault Fault::stall(std::size_t afterBytes, std::chrono::milliseconds duration) {
    Fault fault;
    fault.stallAfter = afterBytes;
    fault.stallFor = duration;
    return fault;
}

Fault Fault::drip(std::size_t bytes, std::chrono::milliseconds every) {
    Fault fault;
    fault.dripBytes = std::max<std::size_t>(1, bytes);
    fault.dripEvery = every;
    return fault;
}

Fault Fault::garbage(std::string bytes) {
    Fault fault;
    fault.raw = std::move(bytes);
    fault.isCarriedOut = false;
    return fault;
}

Fault Fault::truncatedJson() {
    Fault fault;
    fault.rewrite = [](const std::string& body, const std::string&) {
        return body.substr(0, body.size() / 2);
    };
    return fault;
}

Fault Fault::nextIs(std::string url) {
    Fault fault;
    fault.rewrite = [url = std::move(url)](const std::string& body, const std::string&) {
        return withNext(body, url);
    };
    return fault;
}

Fault Fault::nextIsSelf() {
    Fault fault;
    fault.rewrite = [](const std::string& body, const std::string& url) {
        return withNext(body, url);
    };
    return fault;
}

Fault Fault::hugePage(std::size_t bytes) {
    Fault fault;
    fault.rewrite = [bytes](const std::string& body, const std::string&) {
        auto padding = std::string(bytes > body.size() ? bytes - body.size() : 0, ' ');
        return body.empty() ? padding : body.substr(0, 1) + padding + body.substr(1);
    };
    return fault;
}

Fault Fault::missingVersion() {
    Fault fault;
    fault.withoutVersion = true;
    return fault;
}

PaperlessServerFaults::RuleId PaperlessServerFaults::onRequest(std::size_t number, Fault fault) {
    std::lock_guard lock(m_mutex);
    m_rules.push_back({m_nextId, m_requests + number, {}, std::move(fault), 1, 0, false});
    return m_nextId++;
}

PaperlessServerFaults::RuleId PaperlessServerFaults::onPath(std::string expression, Fault fault, std::size_t times) {
    std::lock_guard lock(m_mutex);
    m_rules.push_back({m_nextId, 0, std::move(expression), std::move(fault), times, 0, false});
    return m_nextId++;
}

std::size_t PaperlessServerFaults::fired(RuleId rule) const {
    std::lock_guard lock(m_mutex);
    auto found = std::find_if(m_rules.begin(), m_rules.end(), [&](const Rule& one) { return one.id == rule; });
    return found == m_rules.end() ? 0 : found->fired;
}

void PaperlessServerFaults::remove(RuleId rule) {
    std::lock_guard lock(m_mutex);
    std::erase_if(m_rules, [&](const Rule& one) { return one.id == rule; });
}

void PaperlessServerFaults::clear() {
    std::lock_guard lock(m_mutex);
    m_rules.clear();
    ++m_releases;
    m_changed.notify_all();
}

void PaperlessServerFaults::release() {
    std::lock_guard lock(m_mutex);
    ++m_releases;
    m_changed.notify_all();
}

std::size_t PaperlessServerFaults::stalled() const {
    std::lock_guard lock(m_mutex);
    return m_stalled;
}

std::optional<Fault> PaperlessServerFaults::take(std::string_view method, std::string_view target) {
    std::lock_guard lock(m_mutex);
    ++m_requests;
    auto line = std::string(method) + " " + std::string(target);
    for (auto& rule : m_rules) {
        auto fits = rule.number != 0 ? rule.number == m_requests : std::regex_search(line, std::regex(rule.expression));
        if (rule.isOver || !fits) continue;
        ++rule.fired;
        rule.isOver = rule.left != 0 && rule.fired >= rule.left;
        return rule.fault;
    }
    return std::nullopt;
}

bool PaperlessServerFaults::waitStalled(std::chrono::milliseconds duration) {
    std::unique_lock lock(m_mutex);
    ++m_stalled;
    m_changed.notify_all();
    auto release = m_releases;
    auto isOver = [&] {
        return m_stopping || m_releases != release;
    };
    if (duration.count() > 0) {
        m_changed.wait_for(lock, duration, isOver);
    } else {
        m_changed.wait(lock, isOver);
    }
    --m_stalled;
    return !m_stopping;
}

void PaperlessServerFaults::stop() {
    std::lock_guard lock(m_mutex);
    m_stopping = true;
    m_changed.notify_all();
}

void PaperlessServerFaults::start() {
    std::lock_guard lock(m_mutex);
    m_stopping = false;
}

} // namespace ledgerfinch::support
