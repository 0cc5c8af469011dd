// How fresh the values on D-Bus are: the time from a change in the simulator to the new value
// in the measurement service, for a serial and for a network meter; then the daemon's CPU and
// memory while it reads 4 RS-485 and 2 Modbus TCP meters. Network meters need port 502: run as
// root, or inside unshare -rn with lo up.

#include "meterdrig.h"
#include "metersimulator.h"
#include "processstats.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusReply>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const QByteArray scenario = "[7]\nmodel=EM340\nfault=frozen\n[8]\nmodel=EM111\nfault=frozen\n"
                            "[9]\nmodel=EM210\nfault=frozen\n[10]\nmodel=EM26\nfault=frozen\n";
const QByteArray rtuCorvix = "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/1/8\n[c]\nmeter=modbus/1/9\n"
                             "[d]\nmeter=modbus/1/10\n";
const QByteArray tcpCorvix = "[e]\nmeter=modbus/127.0.0.41\n[f]\nmeter=modbus/127.0.0.42\n";
const QStringList networkMeters { "127.0.0.41:PAC3220", "127.0.0.42:EM24:1650" };
constexpr int samples = 40;
constexpr int loadSeconds = 60;

struct Freshness
{
    QString path;
    QString meter; // as the simulator names it
};

// Sets a new voltage at a random moment of the poll cycle and polls D-Bus every millisecond
// until it shows.
void measureFreshness(MeterdRig &rig, QDBusInterface &service, const Freshness &meter)
{
    std::vector<double> latenciesMs;
    for (int sample = 0; sample < samples; ++sample) {
        QThread::msleep(QRandomGenerator::global()->bounded(1000));
        const double voltage = 200.0 + sample;
        if (!rig.simulator(QStringLiteral("set %1 voltage1 %2").arg(meter.meter).arg(voltage)))
            return;
        QElapsedTimer sinceChange;
        sinceChange.start();
        while (sinceChange.elapsed() < 10000) {
            const QDBusReply<double> reply = service.call("voltage", meter.path, 1);
            if (reply.isValid() && qAbs(reply.value() - voltage) < 0.01)
                break;
            QThread::msleep(1);
        }
        latenciesMs.push_back(double(sinceChange.nsecsElapsed()) / 1e6);
    }
    std::sort(latenciesMs.begin(), latenciesMs.end());
    const auto percentile
        = [&](double p) { return latenciesMs[size_t(p * double(latenciesMs.size() - 1))]; };
    std::printf("%-18s %3zu changes  p50 %7.1f ms  p99 %7.1f ms  max %7.1f ms\n",
        qPrintable(meter.path), latenciesMs.size(), percentile(0.5), percentile(0.99),
        latenciesMs.back());
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const bool network = MeterSimulator::canServeModbusTcp();
    MeterdRig rig(scenario, rtuCorvix + (network ? tcpCorvix : QByteArray()),
        network ? networkMeters : QStringList());
    if (!rig.start({ "QT_LOGGING_RULES=*.debug=false" })) {
        std::fprintf(stderr, "bench_freshness: the daemon did not start\n");
        return 1;
    }
    if (network) {
        for (const QString &meter : networkMeters)
            rig.simulator("fault " + meter.section(':', 0, 0) + " frozen");
    }
    QList<Freshness> meters { { "modbus/1/7", "7" } };
    if (network)
        meters += { { "modbus/127.0.0.41", "127.0.0.41" }, { "modbus/127.0.0.42", "127.0.0.42" } };
    for (const Freshness &meter : meters) {
        if (!rig.waitConnected({ meter.path })) {
            std::fprintf(stderr, "bench_freshness: %s never connected\n", qPrintable(meter.path));
            return 1;
        }
    }

    QDBusConnection bus = QDBusConnection::connectToBus(rig.busAddress(), QStringLiteral("bench"));
    QDBusInterface service(QStringLiteral("com.ovra.slavecontroller"),
        QStringLiteral("/MeasurementManager"),
        QStringLiteral("com.ovra.slavecontroller.MeasurementManager"), bus);
    std::printf("Time from a change in the simulator to the new value on D-Bus:\n");
    for (const Freshness &meter : meters)
        measureFreshness(rig, service, meter);

    const qint64 pid = rig.daemonPid();
    const double cpuBefore = ProcessStats::cpuSeconds(pid);
    QThread::sleep(loadSeconds);
    const double cpuSeconds = ProcessStats::cpuSeconds(pid) - cpuBefore;
    std::printf(
        "Reading 4 RS-485 and %d TCP meters for %d s: CPU %.2f %% of one core, RSS %lld kB\n",
        network ? 2 : 0, loadSeconds, 100.0 * cpuSeconds / loadSeconds,
        static_cast<long long>(ProcessStats::rssKb(pid)));
    return 0;
}
