#include "commandrunner.h"

#include "jsonreport.h"
#include "meterpath.h"
#include "textreport.h"
#include "watchloop.h"

CommandRunner::CommandRunner(const Invocation &invocation, Console &console)
    : _invocation(invocation)
    , _console(console)
    , _report(invocation.json ? std::unique_ptr<Report>(new JsonReport)
                              : std::unique_ptr<Report>(new TextReport))
{
}

ExitCode::Code CommandRunner::run()
{
    switch (_invocation.command) {
    case Command::List:
        return _list();
    case Command::Show:
        return _show();
    case Command::Watch:
        return _watch();
    case Command::Read:
        return _read();
    case Command::Write:
        return _write();
    case Command::TestRs485:
        return _testRs485();
    case Command::Help:
    case Command::Version:
        break;
    }
    return ExitCode::Usage;
}

ExitCode::Code CommandRunner::_list()
{
    QStringList paths;
    if (const ExitCode::Code status = _meterList(&paths); status != ExitCode::Success)
        return status;
    const std::optional<QList<MeterSnapshot>> meters = _client.snapshots(paths);
    if (!meters)
        return _fail(_client.failure());
    _console.print(_report->meterList(*meters));
    return ExitCode::Success;
}

ExitCode::Code CommandRunner::_show()
{
    QString path;
    if (const ExitCode::Code status = _configuredPath(&path); status != ExitCode::Success)
        return status;
    const std::optional<MeterSnapshot> meter = _client.snapshot(path);
    if (!meter)
        return _fail(_client.failure());
    _console.print(_report->meterDetails(*meter));
    return ExitCode::Success;
}

ExitCode::Code CommandRunner::_watch()
{
    // The daemon's meter list is its configuration, fixed for its lifetime: looked up once.
    QStringList paths;
    QString path;
    const ExitCode::Code status
        = _invocation.path.isEmpty() ? _meterList(&paths) : _configuredPath(&path);
    if (status != ExitCode::Success)
        return status;
    if (!path.isEmpty())
        paths = QStringList { path };
    WatchLoop loop([this, paths] { return _printLiveFrame(paths); }, _invocation.count);
    return loop.exec();
}

ExitCode::Code CommandRunner::_printLiveFrame(const QStringList &paths)
{
    const std::optional<QList<MeterSnapshot>> meters = _client.snapshots(paths);
    if (!meters)
        return _fail(_client.failure());
    // Redrawn in place for a person; a pipe or a file gets one block after the other.
    if (!_invocation.json && _console.isTerminal())
        _console.clearScreen();
    _console.print(_report->liveFrame(*meters, QDateTime::currentDateTime()));
    return ExitCode::Success;
}

ExitCode::Code CommandRunner::_read()
{
    const std::optional<quint16> value
        = _client.readRegister(_invocation.address, _invocation.registerAddress);
    if (!value)
        return _fail(_client.failure());
    _console.print(
        _report->registerValue(_invocation.address, _invocation.registerAddress, *value));
    return ExitCode::Success;
}

ExitCode::Code CommandRunner::_write()
{
    const std::optional<bool> written = _client.writeRegister(
        _invocation.address, _invocation.registerAddress, _invocation.value);
    if (!written)
        return _fail(_client.failure());
    if (!*written) {
        return _fail({ ExitCode::Failed,
            QStringLiteral("writing register %1 of slave %2 failed: refused or not answered")
                .arg(_invocation.registerAddress)
                .arg(_invocation.address) });
    }
    _console.print(QStringLiteral("ok\n"));
    return ExitCode::Success;
}

ExitCode::Code CommandRunner::_testRs485()
{
    const std::optional<bool> passed = _client.testRs485();
    if (!passed)
        return _fail(_client.failure());
    _console.print(_report->loopTestResult(*passed));
    return *passed ? ExitCode::Success : ExitCode::Failed;
}

ExitCode::Code CommandRunner::_meterList(QStringList *paths)
{
    const std::optional<QStringList> configured = _client.meterList();
    if (!configured)
        return _fail(_client.failure());
    *paths = *configured;
    return ExitCode::Success;
}

ExitCode::Code CommandRunner::_configuredPath(QString *path)
{
    QStringList configured;
    if (const ExitCode::Code status = _meterList(&configured); status != ExitCode::Success)
        return status;
    const QString wanted = MeterPath::canonical(_invocation.path);
    for (const QString &candidate : std::as_const(configured)) {
        if (MeterPath::isWellFormed(candidate) && MeterPath::canonical(candidate) == wanted) {
            *path = candidate;
            return ExitCode::Success;
        }
    }
    return _fail({ ExitCode::Failed, QStringLiteral("no such meter: %1").arg(_invocation.path) });
}

ExitCode::Code CommandRunner::_fail(const ClientFailure &failure)
{
    _console.printError(failure.message);
    return failure.code;
}
