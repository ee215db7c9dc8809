// SPDX-License-Identifier: GPL-3.0-or-later
#include "cli/CommandLine.h"
#include "cli/Console.h"
#include "platform/Memory.h"

#include <QCoreApplication>

#include <cstring>
#include <string>
#include <vector>

using namespace ledgerfinch;

int main(int count, char** words) {
    cli::takeClosedStreams();
    keepMemorySmall();
    const std::vector<std::string> arguments(words + (count > 0 ? 1 : 0), words + count);
    int qtCount = 1;
    QCoreApplication application(qtCount, words);
    QCoreApplication::setApplicationName(QStringLiteral("ledgerfinch-cli"));

    cli::StandardConsole standard;
    const auto code = cli::CommandLine(standard.console()).run(arguments);
    if (const int error = standard.outputLost(); error != 0 && code == cli::ExitCode::Ok) {
        standard.console().complain(std::string("The output could not be written: ") + std::strerror(error) + ".");
        return cli::toInt(cli::ExitCode::CannotCreate);
    }
    return cli::toInt(code);
}
