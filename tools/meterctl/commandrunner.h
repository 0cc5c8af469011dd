#pragma once

#include "console.h"
#include "exitcode.h"
#include "invocation.h"
#include "meterclient.h"
#include "report.h"

#include <memory>

// Carries out one checked invocation against meterd and prints its answer or its failure.
class CommandRunner
{
public:
    CommandRunner(const Invocation &invocation, Console &console);

    ExitCode::Code run();

private:
    ExitCode::Code _list();
    ExitCode::Code _show();
    ExitCode::Code _watch();
    ExitCode::Code _printLiveFrame(const QStringList &paths);
    ExitCode::Code _read();
    ExitCode::Code _write();
    ExitCode::Code _testRs485();

    ExitCode::Code _meterList(QStringList *paths);
    // The configured meter that the typed path names, spelled as the daemon lists it.
    ExitCode::Code _configuredPath(QString *path);
    ExitCode::Code _fail(const ClientFailure &failure);

    Invocation _invocation;
    Console &_console;
    MeterClient _client;
    std::unique_ptr<Report> _report;
};
