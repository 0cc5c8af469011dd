#include "daemonenvironment.h"
#include "installtree.h"
#include "modbusmanager.h"
#include "notifysocket.h"
#include "productiontestdaemon.h"
#include "ptypair.h"
#include "registerslave.h"
#include "systembus.h"
#include "testfiles.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <unistd.h>

// The daemon as installed: its systemd unit, checked offline by systemd, and its system bus
// policy, loaded by a bus configured like Debian's system bus, with the real meterd on it and
// callers running as root and as nobody.
namespace {

const QString serviceName = QStringLiteral("com.ovra.slavecontroller");
const QString measurementPath = QStringLiteral("/MeasurementManager");
const QString measurementInterface = QStringLiteral("com.ovra.slavecontroller.MeasurementManager.");
const QString ptsPath = QStringLiteral("/pts");
const QString busInterface = QStringLiteral("org.freedesktop.DBus.");

// meterd sends WATCHDOG=1 on a fixed 45 s timer, whatever the unit says.
constexpr qint64 keepAliveMicroseconds = 45 * 1000 * 1000;
// The Modbus slave on the External line, and the register the write tests use.
constexpr int slaveAddress = 5;
constexpr int writtenRegister = 100;

// Calling as another user (setpriv) needs root, as the suite has in CI.
#define REQUIRE_ROOT()                                                                             \
    do {                                                                                           \
        if (geteuid() != 0)                                                                        \
            QSKIP("Calls as root and as nobody need the test to run as root");                     \
    } while (false)

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// A time span in the unit's syntax, in microseconds, as systemd parses it; -1 when it does not.
qint64 timespan(const QString &value)
{
    const ToolResult result
        = runTool(QStringLiteral("systemd-analyze"), { QStringLiteral("timespan"), value });
    for (const QString &line : result.output.split('\n')) {
        const QString trimmed = line.trimmed();
        if (result.exitCode == 0 && trimmed.startsWith(QStringLiteral("μs:")))
            return trimmed.mid(3).trimmed().toLongLong();
    }
    return -1;
}

// The real meterd on the test's bus in normal mode, reading one meter over a pty line on which
// a Modbus slave answers at another address.
class MeasurementDaemon
{
public:
    explicit MeasurementDaemon(const QString &busAddress)
    {
        _files.write("platform.ini", "[outlet]\nsize=0\n");
        _files.write("chargemanager.ini", "localcontroller=1\n");
        _files.write("corvix.ini", "[grid]\nmeter=modbus/1/7\n");
        _files.write("platform.conf", "serialno=PKG\n");
        QProcessEnvironment environment = daemonEnvironment(_files, busAddress, _notify.path());
        environment.insert("CM_MODBUS_EXT_DEVICE", _line.first());
        _process.setProcessEnvironment(environment);
        _process.setStandardErrorFile(_files.path("meterd.log"));
    }

    ~MeasurementDaemon()
    {
        _process.terminate();
        _process.waitForFinished();
    }

    // Starts the slave and meterd and waits for readiness; false when it did not get there.
    bool start()
    {
        if (!_line.isReady())
            return false;
        _slave = std::make_unique<RegisterSlave>(_line.second(), slaveAddress);
        if (!_slave->isReady())
            return false;
        _slave->setRegister(writtenRegister, 0);
        _process.start(QStringLiteral(METERD_BINARY), {});
        if (!_process.waitForStarted())
            return false;
        // A daemon that fails to start up ends without READY=1.
        for (int waited = 0; waited < 150; ++waited) {
            if (_notify.receive(100).startsWith("READY=1"))
                return true;
            _process.waitForFinished(0);
            if (_process.state() == QProcess::NotRunning)
                return false;
        }
        return false;
    }

    RegisterSlave *slave() const { return _slave.get(); }
    QString log() const { return readFile(_files.path("meterd.log")); }

private:
    TestFiles _files;
    PtyPair _line;
    NotifySocket _notify;
    std::unique_ptr<RegisterSlave> _slave;
    QProcess _process;
};

// meterd in production-test mode with its two ports wired to each other.
struct ProductionTest
{
    explicit ProductionTest(const QString &busAddress)
        : daemon(busAddress, line.first(), line.second())
    {
    }

    PtyPair line;
    ProductionTestDaemon daemon;
};

} // namespace

class TestService : public QObject
{
    Q_OBJECT

private:
    InstallTree _tree;
    QString _unit;
    std::unique_ptr<SystemBus> _bus;
    // At most one daemon runs, as both take the service's name.
    std::unique_ptr<MeasurementDaemon> _measurement;
    std::unique_ptr<ProductionTest> _productionTest;
    bool _measurementFailed = false;

    QString policyDirectory() const
    {
        return _tree.path(QStringLiteral(METERD_INSTALLED_POLICYDIR));
    }

    // Starts meterd in normal mode, once; a start that failed is not tried again for every row.
    bool measurementDaemonRunning()
    {
        _productionTest.reset();
        if (_measurement || _measurementFailed)
            return !_measurementFailed;
        _measurement = std::make_unique<MeasurementDaemon>(_bus->address());
        if (_measurement->start())
            return true;
        qWarning().noquote() << _measurement->log();
        _measurement.reset();
        _measurementFailed = true;
        return false;
    }

    bool productionTestDaemonRunning()
    {
        _measurement.reset();
        if (!_productionTest) {
            _productionTest = std::make_unique<ProductionTest>(_bus->address());
            if (!_productionTest->daemon.isReady())
                qWarning().noquote() << _productionTest->daemon.log();
        }
        return _productionTest->daemon.isReady();
    }

    BusCallResult call(const QString &user, const QString &path, const QString &member,
        const QStringList &arguments) const
    {
        return callAs(user, _bus->address(), serviceName, path, member, arguments);
    }

    // Compares a call's outcome with the expectation: refused by the bus, or answered by the
    // daemon with a reply that contains `replyContains`.
    static void checkOutcome(const BusCallResult &result, bool denied, const QString &replyContains)
    {
        const QString outcome = QStringLiteral("exit %1, reply: %2, error: %3")
                                    .arg(result.exitCode)
                                    .arg(result.reply, result.error);
        if (denied) {
            QVERIFY2(result.accessDenied(), qPrintable(outcome));
        } else {
            QVERIFY2(result.exitCode == 0, qPrintable(outcome));
            QVERIFY2(result.reply.contains(replyContains), qPrintable(outcome));
        }
    }

private slots:
    void initTestCase()
    {
        QString log;
        QVERIFY2(_tree.install(QStringLiteral(METERD_BUILD_DIR), &log), qPrintable(log));
        _unit = readFile(_tree.path(QStringLiteral(METERD_INSTALLED_UNIT)));
        QVERIFY2(!_unit.isEmpty(), METERD_INSTALLED_UNIT " is not installed");
        QVERIFY(
            QFile::exists(policyDirectory() + QStringLiteral("/com.ovra.slavecontroller.conf")));
        _bus = std::make_unique<SystemBus>(policyDirectory());
        QVERIFY2(_bus->isReady(), qPrintable(_bus->startupLog()));
    }

    void cleanupTestCase()
    {
        _measurement.reset();
        _productionTest.reset();
        _bus.reset();
    }

    // systemd accepts the installed unit without a remark, its ExecStart names the installed
    // binary; and the check does report a misspelt setting and a binary that is not there.
    void unitVerifies_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<bool>("clean");
        QTest::newRow("as installed") << QString() << QString() << true;
        QTest::newRow("misspelt setting") << "WatchdogSec="
                                          << "WatchdogSecs=" << false;
        QTest::newRow("ExecStart beside the binary") << "/meterd\n"
                                                     << "/meterd.missing\n"
                                                     << false;
    }

    void unitVerifies()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(bool, clean);
        QString unit = _unit;
        if (!from.isEmpty()) {
            QVERIFY(unit.contains(from));
            unit.replace(from, to);
        }
        const ToolResult result = verifyUnit(QStringLiteral("meterd.service"), unit, _tree.root());
        const bool passed = result.exitCode == 0 && result.output.trimmed().isEmpty();
        QVERIFY2(passed == clean, qPrintable(result.output));
    }

    // systemd takes the daemon's keep-alives (the main process may notify) and does not kill a
    // daemon that sends them on time.
    void keepAliveAccepted()
    {
        const QStringList type = unitValues(_unit, QStringLiteral("Type"));
        QVERIFY(!type.isEmpty());
        QCOMPARE(type.constLast(), QStringLiteral("notify"));
        const QStringList access = unitValues(_unit, QStringLiteral("NotifyAccess"));
        // Type=notify defaults to NotifyAccess=main.
        QVERIFY2(access.isEmpty() || access.constLast() == QStringLiteral("main")
                || access.constLast() == QStringLiteral("all"),
            qPrintable(access.join(' ')));
        const QStringList watchdog = unitValues(_unit, QStringLiteral("WatchdogSec"));
        QVERIFY2(!watchdog.isEmpty(), "no watchdog");
        const qint64 timeout = timespan(watchdog.constLast());
        QVERIFY2(timeout > keepAliveMicroseconds, qPrintable(watchdog.constLast()));
    }

    // The device cgroup lets meterd open its RS-485 channels at the paths it uses by default.
    void channelDevicesAllowed_data()
    {
        QTest::addColumn<int>("channel");
        QTest::newRow("External") << int(Channel::External);
        QTest::newRow("Internal (OCU)") << int(Channel::Internal);
    }

    void channelDevicesAllowed()
    {
        QFETCH(int, channel);
        qunsetenv("CM_MODBUS_EXT_DEVICE");
        qunsetenv("CM_MODBUS_OCU_DEVICE");
        const QString device = ModbusManager::devicePath(Channel(channel));
        QVERIFY(device.startsWith(QStringLiteral("/dev/")));

        const QStringList policy = unitValues(_unit, QStringLiteral("DevicePolicy"));
        QStringList allowed = unitValues(_unit, QStringLiteral("DeviceAllow"));
        // An empty assignment clears the list built so far.
        allowed = allowed.mid(allowed.lastIndexOf(QString()) + 1);
        if ((policy.isEmpty() || policy.constLast() == QStringLiteral("auto")) && allowed.isEmpty())
            return; // no device restriction at all
        bool found = false;
        for (const QString &entry : allowed) {
            const QString path = entry.section(' ', 0, 0, QString::SectionSkipEmpty);
            const QString access = entry.section(' ', 1, 1, QString::SectionSkipEmpty);
            found = found || (path == device && access.contains('r') && access.contains('w'));
        }
        QVERIFY2(found, qPrintable(device + QStringLiteral(" not in ") + allowed.join(", ")));
    }

    // The bus reads the installed policy without an error; a misspelt attribute is reported
    // (and that file then left out, as on the real system bus).
    void policyParses_data()
    {
        QTest::addColumn<QString>("from");
        QTest::addColumn<QString>("to");
        QTest::addColumn<bool>("clean");
        QTest::newRow("as installed") << QString() << QString() << true;
        QTest::newRow("misspelt attribute") << "send_member="
                                            << "send_membr=" << false;
    }

    void policyParses()
    {
        QFETCH(QString, from);
        QFETCH(QString, to);
        QFETCH(bool, clean);
        if (from.isEmpty()) {
            QVERIFY2(!_bus->startupLog().contains(QLatin1String("Encountered error")),
                qPrintable(_bus->startupLog()));
            return;
        }
        QString policy
            = readFile(policyDirectory() + QStringLiteral("/com.ovra.slavecontroller.conf"));
        QVERIFY(policy.contains(from));
        const QTemporaryDir directory;
        QFile copy(directory.filePath(QStringLiteral("com.ovra.slavecontroller.conf")));
        QVERIFY(copy.open(QIODevice::WriteOnly));
        copy.write(policy.replace(from, to).toUtf8());
        copy.close();
        const SystemBus bus(directory.path());
        QVERIFY2(bus.isReady(), qPrintable(bus.startupLog()));
        QCOMPARE(!bus.startupLog().contains(QLatin1String("Encountered error")), clean);
    }

    // Only root may own the service's name, and root only that name. Checked while the name is
    // free, so that a call that is let through does get it.
    void nameOwnership_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("granted");
        QTest::newRow("root") << "root" << serviceName << true;
        QTest::newRow("nobody") << "nobody" << serviceName << false;
        QTest::newRow("root, a name beside it") << "root" << serviceName + ".other" << false;
    }

    void nameOwnership()
    {
        REQUIRE_ROOT();
        QFETCH(QString, user);
        QFETCH(QString, name);
        QFETCH(bool, granted);
        _measurement.reset();
        _productionTest.reset();
        const BusCallResult result = callAs(user, _bus->address(),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            busInterface + QStringLiteral("RequestName"),
            { QStringLiteral("string:") + name, QStringLiteral("uint32:0") });
        // 1: the caller became the primary owner.
        checkOutcome(result, !granted, QStringLiteral("uint32 1"));
    }

    // Everybody may read meters and look at the object; only root may change anything.
    void measurementCalls_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("member");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("denied");
        QTest::addColumn<QString>("replyContains");
        const QString meter = QStringLiteral("string:modbus/1/7");
        const QString m = measurementInterface;
        QTest::newRow("nobody current")
            << "nobody" << m + "current" << QStringList { meter, "int32:1" } << false << "double";
        QTest::newRow("nobody voltage")
            << "nobody" << m + "voltage" << QStringList { meter, "int32:2" } << false << "double";
        QTest::newRow("nobody totalEnergy")
            << "nobody" << m + "totalEnergy" << QStringList { meter } << false << "double";
        QTest::newRow("nobody power")
            << "nobody" << m + "power" << QStringList { meter } << false << "double";
        QTest::newRow("nobody getErrorRate")
            << "nobody" << m + "getErrorRate" << QStringList { meter } << false << "double";
        QTest::newRow("nobody info")
            << "nobody" << m + "info" << QStringList { meter } << false << "string";
        QTest::newRow("nobody meterExists")
            << "nobody" << m + "meterExists" << QStringList { meter } << false << "boolean";
        QTest::newRow("nobody meterList")
            << "nobody" << m + "meterList" << QStringList {} << false << "\"modbus/1/7\"";
        QTest::newRow("nobody readModbusRegister")
            << "nobody" << m + "readModbusRegister"
            << QStringList { QStringLiteral("uint16:%1").arg(slaveAddress), "uint16:1" } << false
            << "uint16";
        QTest::newRow("nobody metervalues")
            << "nobody" << m + "metervalues" << QStringList { meter } << false << "array [";
        QTest::newRow("nobody Introspect")
            << "nobody"
            << "org.freedesktop.DBus.Introspectable.Introspect" << QStringList {} << false
            << "com.ovra.slavecontroller.MeasurementManager";
        QTest::newRow("nobody Ping")
            << "nobody"
            << "org.freedesktop.DBus.Peer.Ping" << QStringList {} << false << "";
        QTest::newRow("nobody Properties.GetAll")
            << "nobody"
            << "org.freedesktop.DBus.Properties.GetAll"
            << QStringList { "string:com.ovra.slavecontroller.MeasurementManager" } << false
            << "array [";
        QTest::newRow("nobody Properties.Set")
            << "nobody"
            << "org.freedesktop.DBus.Properties.Set"
            << QStringList { "string:com.ovra.slavecontroller.MeasurementManager", "string:x",
                   "variant:int32:1" }
            << true << "";
        QTest::newRow("nobody setDisabled")
            << "nobody" << m + "setDisabled" << QStringList { meter, "boolean:true" } << true << "";
        // The daemon's methods under another interface name must not slip past the policy.
        QTest::newRow("nobody setDisabled, other interface")
            << "nobody"
            << "local.MeasurementManager.setDisabled" << QStringList { meter, "boolean:true" }
            << true << "";
        QTest::newRow("root setDisabled")
            << "root" << m + "setDisabled" << QStringList { meter, "boolean:false" } << false << "";
    }

    void measurementCalls()
    {
        REQUIRE_ROOT();
        QFETCH(QString, user);
        QFETCH(QString, member);
        QFETCH(QStringList, arguments);
        QFETCH(bool, denied);
        QFETCH(QString, replyContains);
        QVERIFY(measurementDaemonRunning());
        checkOutcome(call(user, measurementPath, member, arguments), denied, replyContains);
    }

    // A register write reaches the slave on the line for root only.
    void registerWrite_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<int>("value");
        QTest::addColumn<bool>("written");
        QTest::newRow("nobody") << "nobody" << 1111 << false;
        QTest::newRow("root") << "root" << 2222 << true;
    }

    void registerWrite()
    {
        REQUIRE_ROOT();
        QFETCH(QString, user);
        QFETCH(int, value);
        QFETCH(bool, written);
        QVERIFY(measurementDaemonRunning());
        const BusCallResult result = call(user, measurementPath,
            measurementInterface + QStringLiteral("setModbusRegister"),
            { QStringLiteral("uint16:%1").arg(slaveAddress),
                QStringLiteral("uint16:%1").arg(writtenRegister),
                QStringLiteral("uint16:%1").arg(value) });
        checkOutcome(result, !written, QStringLiteral("boolean true"));
        QCOMPARE(_measurement->slave()->registerValue(writtenRegister) == value, written);
    }

    // The production test drives both RS-485 ports: root only.
    void productionTestCalls_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("member");
        QTest::addColumn<bool>("denied");
        QTest::addColumn<QString>("replyContains");
        QTest::newRow("nobody TestRS485") << "nobody"
                                          << "com.ovra.outletmanager.pts.TestRS485" << true << "";
        QTest::newRow("root TestRS485")
            << "root"
            << "com.ovra.outletmanager.pts.TestRS485" << false << "boolean true";
        QTest::newRow("nobody Introspect") << "nobody"
                                           << "org.freedesktop.DBus.Introspectable.Introspect"
                                           << false << "com.ovra.outletmanager.pts";
    }

    void productionTestCalls()
    {
        REQUIRE_ROOT();
        QFETCH(QString, user);
        QFETCH(QString, member);
        QFETCH(bool, denied);
        QFETCH(QString, replyContains);
        QVERIFY(productionTestDaemonRunning());
        checkOutcome(call(user, ptsPath, member, {}), denied, replyContains);
    }
};

QTEST_GUILESS_MAIN(TestService)
#include "tst_service.moc"
