#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

// What /proc says about a process: CPU time used, memory and open files.
namespace ProcessStats {

// The content of /proc/PID/NAME, empty when it cannot be read.
QByteArray procFile(qint64 pid, const QString &name);
// The number after "key:" in a /proc status-like text, 0 when the key is absent.
qint64 field(const QByteArray &text, const QByteArray &key);

// User plus system time in clock ticks.
qint64 cpuTicks(qint64 pid);
double cpuSeconds(qint64 pid);
// VmRSS, resident memory.
qint64 rssKb(qint64 pid);
// Entries of /proc/PID/fd; -1 when the process is gone.
int openFds(qint64 pid);

}
