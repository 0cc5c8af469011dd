#include "modbuscontextqueue.h"

#include "clock.h"
#include "configurationmanager.h"
#include "modbuslogging.h"
#include "modbusunit.h"

#include <QThread>

#include <cerrno>

namespace {

constexpr qint64 idleSleepMs = 5000;
constexpr qint64 staleSleepMs = 5000;
constexpr qint64 stateReportIntervalMs = 900000;
constexpr int responseTimeoutUs = 500000;
// A turn in which no unit was due rests until the first one is, but at least this long.
constexpr qint64 quietTurnSleepMs = 10;

} // namespace

ModbusContextQueue::ModbusContextQueue(Channel channel, const QString &device,
    const ConfigurationManager &configuration, QObject *parent)
    : QObject(parent)
    , _channel(channel)
    , _context(_createContext(device, configuration))
{
}

ModbusContextQueue::~ModbusContextQueue()
{
    if (_context) {
        modbus_close(_context);
        modbus_free(_context);
    }
}

modbus_t *ModbusContextQueue::_createContext(
    const QString &device, const ConfigurationManager &configuration)
{
    const int baudRate = configuration.intValue(Settings::ModbusBaudrate);
    qCDebug(lcModbus) << __func__ << "Baud rate: " << baudRate;

    modbus_t *context = modbus_new_rtu(device.toLatin1().constData(), baudRate, 'N', 8, 1);
    if (!context) {
        qCCritical(lcModbus) << __func__ << "modbus_new_rtu failed: " << modbus_strerror(errno);
        return nullptr;
    }
    modbus_set_response_timeout(context, 0, responseTimeoutUs);
    modbus_set_debug(context, configuration.boolValue(Settings::ModbusDebug));
    if (modbus_connect(context) == -1) {
        qCCritical(lcModbus) << __func__ << "modbus_connect failed: " << modbus_strerror(errno);
        modbus_free(context);
        return nullptr;
    }
    // A pty or a port without RS-485 support refuses this; the line works all the same.
    modbus_rtu_set_serial_mode(context, MODBUS_RTU_RS485);
    return context;
}

void ModbusContextQueue::enqueue(ModbusUnit *unit)
{
    _queue.append(unit);
}

QString ModbusContextQueue::stateToString(int state)
{
    switch (state) {
    case Running:
        return QStringLiteral("running");
    case Stale:
        return QStringLiteral("stale");
    case Faulty:
        return QStringLiteral("faulty");
    default:
        return QStringLiteral("unknown");
    }
}

void ModbusContextQueue::pause()
{
    _running = false;
    // A loop resting after a quiet turn is still busy: it must look at the pause now.
    Clock::wakeSleepers();
}

void ModbusContextQueue::resume()
{
    _running = true;
    // The loop sleeps while paused.
    Clock::wakeSleepers();
}

void ModbusContextQueue::process()
{
    qCDebug(lcModbus) << __func__ << _queue.size();
    while (!QThread::currentThread()->isInterruptionRequested())
        _useContext();
}

void ModbusContextQueue::_useContext()
{
    // Busy first, the pause second: a borrower that pauses and then sees the loop idle knows it
    // will not start a unit until resume(). In the other order both could take the context.
    _busy = true;
    if (!_running) {
        _busy = false;
        Clock::sleepMs(idleSleepMs, [this] { return _running.load(); });
        return;
    }
    if (_queue.isEmpty()) {
        _busy = false;
        Clock::sleepMs(idleSleepMs);
        return;
    }
    ModbusUnit *unit = _queue.takeFirst();
    if (unit->isDisabled()) {
        _queue.append(unit);
        _idleIfTurnWasQuiet(false);
        return;
    }
    const quint64 requestsBefore = unit->requestCount();
    unit->useContext(_context);
    _queue.append(unit);
    _idleIfTurnWasQuiet(unit->requestCount() != requestsBefore);

    int slave = -1;
    if (_context) {
        slave = modbus_get_slave(_context);
        if (slave == -1)
            qCCritical(lcModbus) << __func__ << "Failed to get context device address, errno"
                                 << errno;
    } else {
        // Without a port every request fails at once (reported when the port failed to open);
        // take as long as a response timeout so that the loop does not spin.
        Clock::sleepMs(responseTimeoutUs / 1000);
    }

    int state = Running;
    if (unit->isFaulty()) {
        state = Faulty;
    } else if (unit->isStale()) {
        state = Stale;
        unit->resetStaleValues();
        Clock::sleepMs(staleSleepMs);
    }
    _recordState(slave, state);
    _reportStates();
}

void ModbusContextQueue::_idleIfTurnWasQuiet(bool madeRequests)
{
    if (madeRequests) {
        _quietUnits = 0;
        return;
    }
    if (++_quietUnits < _queue.size())
        return;
    _quietUnits = 0;
    qint64 restMs = idleSleepMs;
    for (const ModbusUnit *unit : std::as_const(_queue))
        restMs = qMin(restMs, unit->msUntilDue());
    // A register access pauses the loop and waits for it: the rest ends at the pause.
    Clock::sleepMs(qMax(restMs, quietTurnSleepMs), [this] { return !_running.load(); });
}

void ModbusContextQueue::_recordState(int slave, int state)
{
    const int previous = _states.value(slave, Unknown);
    if (previous == state)
        return;
    const QString text
        = QStringLiteral("Modbus device on address %1 changed context state from '%2' to '%3'")
              .arg(slave)
              .arg(stateToString(previous), stateToString(state));
    if (previous == Running)
        qCCritical(lcModbus).noquote() << "_useContext" << text;
    else
        qCInfo(lcModbus).noquote() << "_useContext" << text;
    _states.insert(slave, state);
}

void ModbusContextQueue::_reportStates()
{
    if (!_stateReportClock.hasExpired(stateReportIntervalMs))
        return;
    for (auto it = _states.cbegin(); it != _states.cend(); ++it) {
        qCDebug(lcModbus) << "_useContext"
                          << "Modbus device on address" << it.key() << "has context state"
                          << stateToString(it.value());
    }
    _stateReportClock.start();
}
