#pragma once

#include <QObject>
#include <QSocketNotifier>
#include <memory>

// Turns SIGTERM and SIGINT into a signal delivered by the event loop, so that quitting runs the
// normal destructors (which remove the pty symlink) instead of dying inside a signal handler.
class SignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit SignalWatcher(QObject *parent = nullptr);
    ~SignalWatcher() override;

    bool watch(QString *error);

signals:
    void terminationRequested(int signalNumber);

private:
    void onSignalled();

    int _pipe[2] = { -1, -1 };
    std::unique_ptr<QSocketNotifier> _notifier;
};
