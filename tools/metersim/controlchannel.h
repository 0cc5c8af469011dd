#pragma once

#include <QByteArray>
#include <QObject>
#include <QSocketNotifier>
#include <memory>

// The line protocol with whoever drives the simulator: commands come from stdin one per line,
// answers and announcements go to stdout one per line, flushed at once so a test never waits.
class ControlChannel : public QObject
{
    Q_OBJECT

public:
    explicit ControlChannel(QObject *parent = nullptr);

    void send(const QString &line);

signals:
    void lineReceived(const QString &line);

private:
    void onReadable();
    void onEndOfInput();
    void takeLines();

    std::unique_ptr<QSocketNotifier> _notifier;
    QByteArray _pending;
    bool _skippingLongLine = false;
};
