#pragma once

#include "metersimulator.h"
#include "notifysocket.h"
#include "privatebus.h"
#include "testfiles.h"

#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>

// The daemon's main job on a test bench: a private system bus, the meter simulator on one end
// of a pty pair, and the real meterd on the other, configured by corvix.ini to poll the
// simulated meters on the External channel, and the network meters the simulator plays when
// given (--tcp HOST:MODEL[:IDCODE]; corvix.ini must name them too).
class MeterdRig
{
public:
    // With a policy directory, the bus enforces it as the system bus does (see PrivateBus).
    MeterdRig(const QByteArray &scenario, const QByteArray &corvix,
        const QStringList &networkMeters = {}, const QString &policyDirectory = {});
    ~MeterdRig();

    // Another build of the daemon than this tree's, e.g. to compare benchmark figures.
    void setDaemonBinary(const QString &path) { _daemonBinary = path; }
    // Starts everything and waits for the daemon's readiness; false when a part did not start.
    bool start(const QStringList &extraEnvironment = {});

    QString busAddress() const { return _bus.address(); }
    qint64 daemonPid() const { return _meterd.processId(); }
    // False once the daemon has exited, by a crash or a sanitizer's abort say.
    bool daemonRunning();
    QString daemonLog() const;
    // Waits up to 30 s until metervalues shows every one of the meters "Connected".
    bool waitConnected(const QStringList &paths) const;

    // Calls a method of the measurement service with busctl and returns what it printed, e.g.
    // "d 230.1"; arguments as busctl takes them after the signature.
    QString busctl(const QString &method, const QString &signature = QString(),
        const QStringList &arguments = {}) const;
    // Sends a command line to the simulator; true when it answered "ok".
    bool simulator(const QString &command) { return _simulator.command(command); }

private:
    TestFiles _files;
    PrivateBus _bus;
    NotifySocket _notify;
    QStringList _networkMeters;
    MeterSimulator _simulator;
    QProcess _meterd;
    QString _daemonBinary;
};
