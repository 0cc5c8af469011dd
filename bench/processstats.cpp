#include "processstats.h"

#include <QFile>
#include <QList>
#include <QString>

#include <unistd.h>

namespace ProcessStats {

qint64 cpuTicks(qint64 pid)
{
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return 0;
    // Fields after the command name: utime and stime are the 12th and 13th.
    const QList<QByteArray> fields = stat.readAll().split(')').last().trimmed().split(' ');
    return fields.value(11).toLongLong() + fields.value(12).toLongLong();
}

double cpuSeconds(qint64 pid)
{
    return double(cpuTicks(pid)) / double(sysconf(_SC_CLK_TCK));
}

QByteArray rss(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return {};
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed();
    }
    return {};
}

}
