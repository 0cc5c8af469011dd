#include "processstats.h"

#include <QDir>
#include <QFile>
#include <QList>

#include <unistd.h>

namespace ProcessStats {

QByteArray procFile(qint64 pid, const QString &name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(name));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

qint64 field(const QByteArray &text, const QByteArray &key)
{
    for (const QByteArray &line : text.split('\n')) {
        if (line.startsWith(key + ':'))
            return line.mid(key.size() + 1).trimmed().split(' ').value(0).toLongLong();
    }
    return 0;
}

qint64 cpuTicks(qint64 pid)
{
    // Fields after the command name: utime and stime are the 12th and 13th.
    const QList<QByteArray> fields = procFile(pid, "stat").split(')').last().trimmed().split(' ');
    return fields.value(11).toLongLong() + fields.value(12).toLongLong();
}

double cpuSeconds(qint64 pid)
{
    return double(cpuTicks(pid)) / double(sysconf(_SC_CLK_TCK));
}

qint64 rssKb(qint64 pid)
{
    return field(procFile(pid, "status"), "VmRSS");
}

int openFds(qint64 pid)
{
    const QDir fds(QStringLiteral("/proc/%1/fd").arg(pid));
    return fds.exists()
        ? int(fds.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System).size())
        : -1;
}

}
