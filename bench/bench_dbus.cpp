// The measurement service against its floor. On one private bus: meterd reading simulated meters
// and bench_floor, a minimal Qt D-Bus service with one method shaped like `current`; bench_client
// (sd-bus) calls both the same way. Prints throughput and latency of `current` and `metervalues`
// from 1 and 4 client processes, `current` while another client reads a register in a loop, and
// the idle cost (CPU, wake-ups per thread, private dirty memory) with 0 and 4 meters, each as a
// ratio to the floor, beside the figures the daemon is held to.
//
//   bench_dbus [--calls N] [--rounds R] [--idle-seconds S] [--meterd PATH]
//
// Each throughput figure is the median of R runs (5) that alternate with the floor's.
// --meterd runs another build of the daemon, e.g. one of an earlier commit, to compare with.

#include "clientprocess.h"
#include "meterdrig.h"
#include "processstats.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QThread>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <unistd.h>

namespace {

using Target = ClientProcess::Target;
using Call = ClientProcess::Call;
using Figures = ClientProcess::Figures;

const Target meterdTarget { "com.ovra.slavecontroller", "/MeasurementManager",
    "com.ovra.slavecontroller.MeasurementManager" };
const Target floorTarget { "com.ovra.bench.Floor", "/Floor", "com.ovra.bench.Floor" };

const QByteArray fourMeters
    = "[7]\nmodel=EM340\n[8]\nmodel=EM111\n[9]\nmodel=EM210\n[10]\nmodel=EM26\n";
const QByteArray fourMetersCorvix = "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/1/8\n"
                                    "[c]\nmeter=modbus/1/9\n[d]\nmeter=modbus/1/10\n";
const QStringList quietDaemon { "QT_LOGGING_RULES=*.debug=false" };

// What the daemon is held to.
constexpr double throughputTarget = 0.95;
constexpr double p99TargetUs = 1000.0;
constexpr double idleWakeupsTarget = 2.0;
constexpr double idleCpuTargetPercent = 0.05;
constexpr double privateDirtyTargetKb = 1536.0;

QString loadAverage()
{
    QFile file(QStringLiteral("/proc/loadavg"));
    return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()).section(' ', 0, 2)
                                          : QStringLiteral("?");
}

// The median of each figure over several runs.
Figures median(const QList<Figures> &runs)
{
    Figures middle;
    for (const QString &key : runs.value(0).keys()) {
        QList<double> values;
        for (const Figures &run : runs)
            values << run.value(key);
        std::sort(values.begin(), values.end());
        middle.insert(key, values.at(values.size() / 2));
    }
    return middle;
}

// Runs the floor's method and meterd's in turn, rounds times, so that a change of the machine's
// load during the benchmark weighs on both alike; the medians of meterd's runs go to runs, those
// of the floor's are returned.
Figures compareRuns(const QString &address, const Call &floorCall, const Call &meterdCall,
    int calls, int clients, int rounds, Figures &runs)
{
    QList<Figures> floorRuns;
    QList<Figures> meterdRuns;
    for (int round = 0; round < rounds; ++round) {
        floorRuns << ClientProcess::run(address, floorCall, calls, clients);
        meterdRuns << ClientProcess::run(address, meterdCall, calls, clients);
    }
    runs = median(meterdRuns);
    return median(floorRuns);
}

struct ThreadSwitches
{
    QString name;
    qint64 switches = 0;
};

// Context switches, voluntary and not, per thread id: each one is a wake-up of that thread.
QMap<qint64, ThreadSwitches> threadSwitches(qint64 pid)
{
    QMap<qint64, ThreadSwitches> threads;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &tid : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        const QByteArray status = ProcessStats::procFile(pid, "task/" + tid + "/status");
        threads.insert(tid.toLongLong(),
            { QString::fromUtf8(ProcessStats::procFile(pid, "task/" + tid + "/comm")).trimmed(),
                ProcessStats::field(status, "voluntary_ctxt_switches")
                    + ProcessStats::field(status, "nonvoluntary_ctxt_switches") });
    }
    return threads;
}

struct IdleCost
{
    double cpuPercent = 0;
    double wakeupsPerSecond = 0;
    QStringList perThread;
    double privateDirtyKb = 0;
};

IdleCost measureIdle(qint64 pid, int seconds)
{
    const qint64 ticksBefore = ProcessStats::cpuTicks(pid);
    const QMap<qint64, ThreadSwitches> before = threadSwitches(pid);
    QThread::sleep(seconds);
    const QMap<qint64, ThreadSwitches> after = threadSwitches(pid);
    IdleCost cost;
    cost.cpuPercent = 100.0 * double(ProcessStats::cpuTicks(pid) - ticksBefore)
        / double(sysconf(_SC_CLK_TCK)) / double(seconds);
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        const double perSecond
            = double(it->switches - before.value(it.key()).switches) / double(seconds);
        cost.wakeupsPerSecond += perSecond;
        cost.perThread << QStringLiteral("%1 %2/s").arg(it->name).arg(perSecond, 0, 'f', 1);
    }
    cost.privateDirtyKb
        = double(ProcessStats::field(ProcessStats::procFile(pid, "smaps_rollup"), "Private_Dirty"));
    return cost;
}

QString ratio(double value, double floor)
{
    return floor > 0 ? QString::number(value / floor, 'f', 2) : QStringLiteral("n/a");
}

const char *verdict(bool met)
{
    return met ? "ok" : "MISSED";
}

void printRun(const QByteArray &name, const Figures &run, const Figures &floor)
{
    std::printf("%-40s %9.0f %9.1f %9.1f %10.1f   %s", name.constData(), run.value("rate"),
        run.value("p50_us"), run.value("p99_us"), run.value("max_us"),
        qPrintable(ratio(run.value("rate"), floor.value("rate"))));
    if (run.value("errors") > 0)
        std::printf("   (%0.f calls failed)", run.value("errors"));
    std::printf("\n");
}

void printIdle(const char *name, const IdleCost &cost, const IdleCost &floor)
{
    std::printf("%-20s %8.3f %% (%s)  %8.2f/s (%s)  %8.0f kB (%s)\n", name, cost.cpuPercent,
        qPrintable(ratio(cost.cpuPercent, floor.cpuPercent)), cost.wakeupsPerSecond,
        qPrintable(ratio(cost.wakeupsPerSecond, floor.wakeupsPerSecond)), cost.privateDirtyKb,
        qPrintable(ratio(cost.privateDirtyKb, floor.privateDirtyKb)));
    std::printf("%-20s threads: %s\n", "", qPrintable(cost.perThread.join(QStringLiteral(", "))));
}

QString optionText(const QStringList &arguments, const QString &name)
{
    const qsizetype at = arguments.indexOf(name);
    return at >= 0 && at + 1 < arguments.size() ? arguments.at(at + 1) : QString();
}

int optionValue(const QStringList &arguments, const QString &name, int fallback)
{
    const QString text = optionText(arguments, name);
    return text.isEmpty() ? fallback : text.toInt();
}

std::unique_ptr<MeterdRig> startRig(
    const QByteArray &scenario, const QByteArray &corvix, const QString &daemon)
{
    auto rig = std::make_unique<MeterdRig>(scenario, corvix);
    if (!daemon.isEmpty())
        rig->setDaemonBinary(daemon);
    return rig->start(quietDaemon) ? std::move(rig) : nullptr;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const int calls = optionValue(app.arguments(), "--calls", 20000);
    const int idleSeconds = optionValue(app.arguments(), "--idle-seconds", 10);
    const int rounds = qMax(1, optionValue(app.arguments(), "--rounds", 5));
    const QString daemon = optionText(app.arguments(), "--meterd");
    std::printf("%d cores, load average %s at the start; %d calls per run, idle windows of %d s\n",
        int(sysconf(_SC_NPROCESSORS_ONLN)), qPrintable(loadAverage()), calls, idleSeconds);

    std::unique_ptr<MeterdRig> rig = startRig(fourMeters, fourMetersCorvix, daemon);
    if (!rig || !rig->waitConnected({ "modbus/1/7", "modbus/1/8", "modbus/1/9", "modbus/1/10" })) {
        std::fprintf(stderr, "bench_dbus: the daemon did not start or its meters did not answer\n");
        return 1;
    }
    const QString address = rig->busAddress();
    QProcess floorService;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", address);
    floorService.setProcessEnvironment(environment);
    floorService.start(BENCH_FLOOR_BINARY, {});
    if (!floorService.waitForReadyRead(10000)) {
        std::fprintf(stderr, "bench_dbus: the floor service did not start\n");
        return 1;
    }

    const Call floorCurrent { floorTarget, "current", "si", { "modbus/1/7", "1" } };
    const Call floorMetervalues { floorTarget, "metervalues", "s", { "modbus/1/7" } };
    const Call current { meterdTarget, "current", "si", { "modbus/1/7", "1" } };
    const Call metervalues { meterdTarget, "metervalues", "s", { "modbus/1/7" } };
    const Call registerRead { meterdTarget, "readModbusRegister", "qq", { "7", "11" } };
    for (const Call &call : { floorCurrent, floorMetervalues, current, metervalues })
        ClientProcess::run(address, call, 1000, 1);

    std::printf("\nD-Bus calls, 4 meters polled, median of %d   %9s %9s %9s %10s   %s\n", rounds,
        "calls/s", "p50 us", "p99 us", "max us", "to floor");
    QMap<int, Figures> floor;
    QMap<int, Figures> floorMap;
    QMap<int, Figures> currentRuns;
    QMap<int, Figures> metervaluesRuns;
    for (int clients : { 1, 4 }) {
        floor[clients] = compareRuns(
            address, floorCurrent, current, calls, clients, rounds, currentRuns[clients]);
        floorMap[clients] = compareRuns(address, floorMetervalues, metervalues, calls, clients,
            rounds, metervaluesRuns[clients]);
    }
    for (int clients : { 1, 4 }) {
        const QByteArray suffix = clients == 1 ? ", 1 client" : ", 4 clients";
        printRun("floor current" + suffix, floor[clients], floor[clients]);
        printRun("current" + suffix, currentRuns[clients], floor[clients]);
        printRun("floor metervalues" + suffix, floorMap[clients], floorMap[clients]);
        printRun("metervalues" + suffix, metervaluesRuns[clients], floorMap[clients]);
    }
    std::printf("metervalues to the floor's current, 1 / 4 clients: %s / %s\n",
        qPrintable(ratio(metervaluesRuns[1].value("rate"), floor[1].value("rate"))),
        qPrintable(ratio(metervaluesRuns[4].value("rate"), floor[4].value("rate"))));

    ClientProcess registerLoop(address, registerRead);
    const Figures duringRegisterReads = ClientProcess::run(address, current, calls, 1);
    const Figures registerReads = registerLoop.stop();
    if (!registerLoop.failures().isEmpty())
        std::fprintf(stderr, "%s\n", qPrintable(registerLoop.failures()));
    printRun("current, 1 client, registers read", duringRegisterReads, floor[1]);
    std::printf("register reads meanwhile: %.0f in %.1f s, %.1f/s, p50 %.1f ms, p99 %.1f ms%s\n",
        registerReads.value("calls"), registerReads.value("seconds"), registerReads.value("rate"),
        registerReads.value("p50_us") / 1000.0, registerReads.value("p99_us") / 1000.0,
        registerReads.value("errors") > 0 ? " (some failed)" : "");

    std::printf("\nIdle, %d s             CPU of a core       wake-ups            private dirty\n",
        idleSeconds);
    const IdleCost floorIdle = measureIdle(floorService.processId(), idleSeconds);
    const IdleCost fourIdle = measureIdle(rig->daemonPid(), idleSeconds);
    floorService.terminate();
    floorService.waitForFinished();
    rig = startRig(fourMeters, QByteArray(), daemon);
    if (!rig) {
        std::fprintf(stderr, "bench_dbus: the daemon without meters did not start\n");
        return 1;
    }
    QThread::sleep(1);
    const IdleCost noneIdle = measureIdle(rig->daemonPid(), idleSeconds);
    printIdle("floor", floorIdle, floorIdle);
    printIdle("meterd, 0 meters", noneIdle, floorIdle);
    printIdle("meterd, 4 meters", fourIdle, floorIdle);

    const auto met
        = [&](const QMap<int, Figures> &runs, const QMap<int, Figures> &floors, int clients) {
              return verdict(
                  runs[clients].value("rate") >= throughputTarget * floors[clients].value("rate"));
          };
    std::printf("\nTargets\n");
    std::printf("throughput >= %.2f of the floor, current, 1 / 4 clients:     %s / %s\n",
        throughputTarget, met(currentRuns, floor, 1), met(currentRuns, floor, 4));
    std::printf("throughput >= %.2f of the floor, metervalues, 1 / 4 clients: %s / %s\n",
        throughputTarget, met(metervaluesRuns, floorMap, 1), met(metervaluesRuns, floorMap, 4));
    std::printf("p99 of current <= 1 ms, alone / registers read:             %s / %s\n",
        verdict(currentRuns[1].value("p99_us") <= p99TargetUs),
        verdict(duringRegisterReads.value("p99_us") <= p99TargetUs));
    std::printf("idle, 0 meters: <= %.0f wake-ups/s in all:                     %s\n",
        idleWakeupsTarget, verdict(noneIdle.wakeupsPerSecond <= idleWakeupsTarget));
    std::printf("idle, 0 meters: < %.2f %% of a core:                         %s\n",
        idleCpuTargetPercent, verdict(noneIdle.cpuPercent < idleCpuTargetPercent));
    std::printf("private dirty <= 1.5 MB, 0 / 4 meters:                      %s / %s\n",
        verdict(noneIdle.privateDirtyKb <= privateDirtyTargetKb),
        verdict(fourIdle.privateDirtyKb <= privateDirtyTargetKb));
    std::printf("\nload average %s at the end\n", qPrintable(loadAverage()));
    return 0;
}
