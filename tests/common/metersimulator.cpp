#include "metersimulator.h"

#include <QFile>
#include <QRegularExpression>

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

bool MeterSimulator::start(const QString &link)
{
    _process.setStandardErrorFile(_dir.filePath(logFile));
    _process.start(
        METERSIM_BINARY, { "--pty", link, "--scenario", _dir.filePath(scenarioFile), "--verbose" });
    return _process.waitForStarted() && _process.waitForReadyRead(10000)
        && _process.readLine().startsWith("ready");
}

bool MeterSimulator::command(const QString &line)
{
    _process.write(line.toUtf8() + '\n');
    _process.waitForBytesWritten();
    return _process.waitForReadyRead(5000) && _process.readLine().trimmed() == "ok";
}

QStringList MeterSimulator::requests(int slave) const
{
    static const QRegularExpression request(
        QStringLiteral("slave (\\d+) function (0x[0-9a-f]+) address (\\d+) count (\\d+)"));
    QFile log(_dir.filePath(logFile));
    if (!log.open(QIODevice::ReadOnly))
        return {};
    QStringList seen;
    for (auto it = request.globalMatch(QString::fromUtf8(log.readAll())); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        if (match.captured(1).toInt() == slave)
            seen << match.captured(2) + ' ' + match.captured(3) + ' ' + match.captured(4);
    }
    return seen;
}
