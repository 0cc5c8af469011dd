#pragma once

#include <QMutex>
#include <QObject>

#include <modbus/modbus.h>

class ClockTimer;

// The RS-485 loop test of the production line: the OCU port is a Modbus master, the External
// port a slave, and TestRS485 makes the master read a register the slave answers. Offered on
// the system bus at /pts while the unit is unconfigured; it also keeps systemd's watchdog fed.
class Pts : public QObject
{
    Q_OBJECT

public:
    explicit Pts(QObject *parent = nullptr);
    ~Pts() override;

public slots:
    bool TestRS485();

private slots:
    void _notifyWatchdog();

private:
    bool setupMaster();
    bool setupSlave();
    bool _ping();
    void _pong();

    bool _setupFailed = false;
    modbus_t *_slave = nullptr;
    modbus_t *_master = nullptr;
    modbus_mapping_t *_mapping = nullptr;
    // Two calls in quick succession start two answering tasks; they take the slave in turn.
    QMutex _slaveMutex;
    ClockTimer *_watchdogTimer;
};
