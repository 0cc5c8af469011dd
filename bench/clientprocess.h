#pragma once

#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>

// bench_client, the benchmarks' sd-bus client, as a child process: either a fixed number of
// calls that run() waits for, or an object that calls in a loop from its construction until
// stop().
class ClientProcess
{
public:
    struct Target
    {
        QString service;
        QString path;
        QString interface;
    };

    struct Call
    {
        Target target;
        QString method;
        QString signature;
        QStringList arguments;
        // Each argument lists values separated by commas, taken in turn call by call.
        bool spread = false;
    };

    // What bench_client printed: calls, errors, seconds, rate, p50_us, p99_us, max_us.
    using Figures = QMap<QString, double>;

    // Makes calls calls spread over processes processes and returns their figures.
    static Figures run(const QString &address, const Call &call, int calls, int processes);

    ClientProcess(const QString &address, const Call &call);
    // Whether the client connected to the bus and began calling.
    bool isReady() const { return _ready; }
    Figures stop();
    // The failed calls the client described on stderr, the first few of them.
    QString failures() const { return _failures; }

private:
    static QStringList arguments(const QString &address, const Call &call);
    static Figures parse(const QByteArray &output);

    QProcess _client;
    bool _ready = false;
    QString _failures;
};
