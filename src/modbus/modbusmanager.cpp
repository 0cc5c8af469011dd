#include "modbusmanager.h"

#include "clock.h"
#include "energymeter.h"
#include "modbuscontextqueue.h"
#include "modbuslogging.h"
#include "modbusunit.h"
#include "pathoverride.h"

#include <QThread>
#include <QThreadPool>

#include <cerrno>

namespace {

constexpr quint16 modbusTcpPort = 502;
constexpr int busyPollIntervalMs = 10;
constexpr int busyPollLimit = 400;
constexpr int transferAttempts = 3;
constexpr int transferPauseMs = 10;

ModbusManager *processManager = nullptr;

} // namespace

ModbusManager::ModbusManager(const ConfigurationManager &configuration,
    const RequiredMeterSources &required, const ModbusUnitFactory &factory, QObject *parent)
    : QObject(parent)
    , _configuration(configuration)
{
    processManager = this;
    registerInstance();
    _createTcpMeters(required.tcpAddresses(), factory);
    _setupModbusChannel(Channel::External, required.rtuMeters, factory);
}

ModbusManager::~ModbusManager()
{
    // The daemon never gets here; tests do, and must not leave threads running or register
    // accesses unanswered. The access under way finishes while the readers still run (it may be
    // waiting for one to pause); those not started yet fail without touching the bus.
    _closing = true;
    for (QThreadPool *registerThread : std::as_const(_registerThreads))
        registerThread->waitForDone();
    for (QThread *thread : std::as_const(_threads)) {
        thread->requestInterruption();
        thread->quit();
    }
    Clock::wakeSleepers();
    for (QThread *thread : std::as_const(_threads)) {
        thread->wait();
        delete thread;
    }
    qDeleteAll(_queues);
    qDeleteAll(_ownedUnits);
    qDeleteAll(_tcpMeters);
    if (processManager == this)
        processManager = nullptr;
}

ModbusManager *ModbusManager::instance()
{
    return processManager;
}

QString ModbusManager::devicePath(Channel channel)
{
    switch (channel) {
    case Channel::Internal:
        return PathOverride::path("CM_MODBUS_OCU_DEVICE", QStringLiteral("/dev/ttyModbusOcu"));
    case Channel::External:
        return PathOverride::path("CM_MODBUS_EXT_DEVICE", QStringLiteral("/dev/ttyModbusExt"));
    case Channel::Invalid:
        break;
    }
    qCCritical(lcModbus) << __func__ << "Incorrect configuration detected. Expect trouble ahead!";
    return QString();
}

void ModbusManager::_createTcpMeters(
    const QList<QString> &addresses, const ModbusUnitFactory &factory)
{
    for (const QString &address : addresses) {
        if (!factory.tcpMeter) {
            qCWarning(lcModbus) << __func__ << "No Modbus TCP meter support, ignoring meter at"
                                << address;
            continue;
        }
        _tcpMeters.insert(address, factory.tcpMeter(address, modbusTcpPort));
    }
}

void ModbusManager::_setupModbusChannel(Channel channel,
    const std::function<QList<RequiredModbusMeter>()> &requiredMeters,
    const ModbusUnitFactory &factory)
{
    const QString name = ModbusPath::channelName(channel);
    qCInfo(lcModbus) << __func__ << "Setting up modbus channel:" << name;
    auto *queue = new ModbusContextQueue(channel, devicePath(channel), _configuration);
    _queues.insert(channel, queue);

    for (const RequiredModbusMeter &meter : requiredMeters()) {
        if (meter.path.channel != channel) {
            qCDebug(lcModbus) << __func__
                              << "Ignoring meter on different channel:" << meter.path.toString();
            continue;
        }
        qCInfo(lcModbus) << __func__ << "Adding meter for path" << meter.path.toString();
        ModbusUnit *unit = factory.rtuMeter(meter);
        _ownedUnits.append(unit);
        // A second meter at the same address replaces the first in lookups; both are polled.
        _units[channel].insert(meter.path.address, unit);
        queue->enqueue(unit);
    }

    if (_units.value(channel).isEmpty())
        qCDebug(lcModbus) << __func__ << "No units configured for modbus channel:" << name;
    qCDebug(lcModbus) << __func__ << "Starting reader thread for modbus channel" << name << "with"
                      << _units.value(channel).size() << "configured units.";

    auto *thread = new QThread;
    thread->setObjectName(QStringLiteral("modbus.") + name);
    queue->moveToThread(thread);
    connect(thread, &QThread::started, queue, &ModbusContextQueue::process);
    thread->start(QThread::InheritPriority);
    _threads.insert(channel, thread);
}

ModbusUnit *ModbusManager::unit(const ModbusPath &path) const
{
    return _units.value(path.channel).value(path.address);
}

EnergyMeter *ModbusManager::getMeter(const ModbusPath &path)
{
    ModbusUnit *found = unit(path);
    if (found && found->unitType() == 0) {
        if (auto *meter = dynamic_cast<EnergyMeter *>(found))
            return meter;
    }
    qCWarning(lcModbus) << __func__ << "Failed to get requested Modbus meter at: " << path.address
                        << "@" << devicePath(path.channel);
    return nullptr;
}

EnergyMeter *ModbusManager::getMeter(quint8 address)
{
    return getMeter(ModbusPath { Channel::Internal, address });
}

EnergyMeter *ModbusManager::tcpMeter(const QString &address) const
{
    return _tcpMeters.value(address);
}

QThreadPool *ModbusManager::_registerThread(Channel channel)
{
    QThreadPool *&pool = _registerThreads[channel];
    if (!pool) {
        // One thread: accesses to a channel run one after the other, in the order asked for.
        pool = new QThreadPool(this);
        pool->setMaxThreadCount(1);
    }
    return pool;
}

template <typename Result>
void ModbusManager::_withPausedContext(Channel channel, Result failure,
    std::function<Result(modbus_t *)> transfer, std::function<void(Result)> done)
{
    ModbusContextQueue *queue = _queues.value(channel);
    if (!queue) {
        qCWarning(lcModbus) << "invalid channel!";
        done(failure);
        return;
    }
    modbus_t *context = queue->context();
    if (!context) {
        qCWarning(lcModbus) << "context not valid!";
        done(failure);
        return;
    }
    _registerThread(channel)->start(
        [this, queue, context, failure, transfer = std::move(transfer), done = std::move(done)] {
            if (_closing || !_pauseWhenIdle(queue)) {
                done(failure);
                return;
            }
            const Result result = transfer(context);
            queue->resume();
            done(result);
        });
}

bool ModbusManager::_pauseWhenIdle(ModbusContextQueue *queue)
{
    queue->pause();
    // One look decides: once the paused loop has been seen idle it stays off the context,
    // though it shows busy for a moment whenever it wakes to look at the pause.
    bool idle = !queue->isBusy();
    for (int poll = 0; poll < busyPollLimit && !idle; ++poll) {
        QThread::msleep(busyPollIntervalMs);
        idle = !queue->isBusy();
    }
    if (!idle)
        queue->resume();
    return idle;
}

bool ModbusManager::_transfer(modbus_t *context, int slave, const std::function<bool()> &attempt)
{
    if (!ModbusUnit::selectSlave(context, slave))
        return false;
    for (int i = 0; i < transferAttempts; ++i) {
        QThread::msleep(transferPauseMs);
        if (attempt())
            return true;
    }
    return false;
}

void ModbusManager::writeRegister(Channel channel, int slave, int registerAddress, quint16 value,
    std::function<void(bool written)> done)
{
    _withPausedContext<bool>(
        channel, false,
        [=](modbus_t *context) {
            const bool written = _transfer(context, slave,
                [&] { return modbus_write_register(context, registerAddress, value) != -1; });
            if (!written)
                qCWarning(lcModbus) << "could not set register,"
                                    << "errno " << modbus_strerror(errno);
            return written;
        },
        std::move(done));
}

void ModbusManager::readRegister(
    Channel channel, int slave, int registerAddress, std::function<void(quint16 value)> done)
{
    _withPausedContext<quint16>(
        channel, 0,
        [=](modbus_t *context) {
            quint16 value = 0;
            const bool read = _transfer(context, slave,
                [&] { return modbus_read_registers(context, registerAddress, 1, &value) != -1; });
            if (!read) {
                value = 0;
                qCWarning(lcModbus) << "could not read register for slave id" << slave << " : "
                                    << registerAddress << "errno " << modbus_strerror(errno);
            }
            return value;
        },
        std::move(done));
}
