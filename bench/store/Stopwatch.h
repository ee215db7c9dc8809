// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <algorithm>
#include <chrono>
#include <ctime>

namespace ledgerfinch::bench {

/// By the clock on the wall, and by that of the processor, which a busy machine disturbs less.
struct Seconds {
    double wall = 0;
    double processor = 0;

    Seconds operator+(const Seconds& other) const { return {wall + other.wall, processor + other.processor}; }
    [[nodiscard]] Seconds best(const Seconds& other) const {
        return {std::min(wall, other.wall), std::min(processor, other.processor)};
    }
};

class Stopwatch {
public:
    [[nodiscard]] Seconds elapsed() const {
        const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - m_start;
        return {wall.count(), static_cast<double>(std::clock() - m_processor) / CLOCKS_PER_SEC};
    }

private:
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
    std::clock_t m_processor = std::clock();
};

} // namespace ledgerfinch::bench
