#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// tools/metersim playing the meters of a scenario on one end of a pty pair it makes, logging
// every request it gets, so a test can see what went over the line.
class MeterSimulator
{
public:
    explicit MeterSimulator(const QByteArray &scenario);
    ~MeterSimulator();

    // Starts serving with the other end of the line linked at link; true once it is ready.
    bool start(const QString &link);
    // Sends a command line; true when the simulator answered "ok".
    bool command(const QString &line);
    // The requests made to one slave so far, in order, as "function address count", for
    // example "0x03 11 1".
    QStringList requests(int slave) const;

private:
    QTemporaryDir _dir;
    QProcess _process;
};
