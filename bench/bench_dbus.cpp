// Throughput and latency of the measurement service from one client connection while three
// simulated meters are polled, and the daemon's memory and CPU while it only polls.

#include "meterdrig.h"
#include "processstats.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QElapsedTimer>
#include <QTextStream>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

const QByteArray scenario = "[7]\nmodel=EM340\n[8]\nmodel=EM111\n[9]\nmodel=EM210\n";
const QByteArray corvix = "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/1/8\n[c]\nmeter=modbus/1/9\n";
constexpr int callsPerMethod = 5000;
constexpr int idleSeconds = 20;

void measureCalls(QDBusInterface &service, const char *method, const QVariantList &arguments)
{
    std::vector<qint64> latenciesNs;
    latenciesNs.reserve(callsPerMethod);
    QElapsedTimer total;
    total.start();
    for (int i = 0; i < callsPerMethod; ++i) {
        QElapsedTimer call;
        call.start();
        service.callWithArgumentList(QDBus::Block, method, arguments);
        latenciesNs.push_back(call.nsecsElapsed());
    }
    const double seconds = double(total.nsecsElapsed()) / 1e9;
    std::sort(latenciesNs.begin(), latenciesNs.end());
    const auto percentile = [&](double p) { return double(latenciesNs[size_t(p * (latenciesNs.size() - 1))]) / 1000.0; };
    std::printf("%-12s %6d calls  %8.0f calls/s  p50 %7.1f us  p99 %7.1f us  max %8.1f us\n", method, callsPerMethod,
                callsPerMethod / seconds, percentile(0.50), percentile(0.99), double(latenciesNs.back()) / 1000.0);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    MeterdRig rig(scenario, corvix);
    if (!rig.start({ "QT_LOGGING_RULES=*.debug=false" })) {
        std::fprintf(stderr, "bench_dbus: the daemon did not start\n");
        return 1;
    }
    for (int waited = 0; waited < 100 && !rig.busctl("metervalues", "s", { "modbus/1/9" }).contains("Connected"); ++waited)
        QThread::msleep(100);

    QDBusConnection bus = QDBusConnection::connectToBus(rig.busAddress(), QStringLiteral("bench"));
    QDBusInterface service(QStringLiteral("com.ovra.slavecontroller"), QStringLiteral("/MeasurementManager"),
                           QStringLiteral("com.ovra.slavecontroller.MeasurementManager"), bus);
    std::printf("D-Bus calls from one connection, three meters polled:\n");
    measureCalls(service, "current", { QStringLiteral("modbus/1/7"), 1 });
    measureCalls(service, "metervalues", { QStringLiteral("modbus/1/7") });

    const qint64 pid = rig.daemonPid();
    const double cpuBefore = ProcessStats::cpuSeconds(pid);
    QThread::sleep(idleSeconds);
    const double cpuSeconds = ProcessStats::cpuSeconds(pid) - cpuBefore;
    std::printf("Idle polling for %d s: CPU %.2f %% of one core, RSS %s\n", idleSeconds,
                100.0 * cpuSeconds / idleSeconds, ProcessStats::rss(pid).constData());
    return 0;
}
