#pragma once

#include <QObject>
#include <QSharedPointer>
#include <QStringList>

class ClockTimer;
class ConfigurationManager;

// Starts normal mode and keeps the service manager's watchdog fed.
class MeterManager : public QObject
{
    Q_OBJECT

public:
    enum StartResult {
        Started = 0,
        SystemManagerFailed = 1,
        NameTaken = -1,
        PlatformIniMissing = -2
    };

    explicit MeterManager(QObject *parent = nullptr);
    ~MeterManager() override;

    int start(
        const QStringList &arguments, const QSharedPointer<ConfigurationManager> &configuration);
    void startWatchdog();
    static void applyPlatformOptions(const QStringList &arguments);

private slots:
    void _notifyWatchdog();

private:
    ClockTimer *_watchdogTimer;
};
