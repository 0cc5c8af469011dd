#include "commandline.h"
#include "commandrunner.h"
#include "console.h"

#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("meterctl"));
    QCoreApplication::setApplicationVersion(QStringLiteral(METERCTL_VERSION));

    Console console;
    CommandLine commandLine;
    if (!commandLine.parse(QCoreApplication::arguments())) {
        console.printError(commandLine.error());
        return ExitCode::Usage;
    }

    const Invocation invocation = commandLine.invocation();
    switch (invocation.command) {
    case Command::Help:
        console.print(commandLine.helpText());
        return ExitCode::Success;
    case Command::Version:
        console.print(commandLine.versionText());
        return ExitCode::Success;
    default:
        return CommandRunner(invocation, console).run();
    }
}
