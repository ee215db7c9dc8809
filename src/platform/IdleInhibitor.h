// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <memory>

namespace ledgerfinch {

/// Keeps the machine awake while something long runs. Thread-safe.
class IdleInhibitor {
public:
    virtual ~IdleInhibitor() = default;
    /// True keeps it awake, false lets it sleep again. Nothing happens without a session that understands it.
    virtual void setIdleTimerDisabled(bool disabled) = 0;
};

/// logind's Inhibit over the system bus (what=sleep:idle, mode=block); silently nothing where logind doesn't answer.
std::unique_ptr<IdleInhibitor> makeIdleInhibitor();
/// Does nothing.
std::unique_ptr<IdleInhibitor> makeNullIdleInhibitor();

} // namespace ledgerfinch
