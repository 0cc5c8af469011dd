#pragma once

#include "fault.h"

#include <QObject>
#include <QStringList>

class Meter;
class MeterBank;
class NetworkDevices;
class TcpDevice;

// Carries out the runtime commands that tests send to change the meters while they run.
class CommandInterpreter : public QObject
{
    Q_OBJECT

public:
    CommandInterpreter(MeterBank &bank, NetworkDevices &network, QObject *parent = nullptr);

    // The one-line answer: "ok" or "error <reason>".
    QString execute(const QString &line);

signals:
    void quitRequested();

private:
    QString fault(const QStringList &words);
    QString setFault(const QString &idText, Fault::Kind fault);
    QString set(const QStringList &words);
    QString quit();
    QString listening(const QString &host, bool listen);
    QString identification(const QStringList &words);
    // A meter by slave id, or the meter of the network device at that address.
    Meter *meter(const QString &idText, QString *error) const;
    TcpDevice *device(const QString &host, QString *error) const;

    MeterBank &_bank;
    NetworkDevices &_network;
};
