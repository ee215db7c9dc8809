// SPDX-License-Identifier: GPL-3.0-or-later
// What tests set on the server besides its records: the release, the clock, the worker, the limits.
#include "support/PaperlessServer.h"

namespace ledgerfinch::support {

void PaperlessServer::setMode(ServerMode mode) {
    std::lock_guard lock(m_mutex);
    m_modeChanges.clear();
    become(mode);
}

void PaperlessServer::become(ServerMode mode) {
    m_state.release = releaseOf(mode);
    m_state.changed();
}

void PaperlessServer::setModeAfter(std::size_t requests, ServerMode mode, std::string start) {
    std::lock_guard lock(m_mutex);
    m_modeChanges.push_back({requests, mode, std::move(start)});
}

State PaperlessServer::snapshot() const {
    std::lock_guard lock(m_mutex);
    return m_state;
}

void PaperlessServer::restore(State records) {
    std::lock_guard lock(m_mutex);
    records.revision = m_state.revision + 1;
    records.lastTime = m_state.lastTime;
    records.clockShift = m_state.clockShift;
    m_state = std::move(records);
}

ServerMode PaperlessServer::mode() const {
    std::lock_guard lock(m_mutex);
    return m_state.release.mode;
}

void PaperlessServer::changeModeBefore(const Request& request) {
    auto fits = [&](const ModeChange& change) {
        return (request.method + " " + request.target).starts_with(change.start);
    };
    for (const auto& change : m_modeChanges) {
        if (change.left == 0) become(change.mode);
    }
    std::erase_if(m_modeChanges, [](const ModeChange& change) { return change.left == 0; });
    for (auto& change : m_modeChanges) {
        if (fits(change)) --change.left;
    }
}

void PaperlessServer::setVersion(std::string version) {
    std::lock_guard lock(m_mutex);
    m_state.release.version = std::move(version);
}

void PaperlessServer::setTime(Micros time) {
    std::lock_guard lock(m_mutex);
    m_state.clockShift = time - clockNow();
    m_state.lastTime = 0;
}

void PaperlessServer::setTaskPace(TaskPace pace) {
    std::lock_guard lock(m_mutex);
    m_state.taskPace = pace;
}

void PaperlessServer::setLeavesRemovedOptions(bool on) {
    std::lock_guard lock(m_mutex);
    m_state.leavesRemovedOptions = on;
    m_state.changed();
}

void PaperlessServer::setRefusesDuplicates(bool on) {
    std::lock_guard lock(m_mutex);
    m_state.refusesDuplicates = on;
}

void PaperlessServer::setLoginLimit(std::optional<std::size_t> perMinute) {
    std::lock_guard lock(m_mutex);
    m_state.loginLimit = perMinute;
    m_state.logins.clear();
}

} // namespace ledgerfinch::support
