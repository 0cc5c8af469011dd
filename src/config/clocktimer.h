#pragma once

#include <QObject>

class QTimer;

// A timer that follows Clock rather than the wall: it fires when Clock::nowMs() reaches its
// deadline, whether real time passed or a test advanced the clock.
class ClockTimer : public QObject
{
    Q_OBJECT

public:
    explicit ClockTimer(QObject *parent = nullptr);
    ~ClockTimer() override;

    void setInterval(int ms) { _intervalMs = ms; }
    int interval() const { return _intervalMs; }
    void setSingleShot(bool singleShot) { _singleShot = singleShot; }
    bool isActive() const { return _active; }

    void start();
    void start(int ms);
    void stop();

    static void rearmAll();

signals:
    void timeout();

private slots:
    void _rearm();

private:
    QTimer *_timer;
    int _intervalMs = 0;
    bool _singleShot = false;
    bool _active = false;
    qint64 _deadlineMs = 0;
};
