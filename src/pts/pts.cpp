#include "pts.h"

#include "clocktimer.h"
#include "modbusmanager.h"
#include "ptsadaptor.h"

#include <QDBusConnection>
#include <QLoggingCategory>
#include <QtConcurrent/QtConcurrentRun>

#include <systemd/sd-daemon.h>

Q_LOGGING_CATEGORY(lcPts, "Pts", QtDebugMsg)

namespace {

const char *const serviceName = "com.ovra.slavecontroller";
const char *const objectPath = "/pts";
constexpr int watchdogIntervalMs = 45000;
constexpr int slaveId = 1;
constexpr quint16 pingValue = 12345;
// A task whose request never comes (ports not wired) gives up after this, with an error.
constexpr int slaveWaitSeconds = 1;
constexpr int slaveWaitUs = 500000;

modbus_t *newContext(Channel channel)
{
    return modbus_new_rtu(
        ModbusManager::devicePath(channel).toLatin1().constData(), 9600, 'N', 8, 1);
}

} // namespace

Pts::Pts(QObject *parent)
    : QObject(parent)
    , _watchdogTimer(new ClockTimer(this))
{
    QDBusConnection bus = QDBusConnection::systemBus();
    if (!bus.registerService(QLatin1String(serviceName)))
        qCCritical(lcPts) << "Failed to register service";
    new PtsAdaptor(this);
    if (!bus.registerObject(QLatin1String(objectPath), this, QDBusConnection::ExportAdaptors))
        qCCritical(lcPts) << "Failed to register pts path";

    _watchdogTimer->setInterval(watchdogIntervalMs);
    _watchdogTimer->setSingleShot(true);
    connect(_watchdogTimer, &ClockTimer::timeout, this, &Pts::_notifyWatchdog);
    _watchdogTimer->start();

    _setupFailed = !setupMaster() || !setupSlave();
}

Pts::~Pts()
{
    // Only tests get here; an answering task may still hold the slave.
    const QMutexLocker lock(&_slaveMutex);
    for (modbus_t *context : { _master, _slave }) {
        if (context) {
            modbus_close(context);
            modbus_free(context);
        }
    }
    if (_mapping)
        modbus_mapping_free(_mapping);
}

bool Pts::setupMaster()
{
    _master = newContext(Channel::Internal);
    if (!_master) {
        qCCritical(lcPts) << __func__ << "Failed to create master context";
        return false;
    }
    if (modbus_set_slave(_master, slaveId) < 0) {
        qCCritical(lcPts) << __func__ << "Failed to set master slave";
        return false;
    }
    if (modbus_connect(_master) < 0) {
        qCCritical(lcPts) << __func__ << "Failed to connect master context";
        return false;
    }
    return true;
}

bool Pts::setupSlave()
{
    _slave = newContext(Channel::External);
    if (!_slave) {
        qCCritical(lcPts) << __func__ << "Failed to create slave context";
        return false;
    }
    if (modbus_set_slave(_slave, slaveId) < 0) {
        qCCritical(lcPts) << __func__ << "Failed to set slave";
        return false;
    }
    if (modbus_connect(_slave) < 0) {
        qCCritical(lcPts) << __func__ << "Failed to connect slave context";
        return false;
    }
    modbus_set_indication_timeout(_slave, slaveWaitSeconds, slaveWaitUs);
    _mapping = modbus_mapping_new(2000, 0, 125, 0);
    if (!_mapping) {
        qCCritical(lcPts) << __func__ << "Cannot allocate m_mbMapping";
        return false;
    }
    return true;
}

bool Pts::TestRS485()
{
    return _ping();
}

bool Pts::_ping()
{
    if (_setupFailed)
        return false;
    (void)QtConcurrent::run(&Pts::_pong, this);

    quint16 value = 0;
    if (modbus_read_registers(_master, 0, 1, &value) == -1) {
        qCCritical(lcPts) << __func__ << "Error in modbus read";
        return false;
    }
    if (value != pingValue)
        return false;
    qCInfo(lcPts) << __func__ << "Ping Pong successful";
    return true;
}

void Pts::_pong()
{
    const QMutexLocker lock(&_slaveMutex);
    uint8_t query[MODBUS_RTU_MAX_ADU_LENGTH];
    int length = 0;
    // 0 means a request for another slave id: keep listening.
    while ((length = modbus_receive(_slave, query)) == 0) { }
    if (length < 0) {
        qCCritical(lcPts) << __func__ << "Error in modbus pong receive";
        return;
    }
    _mapping->tab_registers[0] = pingValue;
    if (modbus_reply(_slave, query, length, _mapping) < 0)
        qCCritical(lcPts) << __func__ << "Error in modbus pong reply";
}

void Pts::_notifyWatchdog()
{
    sd_notifyf(0, "WATCHDOG=1\n");
    _watchdogTimer->start();
}
