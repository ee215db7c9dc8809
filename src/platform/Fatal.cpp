// SPDX-License-Identifier: GPL-3.0-or-later
#include "platform/Fatal.h"

#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace ledgerfinch {

namespace {

struct Handler {
    std::mutex mutex;
    std::function<void(const std::string&)> function;
};

Handler& handler() {
    static Handler instance;
    return instance;
}

} // namespace

void setFatalHandler(std::function<void(const std::string&)> function) {
    const std::lock_guard lock(handler().mutex);
    handler().function = std::move(function);
}

void fatal(const std::string& message, FatalStatus status) {
    std::function<void(const std::string&)> function;
    {
        const std::lock_guard lock(handler().mutex);
        function = handler().function;
    }
    if (function) function(message);
    std::fprintf(stderr, "%s\n", message.c_str());
    std::fflush(stderr);
    std::_Exit(static_cast<int>(status));
}

} // namespace ledgerfinch
