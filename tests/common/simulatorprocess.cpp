#include "simulatorprocess.h"

#include <unistd.h>

SimulatorProcess::~SimulatorProcess()
{
    _process.terminate();
    _process.waitForFinished();
}

bool SimulatorProcess::start(const QStringList &arguments)
{
    _process.start(METERSIM_BINARY, QStringList { "--verbose" } + arguments);
    return _process.waitForStarted() && _process.waitForReadyRead(10000)
        && _process.readLine().startsWith("ready");
}

bool SimulatorProcess::command(const QString &line)
{
    _process.write(line.toUtf8() + '\n');
    _process.waitForBytesWritten();
    return _process.waitForReadyRead(5000) && _process.readLine().trimmed() == "ok";
}

QString SimulatorProcess::log()
{
    _log += QString::fromUtf8(_process.readAllStandardError());
    return _log;
}

int SimulatorProcess::count(const QString &fragment)
{
    return int(log().count(fragment));
}

bool SimulatorProcess::canServeModbusTcp()
{
    return ::geteuid() == 0;
}
