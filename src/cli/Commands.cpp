// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/commands/Commands.h"

namespace ledgerfinch::cli {

const std::vector<std::unique_ptr<Command>>& allCommands() {
    static const auto commands = [] {
        std::vector<std::unique_ptr<Command>> made;
        made.push_back(makeLoginCommand());
        made.push_back(makeSyncCommand());
        made.push_back(makeListCommand());
        made.push_back(makeShowCommand());
        made.push_back(makeDownloadCommand());
        made.push_back(makeStatusCommand());
        made.push_back(makeInstancesCommand());
        made.push_back(makeSettingsCommand());
        made.push_back(makeLogsCommand());
        made.push_back(makeLogoutCommand());
        made.push_back(makeHelpCommand());
        return made;
    }();
    return commands;
}

} // namespace ledgerfinch::cli
