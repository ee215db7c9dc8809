// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "platform/Dates.h"
#include "platform/Fatal.h"
#include "platform/FileSystem.h"
#include "platform/Http.h"
#include "platform/IdleInhibitor.h"
#include "platform/Logger.h"
#include "platform/Paths.h"
#include "platform/SecretStore.h"
#include "platform/UserDefaults.h"

#include <memory>
#include <string>

namespace ledgerfinch {

/// The machine, as the program sees it: made once at the start, handed down by reference, outlives everything built on
/// it.
struct Services {
    Paths paths;
    std::shared_ptr<LogSink> log;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<SecretStore> secrets;
    std::unique_ptr<FileSystem> files;
    std::unique_ptr<HttpSession> http;
    std::unique_ptr<Clock> clock;
    std::unique_ptr<IdleInhibitor> idle;

    [[nodiscard]] Logger logger(std::string category) const { return Logger(log, std::move(category)); }
};

} // namespace ledgerfinch
