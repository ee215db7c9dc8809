// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <cstdio>
#include <string_view>

namespace ledgerfinch::bench {

/// The ratios of one run beside what they may be. Prints each as it is told.
class Limits {
public:
    void atMost(std::string_view what, double value, double limit) {
        tell(what, value, "at most", limit, value <= limit);
    }
    void atLeast(std::string_view what, double value, double limit) {
        tell(what, value, "at least", limit, value >= limit);
    }

    /// 1 when a limit was missed and that is to be an error.
    [[nodiscard]] int exitCode(bool check) const { return m_met || !check ? 0 : 1; }

private:
    void tell(std::string_view what, double value, const char* sense, double limit, bool met) {
        m_met = m_met && met;
        std::printf("%-56.*s %8.4f  %s %.4f  %s\n", static_cast<int>(what.size()), what.data(), value, sense, limit,
                    met ? "ok" : "MISSED");
    }

    bool m_met = true;
};

/// Whether "--check" is among the arguments; it is taken out of them.
inline bool takeCheck(int& argc, char** argv) {
    int kept = 1;
    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]) != "--check") argv[kept++] = argv[i];
    const bool check = kept != argc;
    argc = kept;
    return check;
}

} // namespace ledgerfinch::bench
