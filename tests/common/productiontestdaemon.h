#pragma once

#include "notifysocket.h"
#include "testfiles.h"

#include <QProcess>
#include <QString>

// The real meterd on an unconfigured unit (no chargemanager.ini), so in production-test mode,
// with its two RS-485 channels on the given devices.
class ProductionTestDaemon
{
public:
    ProductionTestDaemon(
        const QString &busAddress, const QString &ocuDevice, const QString &externalDevice);
    ~ProductionTestDaemon();

    bool isReady() const { return _ready.startsWith("READY=1"); }
    QByteArray readyMessage() const { return _ready; }
    QString log() const;

private:
    TestFiles _files;
    NotifySocket _notify;
    QProcess _process;
    QByteArray _ready;
};
