// A soak run: the real daemon reads 4 RS-485 meters (the simulator on a pty) and 2 Modbus TCP
// meters (the simulator on 127.0.0.43 and 127.0.0.44, port 502, so it needs root) for a chosen
// time, while faults drawn from a seeded random sequence come and go every few seconds (serial
// meters silent, slow or answering exceptions; network meters also resetting connections and
// going down and up again) and four D-Bus clients read all the time. Each time a fault clears it
// sets a fresh current in the simulator and waits for the daemon to show it, "Connected". At the
// end it prints the daemon's memory, open files and threads over the run, the clients' calls and
// errors, each meter's recoveries, anything a sanitizer wrote to the daemon's log, and a verdict
// per requirement; it exits with 0 only when every verdict is ok.
//
//   bench_soak [--minutes M] [--seed S] [--meterd PATH] [--verbose]
//
// --meterd runs another build of the daemon, e.g. build-asan/meterd; --verbose prints every
// fault phase and recovery as it happens.

#include "clientprocess.h"
#include "faultschedule.h"
#include "meterdrig.h"
#include "metersimulator.h"
#include "processsamples.h"
#include "processstats.h"
#include "soakmeter.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QThread>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

namespace {

const QByteArray scenario
    = "[7]\nmodel=EM340\n[8]\nmodel=EM111\n[9]\nmodel=EM210\n[10]\nmodel=EM26\n";
// The test suite's network meters use 127.0.0.21-32, bench_freshness 127.0.0.41-42.
const QByteArray corvix = "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/1/8\n[c]\nmeter=modbus/1/9\n"
                          "[d]\nmeter=modbus/1/10\n[e]\nmeter=modbus/127.0.0.43\n"
                          "[f]\nmeter=modbus/127.0.0.44\n";
const QStringList networkMeters { "127.0.0.43:PAC3220", "127.0.0.44:EM24:1650" };
const ClientProcess::Target service { "com.ovra.slavecontroller", "/MeasurementManager",
    "com.ovra.slavecontroller.MeasurementManager" };

constexpr double defaultMinutes = 10;
constexpr int tickMs = 50;
constexpr int sampleIntervalMs = 5000;
constexpr int recoveryPollMs = 250;
constexpr int progressIntervalMs = 60000;
// Heap and caches grow for a while after the start, the sanitizers' quarantine too; the slope is
// judged on the samples after this.
constexpr double warmUpMinutes = 2;
// A small block leaked every hundred D-Bus calls, or about 2 kB at each of the some eight faults
// a minute, comes to more than this.
constexpr double rssSlopeLimitKbPerMinute = 16;
constexpr int shownLogLines = 20;

struct Options
{
    double minutes = defaultMinutes;
    quint32 seed = 0;
    QString meterd;
    bool verbose = false;
};

std::optional<Options> parseOptions(const QStringList &arguments)
{
    Options options;
    options.seed = QRandomGenerator::system()->generate();
    for (qsizetype i = 1; i < arguments.size(); ++i) {
        const QString option = arguments[i];
        if (option == "--verbose") {
            options.verbose = true;
            continue;
        }
        bool valid = i + 1 < arguments.size();
        const QString value = arguments.value(++i);
        if (option == "--minutes")
            options.minutes = value.toDouble(&valid);
        else if (option == "--seed")
            options.seed = value.toUInt(&valid);
        else if (option == "--meterd")
            options.meterd = value;
        else
            valid = false;
        if (!valid || options.minutes <= 0)
            return std::nullopt;
    }
    return options;
}

QString stamp(qint64 ms)
{
    return QStringLiteral("[%1:%2]")
        .arg(ms / 60000, 2, 10, QLatin1Char('0'))
        .arg(ms / 1000 % 60, 2, 10, QLatin1Char('0'));
}

std::vector<SoakMeter> soakMeters()
{
    return { { "modbus/1/7", "7", "EM340", false }, { "modbus/1/8", "8", "EM111", false },
        { "modbus/1/9", "9", "EM210", false }, { "modbus/1/10", "10", "EM26", false },
        { "modbus/127.0.0.43", "127.0.0.43", "PAC3220", true },
        { "modbus/127.0.0.44", "127.0.0.44", "EM24", true } };
}

QStringList pathsOf(const std::vector<SoakMeter> &meters)
{
    QStringList paths;
    for (const SoakMeter &meter : meters)
        paths << meter.path();
    return paths;
}

QList<ClientProcess::Call> clientCalls(const std::vector<SoakMeter> &meters)
{
    const QString all = pathsOf(meters).join(',');
    return { { service, "current", "si", { all, "1,2,3" }, true },
        { service, "metervalues", "s", { all }, true },
        { service, "getErrorRate", "s", { all }, true }, { service, "meterList", {}, {}, false } };
}

// The run itself: faults, recoveries, samples. Also counts its own metervalues calls, which
// must not fail either.
class Soak
{
public:
    Soak(MeterdRig &rig, std::vector<SoakMeter> &meters, const Options &options)
        : _rig(rig)
        , _meters(meters)
        , _options(options)
        , _schedule(options.seed)
        , _samples(rig.daemonPid())
        , _bus(QDBusConnection::connectToBus(rig.busAddress(), QStringLiteral("soak")))
        , _service(service.service, service.path, service.interface, _bus)
    {
    }

    // False when the rig failed: the simulator refused a command or the daemon exited.
    bool run()
    {
        _clock.start();
        _samples.take(0);
        const qint64 endMs = qint64(_options.minutes * 60000);
        qint64 nextFaultMs = _schedule.nextGapMs();
        qint64 nextSampleMs = sampleIntervalMs;
        qint64 nextPollMs = 0;
        qint64 nextProgressMs = progressIntervalMs;
        while (_clock.elapsed() < endMs || anyBusy()) {
            const qint64 now = _clock.elapsed();
            if (!_rig.daemonRunning()) {
                std::printf("%s the daemon exited\n", qPrintable(stamp(now)));
                return false;
            }
            if (now < endMs && now >= nextFaultMs) {
                if (!startFault(now))
                    return false;
                nextFaultMs = now + _schedule.nextGapMs();
            }
            for (SoakMeter &meter : _meters) {
                const bool ok = now < endMs ? meter.advance(_rig, now) : meter.clearNow(_rig, now);
                if (!ok)
                    return false;
            }
            if (now >= nextPollMs) {
                pollRecoveries();
                nextPollMs = now + recoveryPollMs;
            }
            if (now >= nextSampleMs) {
                _samples.take(double(now) / 60000);
                nextSampleMs += sampleIntervalMs;
            }
            if (now >= nextProgressMs) {
                printProgress(now);
                nextProgressMs += progressIntervalMs;
            }
            printEvents(now);
            QThread::msleep(tickMs);
        }
        _samples.take(double(_clock.elapsed()) / 60000);
        return true;
    }

    const ProcessSamples &samples() const { return _samples; }
    qint64 elapsedMs() const { return _clock.elapsed(); }
    qint64 pollCalls() const { return _pollCalls; }
    qint64 pollErrors() const { return _pollErrors; }

private:
    bool anyBusy() const
    {
        return std::any_of(
            _meters.begin(), _meters.end(), [](const SoakMeter &meter) { return !meter.isIdle(); });
    }

    bool startFault(qint64 now)
    {
        std::vector<SoakMeter *> idle;
        for (SoakMeter &meter : _meters) {
            if (meter.isIdle())
                idle.push_back(&meter);
        }
        if (idle.empty())
            return true;
        SoakMeter *meter = idle[size_t(_schedule.pickMeter(int(idle.size())))];
        return meter->startFault(_rig, _schedule.drawFault(meter->isNetwork()), now);
    }

    void pollRecoveries()
    {
        for (SoakMeter &meter : _meters) {
            if (!meter.isRecovering())
                continue;
            const QDBusMessage reply = _service.call(QStringLiteral("metervalues"), meter.path());
            ++_pollCalls;
            if (reply.type() == QDBusMessage::ErrorMessage) {
                ++_pollErrors;
                std::printf("%s metervalues %s failed: %s: %s\n",
                    qPrintable(stamp(_clock.elapsed())), qPrintable(meter.path()),
                    qPrintable(reply.errorName()), qPrintable(reply.errorMessage()));
            }
            meter.checkRecovery(QDBusReply<QVariantMap>(reply).value(), _clock.elapsed());
        }
    }

    void printEvents(qint64 now)
    {
        for (SoakMeter &meter : _meters) {
            for (const SoakMeter::Event &event : meter.takeEvents()) {
                if (event.failure || _options.verbose)
                    std::printf("%s %s %s\n", qPrintable(stamp(now)), qPrintable(meter.path()),
                        qPrintable(event.text));
            }
        }
        std::fflush(stdout);
    }

    void printProgress(qint64 now)
    {
        int cleared = 0;
        int recovered = 0;
        for (const SoakMeter &meter : _meters) {
            cleared += meter.faultsCleared();
            recovered += meter.recoveriesSeen();
        }
        const ProcessSamples::Sample sample = _samples.last();
        std::printf("%s RSS %lld kB, %d fds, %d threads; faults cleared %d, recovered %d\n",
            qPrintable(stamp(now)), static_cast<long long>(sample.rssKb), sample.fds,
            sample.threads, cleared, recovered);
    }

    MeterdRig &_rig;
    std::vector<SoakMeter> &_meters;
    const Options &_options;
    FaultSchedule _schedule;
    ProcessSamples _samples;
    QDBusConnection _bus;
    QDBusInterface _service;
    QElapsedTimer _clock;
    qint64 _pollCalls = 0;
    qint64 _pollErrors = 0;
};

// Lines of the daemon's log where AddressSanitizer, LeakSanitizer or UndefinedBehaviorSanitizer
// reported something.
QStringList sanitizerLines(const QString &log)
{
    static const QRegularExpression report(
        QStringLiteral("AddressSanitizer|LeakSanitizer|UndefinedBehaviorSanitizer|runtime error:"));
    QStringList lines;
    for (const QString &line : log.split('\n')) {
        if (line.contains(report))
            lines << line;
    }
    return lines;
}

// AddressSanitizer's quarantine and its store of allocation stacks grow for a long time by
// design, so the resident memory of a daemon built with it says little about leaks.
bool usesAddressSanitizer(qint64 pid)
{
    return ProcessStats::procFile(pid, "maps").contains("libasan");
}

const char *verdict(bool met)
{
    return met ? "ok" : "FAILED";
}

void printResources(const ProcessSamples &samples, double slopeAll, double slopeSettled)
{
    const ProcessSamples::Sample first = samples.first();
    const ProcessSamples::Sample last = samples.last();
    const ProcessSamples::Sample peak = samples.peak();
    std::printf("\nDaemon, %lld samples every %d s   start      end      max\n",
        static_cast<long long>(samples.count()), sampleIntervalMs / 1000);
    std::printf("  RSS kB                      %8lld %8lld %8lld\n",
        static_cast<long long>(first.rssKb), static_cast<long long>(last.rssKb),
        static_cast<long long>(peak.rssKb));
    std::printf("  open fds                    %8d %8d %8d\n", first.fds, last.fds, peak.fds);
    std::printf(
        "  threads                     %8d %8d %8d\n", first.threads, last.threads, peak.threads);
    std::printf("  RSS slope: %.2f kB/min over the whole run, %.2f kB/min after the first %.0f "
                "min\n",
        slopeAll, slopeSettled, warmUpMinutes);
}

// Returns the number of D-Bus errors the clients saw.
qint64 printClients(const QList<ClientProcess::Call> &calls,
    const QList<ClientProcess::Figures> &figures, const QStringList &failures)
{
    std::printf("\nD-Bus clients          calls   calls/s  errors   p50 ms   p99 ms   max ms\n");
    qint64 errors = 0;
    double rate = 0;
    for (qsizetype i = 0; i < calls.size(); ++i) {
        const ClientProcess::Figures &run = figures[i];
        std::printf("  %-16s %9.0f %9.1f %7.0f %8.3f %8.3f %8.1f\n", qPrintable(calls[i].method),
            run.value("calls"), run.value("rate"), run.value("errors"), run.value("p50_us") / 1000,
            run.value("p99_us") / 1000, run.value("max_us") / 1000);
        errors += qint64(run.value("errors"));
        rate += run.value("rate");
        if (!failures[i].isEmpty())
            std::printf("%s\n", qPrintable(failures[i]));
    }
    std::printf("  all four: %.1f calls/s\n", rate);
    return errors;
}

// Returns whether every fault was followed by a recovery.
bool printMeters(const std::vector<SoakMeter> &meters)
{
    std::printf("\nMeter                       faults  recovered  longest s  mean s  allowed s  "
                "phases\n");
    bool all = true;
    for (const SoakMeter &meter : meters) {
        QStringList phases;
        for (auto it = meter.phasesByKind().cbegin(); it != meter.phasesByKind().cend(); ++it)
            phases << QStringLiteral("%1 %2").arg(it.key()).arg(it.value());
        std::printf("  %-17s %-7s %6d %10d %10.1f %7.1f %10.0f  %s\n", qPrintable(meter.path()),
            qPrintable(meter.model()), meter.faultsCleared(), meter.recoveriesSeen(),
            double(meter.longestRecoveryMs()) / 1000,
            meter.recoveriesSeen() > 0
                ? double(meter.totalRecoveryMs()) / 1000 / meter.recoveriesSeen()
                : 0.0,
            double(meter.recoveryAllowanceMs()) / 1000, qPrintable(phases.join(", ")));
        all = all && meter.recoveriesSeen() == meter.faultsCleared();
    }
    return all;
}

// One client per call, each calling from now on; empty when one of them could not start.
std::vector<std::unique_ptr<ClientProcess>> startClients(
    const QString &address, const QList<ClientProcess::Call> &calls)
{
    std::vector<std::unique_ptr<ClientProcess>> clients;
    for (const ClientProcess::Call &call : calls) {
        clients.push_back(std::make_unique<ClientProcess>(address, call));
        if (!clients.back()->isReady())
            return {};
    }
    return clients;
}

// Keeps the daemon's log beyond the rig's temporary directory, for a closer look.
void saveLog(const QString &log, quint32 seed)
{
    const QString path
        = QDir::temp().filePath(QStringLiteral("bench_soak-meterd-%1.log").arg(seed));
    const QByteArray bytes = log.toUtf8();
    QFile file(path);
    if (file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size())
        std::printf("\nThe daemon's log: %s\n", qPrintable(path));
}

struct Verdicts
{
    bool noErrors = false;
    bool allRecovered = false;
    // Not judged (and so met) for a daemon built with AddressSanitizer.
    bool slopeMet = false;
    bool sanitized = false;
    bool fdsBack = false;
    bool threadsBack = false;
    bool noSanitizerReport = false;

    bool all() const
    {
        return noErrors && allRecovered && slopeMet && fdsBack && threadsBack && noSanitizerReport;
    }
};

void printVerdicts(const Verdicts &verdicts)
{
    std::printf("\nVerdicts\n");
    std::printf(
        "  daemon running to the end, 0 D-Bus errors:          %s\n", verdict(verdicts.noErrors));
    std::printf("  every fault cleared was recovered:                  %s\n",
        verdict(verdicts.allRecovered));
    std::printf("  RSS slope after %.0f min within +-%.0f kB/min:           %s\n", warmUpMinutes,
        rssSlopeLimitKbPerMinute,
        verdicts.sanitized ? "not judged, AddressSanitizer's allocator"
                           : verdict(verdicts.slopeMet));
    std::printf(
        "  open fds back to their start level:                 %s\n", verdict(verdicts.fdsBack));
    std::printf("  threads back to their start level:                  %s\n",
        verdict(verdicts.threadsBack));
    std::printf("  no sanitizer report:                                %s\n",
        verdict(verdicts.noSanitizerReport));
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const std::optional<Options> parsed = parseOptions(app.arguments());
    if (!parsed) {
        std::fprintf(
            stderr, "usage: bench_soak [--minutes M] [--seed S] [--meterd PATH] [--verbose]\n");
        return 2;
    }
    const Options &options = *parsed;
    if (!MeterSimulator::canServeModbusTcp()) {
        std::fprintf(stderr, "bench_soak: the network meters need port 502: run as root\n");
        return 1;
    }
    std::printf("Soak run of %.1f min, seed %u (repeat with --seed %u), meterd %s\n",
        options.minutes, options.seed, options.seed,
        options.meterd.isEmpty() ? "of this tree" : qPrintable(options.meterd));

    MeterdRig rig(scenario, corvix, networkMeters);
    if (!options.meterd.isEmpty())
        rig.setDaemonBinary(options.meterd);
    std::vector<SoakMeter> meters = soakMeters();
    if (!rig.start({ "QT_LOGGING_RULES=*.debug=false" }) || !rig.waitConnected(pathsOf(meters))) {
        std::fprintf(stderr,
            "bench_soak: the daemon did not start or its meters did not answer\n%s",
            qPrintable(rig.daemonLog()));
        return 1;
    }
    const QList<ClientProcess::Call> calls = clientCalls(meters);
    const std::vector<std::unique_ptr<ClientProcess>> clients
        = startClients(rig.busAddress(), calls);
    if (clients.empty()) {
        std::fprintf(stderr, "bench_soak: a D-Bus client did not start\n");
        return 1;
    }
    std::printf("6 meters connected, 4 clients calling current, metervalues, getErrorRate and "
                "meterList\n");

    Soak soak(rig, meters, options);
    const bool rigHeld = soak.run();
    QList<ClientProcess::Figures> figures;
    QStringList failures;
    for (const std::unique_ptr<ClientProcess> &client : clients) {
        figures << client->stop();
        failures << client->failures();
    }

    const bool daemonRan = rig.daemonRunning();
    Verdicts verdicts;
    verdicts.sanitized = usesAddressSanitizer(rig.daemonPid());
    const ProcessSamples &samples = soak.samples();
    const double slopeSettled = samples.rssSlopeKbPerMinute(warmUpMinutes);
    std::printf("\nRan %.1f min: faults for %.1f, then the last ones cleared and their recoveries "
                "awaited\n",
        double(soak.elapsedMs()) / 60000, options.minutes);
    printResources(samples, samples.rssSlopeKbPerMinute(0), slopeSettled);
    const qint64 clientErrors = printClients(calls, figures, failures);
    std::printf("  recovery checks: %lld metervalues calls, %lld errors\n",
        static_cast<long long>(soak.pollCalls()), static_cast<long long>(soak.pollErrors()));
    verdicts.allRecovered = printMeters(meters);

    const QString log = rig.daemonLog();
    saveLog(log, options.seed);
    const QStringList sanitizer = sanitizerLines(log);
    std::printf("Sanitizer reports in it: %lld lines\n", static_cast<long long>(sanitizer.size()));
    for (const QString &line : sanitizer.mid(0, shownLogLines))
        std::printf("  %s\n", qPrintable(line));

    verdicts.noErrors = daemonRan && clientErrors == 0 && soak.pollErrors() == 0;
    verdicts.slopeMet = verdicts.sanitized || std::abs(slopeSettled) <= rssSlopeLimitKbPerMinute;
    verdicts.fdsBack = samples.last().fds <= samples.first().fds;
    verdicts.threadsBack = samples.last().threads <= samples.first().threads;
    verdicts.noSanitizerReport = sanitizer.isEmpty();
    printVerdicts(verdicts);
    if (!rigHeld)
        std::printf("  the run was cut short (see above)\n");
    return rigHeld && verdicts.all() ? 0 : 1;
}
