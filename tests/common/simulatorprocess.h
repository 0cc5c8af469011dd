#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

// The meter simulator as a child process: started with its options, driven by its command
// lines, and heard through its verbose request log.
class SimulatorProcess
{
public:
    ~SimulatorProcess();

    // Starts it with --verbose and waits for "ready"; false when it did not get there.
    bool start(const QStringList &arguments);
    // Sends a command line; true when it answered "ok".
    bool command(const QString &line);
    // Request log lines seen so far that contain the fragment.
    int count(const QString &fragment);
    QString log();

    // Binding port 502 needs root, or a network namespace of one's own where we are root.
    static bool canServeModbusTcp();

private:
    QProcess _process;
    QString _log;
};
