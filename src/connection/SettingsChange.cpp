// SPDX-License-Identifier: GPL-3.0-or-later
#include "connection/SettingsChange.h"

namespace ledgerfinch {

SettingsChange::~SettingsChange() {
    for (auto change = m_before.rbegin(); change != m_before.rend(); ++change)
        (void)write(change->first, change->second);
}

void SettingsChange::set(std::string_view key, const std::optional<Value>& value) {
    if (m_failure) return;
    std::optional<Value> before;
    if (auto text = m_defaults.string(key))
        before = std::move(*text);
    else if (const auto truth = m_defaults.boolean(key))
        before = *truth;
    m_before.emplace_back(key, std::move(before));
    if (const auto written = write(m_before.back().first, value); !written) m_failure = written.error();
}

Result<void> SettingsChange::write(const std::string& key, const std::optional<Value>& value) {
    if (!value) return m_defaults.remove(key);
    if (const auto* truth = std::get_if<bool>(&*value)) return m_defaults.set(key, *truth);
    return m_defaults.set(key, std::get<std::string>(*value));
}

} // namespace ledgerfinch
