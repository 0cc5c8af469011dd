#include "metersimulator.h"

#include <QFile>
#include <QRegularExpression>

#include <unistd.h>

namespace {
const QString scenarioFile = QStringLiteral("scenario.ini");
const QString logFile = QStringLiteral("metersim.log");
}

MeterSimulator::MeterSimulator(const QByteArray &scenario)
{
    QFile file(_dir.filePath(scenarioFile));
    if (file.open(QIODevice::WriteOnly))
        file.write(scenario);
}

MeterSimulator::~MeterSimulator()
{
    _process.terminate();
    _process.waitForFinished();
}

bool MeterSimulator::start(const QString &link, const QStringList &options)
{
    QStringList arguments { "--verbose" };
    if (!link.isEmpty())
        arguments << "--pty" << link << "--scenario" << _dir.filePath(scenarioFile);
    _process.setStandardErrorFile(_dir.filePath(logFile));
    _process.start(METERSIM_BINARY, arguments + options);
    return _process.waitForStarted() && _process.waitForReadyRead(10000)
        && _process.readLine().startsWith("ready");
}

bool MeterSimulator::command(const QString &line)
{
    _process.write(line.toUtf8() + '\n');
    _process.waitForBytesWritten();
    return _process.waitForReadyRead(5000) && _process.readLine().trimmed() == "ok";
}

QString MeterSimulator::log() const
{
    QFile log(_dir.filePath(logFile));
    return log.open(QIODevice::ReadOnly) ? QString::fromUtf8(log.readAll()) : QString();
}

QStringList MeterSimulator::requests(int slave) const
{
    static const QRegularExpression request(
        QStringLiteral("slave (\\d+) function (0x[0-9a-f]+) address (\\d+) count (\\d+)"));
    QStringList seen;
    for (auto it = request.globalMatch(log()); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        if (match.captured(1).toInt() == slave)
            seen << match.captured(2) + ' ' + match.captured(3) + ' ' + match.captured(4);
    }
    return seen;
}

int MeterSimulator::count(const QString &fragment) const
{
    return int(log().count(fragment));
}

bool MeterSimulator::canServeModbusTcp()
{
    return ::geteuid() == 0;
}
