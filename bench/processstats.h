#pragma once

#include <QByteArray>
#include <QtGlobal>

// What /proc says about a process: CPU time used and resident memory.
namespace ProcessStats {

// User plus system time in clock ticks.
qint64 cpuTicks(qint64 pid);
double cpuSeconds(qint64 pid);
// VmRSS as the kernel writes it, e.g. "14100 kB".
QByteArray rss(qint64 pid);

}
