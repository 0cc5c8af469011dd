#pragma once

#include <QObject>

class QSocketNotifier;

// Turns SIGINT and SIGTERM into a Qt signal delivered by the event loop, so that Ctrl-C ends
// the live view through the normal return path with exit status 0 instead of killing the
// process. One instance at a time; the default dispositions come back with its destruction.
class TerminationSignals : public QObject
{
    Q_OBJECT

public:
    explicit TerminationSignals(QObject *parent = nullptr);
    ~TerminationSignals() override;

signals:
    void received();

private:
    static void _handle(int signalNumber);

    int _sockets[2] = { -1, -1 };
    QSocketNotifier *_notifier = nullptr;
};
