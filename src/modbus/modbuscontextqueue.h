#pragma once

#include "elapsedclock.h"
#include "modbuspath.h"

#include <QList>
#include <QMap>
#include <QObject>

#include <atomic>

#include <modbus/modbus.h>

class ConfigurationManager;
class ModbusUnit;

// Owns the one libmodbus context of an RS-485 port and serialises every use of it: the
// channel's units are served in turn by process(), which runs in the channel's own thread.
// Register access from another thread borrows the context: pause(), wait until isBusy() is
// false, use the context, resume(). The loop announces itself busy before it looks at the pause,
// so once the borrower has seen it idle after pausing, no unit touches the context until
// resume(), though busy shows again for a moment whenever the paused loop wakes to look.
class ModbusContextQueue : public QObject
{
    Q_OBJECT

public:
    enum ContextState { Unknown = 0, Running = 1, Stale = 2, Faulty = 3 };

    ModbusContextQueue(Channel channel, const QString &device,
        const ConfigurationManager &configuration, QObject *parent = nullptr);
    ~ModbusContextQueue() override;

    Channel channel() const { return _channel; }
    void enqueue(ModbusUnit *unit);
    int unitCount() const { return int(_queue.size()); }

    void pause();
    void resume();
    bool isBusy() const { return _busy; }
    bool hasContext() const { return _context != nullptr; }
    modbus_t *context() const { return _context; }

    static QString stateToString(int state);

public slots:
    // Serves the units until the thread is asked to stop (in the daemon: never).
    void process();

private:
    modbus_t *_createContext(const QString &device, const ConfigurationManager &configuration);
    void _useContext();
    void _idleIfTurnWasQuiet(bool madeRequests);
    void _recordState(int slave, int state);
    void _reportStates();

    std::atomic<bool> _busy { false };
    std::atomic<bool> _running { true };
    QList<ModbusUnit *> _queue;
    Channel _channel;
    modbus_t *_context;
    QMap<int, int> _states;
    int _quietUnits = 0;
    ElapsedClock _stateReportClock;
};
