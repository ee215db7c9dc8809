// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include "cli/Command.h"

#include <memory>

namespace ledgerfinch::cli {

std::unique_ptr<Command> makeLoginCommand();
std::unique_ptr<Command> makeLogoutCommand();
std::unique_ptr<Command> makeInstancesCommand();
std::unique_ptr<Command> makeSyncCommand();
std::unique_ptr<Command> makeListCommand();
std::unique_ptr<Command> makeShowCommand();
std::unique_ptr<Command> makeDownloadCommand();
std::unique_ptr<Command> makeStatusCommand();
std::unique_ptr<Command> makeSettingsCommand();
std::unique_ptr<Command> makeLogsCommand();
std::unique_ptr<Command> makeHelpCommand();

} // namespace ledgerfinch::cli
