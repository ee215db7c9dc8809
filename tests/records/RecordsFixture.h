// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/LogSinks.h"
#include "records/Decoders.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>

namespace ledgerfinch::test {

/// A body that a real server sent, cut down.
inline std::string recorded(const std::string& name) {
    const char* folder = std::getenv("LF_TEST_DATA");
    std::ifstream file(std::string(folder ? folder : "tests/data") + "/records/" + name + ".json", std::ios::binary);
    if (!file) throw std::runtime_error("no recording " + name);
    return {std::istreambuf_iterator<char>(file), {}};
}

/// A console whose lines can be read.
struct Console {
    std::shared_ptr<MemoryLogSink> sink = std::make_shared<MemoryLogSink>();
    Logger logger{sink, "Decoders"};
    DecodeContext context{&logger, ""};

    [[nodiscard]] std::string onlyLine() const {
        const auto records = sink->records();
        if (records.size() != 1) return std::to_string(records.size()) + " lines";
        return records.front().message;
    }
};

} // namespace ledgerfinch::test
