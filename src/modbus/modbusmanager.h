#pragma once

#include "meterregistry.h"
#include "requiredmodbusmeter.h"

#include <QList>
#include <QMap>
#include <QObject>

#include <atomic>
#include <functional>

#include <modbus/modbus.h>

class ConfigurationManager;
class EnergyMeter;
class ModbusContextQueue;
class ModbusUnit;
class QThread;
class QThreadPool;

// Makes the meters that configuration asks for: the Modbus RTU meters of the External channel
// (the Internal one belongs to the OCU units and is not set up here) and the Modbus TCP
// meters. The factories keep this transport layer free of the meter models.
struct ModbusUnitFactory
{
    std::function<ModbusUnit *(const RequiredModbusMeter &meter)> rtuMeter;
    std::function<EnergyMeter *(const QString &address, quint16 port)> tcpMeter;
};

// Where the manager learns which meters configuration requires. Each list is asked for once,
// when it is needed: the TCP addresses first, the RTU meters as their channel is set up.
struct RequiredMeterSources
{
    std::function<QList<QString>()> tcpAddresses;
    std::function<QList<RequiredModbusMeter>()> rtuMeters;
};

// Process-wide owner of everything Modbus: channel devices, the units and their context queues
// in reader threads of their own, the TCP meters, lookups by path and single-register access.
class ModbusManager : public QObject, public MeterRegistry
{
    Q_OBJECT

public:
    ModbusManager(const ConfigurationManager &configuration, const RequiredMeterSources &required,
        const ModbusUnitFactory &factory, QObject *parent = nullptr);
    ~ModbusManager() override;

    static ModbusManager *instance();
    static QString devicePath(Channel channel);

    EnergyMeter *getMeter(const ModbusPath &path);
    EnergyMeter *getMeter(quint8 address);
    EnergyMeter *tcpMeter(const QString &address) const;
    ModbusUnit *unit(const ModbusPath &path) const;
    ModbusContextQueue *queue(Channel channel) const { return _queues.value(channel); }

    // Single-register access for the manager's thread (the D-Bus service), which does not wait
    // for it. It runs in the channel's register thread, one access at a time per channel in the
    // order asked for, and hands its result to done there: false or 0 when the channel, its
    // context or the pause could not be had, the transfer failed, or the manager went away before
    // the access started.
    void writeRegister(Channel channel, int slave, int registerAddress, quint16 value,
        std::function<void(bool written)> done);
    void readRegister(
        Channel channel, int slave, int registerAddress, std::function<void(quint16 value)> done);

    EnergyMeter *meterAt(const ModbusPath &path) override { return getMeter(path); }
    EnergyMeter *tcpMeterAt(const QString &address) override { return tcpMeter(address); }

private:
    void _createTcpMeters(const QList<QString> &addresses, const ModbusUnitFactory &factory);
    void _setupModbusChannel(Channel channel,
        const std::function<QList<RequiredModbusMeter>()> &requiredMeters,
        const ModbusUnitFactory &factory);
    // Made on first use, in the manager's thread.
    QThreadPool *_registerThread(Channel channel);
    // In the channel's register thread: pauses the channel's queue, runs the transfer with its
    // context, resumes the queue and hands the result to done; failure when the queue, its
    // context or the pause could not be had.
    template <typename Result>
    void _withPausedContext(Channel channel, Result failure,
        std::function<Result(modbus_t *)> transfer, std::function<void(Result)> done);
    // Pauses the queue and waits, in 10 ms steps up to 4 s, until its loop is seen idle; when it
    // is not, resumes the queue and answers false.
    static bool _pauseWhenIdle(ModbusContextQueue *queue);
    // Selects the slave, then makes up to three attempts; false when none succeeded.
    static bool _transfer(modbus_t *context, int slave, const std::function<bool()> &attempt);

    const ConfigurationManager &_configuration;
    QMap<Channel, QMap<quint8, ModbusUnit *>> _units;
    QMap<Channel, ModbusContextQueue *> _queues;
    QMap<Channel, QThread *> _threads;
    QMap<Channel, QThreadPool *> _registerThreads;
    std::atomic<bool> _closing { false };
    QMap<QString, EnergyMeter *> _tcpMeters;
    QList<ModbusUnit *> _ownedUnits;
};
