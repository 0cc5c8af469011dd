#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// tools/metersim as a child process: the meters of a scenario on one end of a pty pair it makes,
// and any network meters its options add, logging every request it gets so that a test can see
// what went over the line.
class MeterSimulator
{
public:
    explicit MeterSimulator(const QByteArray &scenario = QByteArray());
    ~MeterSimulator();

    // Starts serving, the scenario's meters on a line whose other end is linked at link (none
    // when link is empty), plus the extra options; true once it is ready.
    bool start(const QString &link, const QStringList &options = {});
    // Sends a command line; true when the simulator answered "ok".
    bool command(const QString &line);
    // The requests made to one slave so far, in order, as "function address count", for
    // example "0x03 11 1".
    QStringList requests(int slave) const;
    // Lines of the request log that contain the fragment.
    int count(const QString &fragment) const;

    // Binding port 502 needs root, or a network namespace of one's own where we are root.
    static bool canServeModbusTcp();

private:
    QString log() const;

    QTemporaryDir _dir;
    QProcess _process;
};
