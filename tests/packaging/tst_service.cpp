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
#include <QRegularExpression>
#include <QTest>

#include <memory>
#include <variant>

#include <unistd.h>

// The daemon as installed: its systemd unit, checked offline by systemd, and its system bus
// policy, loaded by a bus configured like Debian's system bus, with the real meterd on it and
// callers running as root and as nobody.
namespace {

const QString serviceName = QStringLiteral("com.ovra.slavecontroller");
const QString measurementInterface = QStringLiteral("com.ovra.slavecontroller.MeasurementManager.");

// meterd sends WATCHDOG=1 on a fixed 45 s timer, whatever the unit says.
constexpr qint64 keepAliveMicroseconds = 45 * 1000 * 1000;
// The Modbus slave on the External line, and the register the write tests use.
constexpr int slaveAddress = 5;
constexpr int writtenRegister = 100;

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
    const QRegularExpressionMatch match
        = QRegularExpression(QStringLiteral("μs: (\\d+)")).match(result.output);
    return result.exitCode == 0 && match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

// The real meterd on the test's bus in normal mode, reading one meter over a pty line on which
// a Modbus slave answers at another address.
class MeasurementDaemon
{
public:
    explicit MeasurementDaemon(const QString &busAddress)
        : _slave(_line.second(), slaveAddress)
    {
        _files.write("platform.ini", "[outlet]\nsize=0\n");
        _files.write("chargemanager.ini", "localcontroller=1\n");
        _files.write("corvix.ini", "[grid]\nmeter=modbus/1/7\n");
        _files.write("platform.conf", "serialno=PKG\n");
        QProcessEnvironment environment = daemonEnvironment(_files, busAddress, _notify.path());
        environment.insert("CM_MODBUS_EXT_DEVICE", _line.first());
        _process.setProcessEnvironment(environment);
        _process.setStandardErrorFile(_files.path("meterd.log"));
        _process.start(QStringLiteral(METERD_BINARY), {});
        // The first message is READY=1, or the STATUS of a failed start-up.
        _ready = _slave.isReady() && _notify.receive(15000).startsWith("READY=1");
    }

    ~MeasurementDaemon()
    {
        _process.terminate();
        _process.waitForFinished();
    }

    bool isReady() const { return _ready; }
    quint16 writtenValue() const { return _slave.registerValue(writtenRegister); }
    QString log() const { return readFile(_files.path("meterd.log")); }

private:
    TestFiles _files;
    PtyPair _line;
    RegisterSlave _slave;
    NotifySocket _notify;
    QProcess _process;
    bool _ready = false;
};

} // namespace

class TestService : public QObject
{
    Q_OBJECT

    InstallTree _tree;
    QString _unit;
    std::unique_ptr<SystemBus> _bus;
    PtyPair _ptsLine; // the production test's two ports, wired to each other
    // At most one daemon runs, as both take the service's name.
    std::variant<std::monostate, MeasurementDaemon, ProductionTestDaemon> _daemon;

    // Starts a daemon once: one that did not get ready is not tried again for every row.
    template <typename Daemon, typename... Arguments> bool running(const Arguments &...arguments)
    {
        if (!std::holds_alternative<Daemon>(_daemon)) {
            _daemon.emplace<Daemon>(arguments...);
            if (!std::get<Daemon>(_daemon).isReady())
                qWarning().noquote() << std::get<Daemon>(_daemon).log();
        }
        return std::get<Daemon>(_daemon).isReady();
    }

    // Refused by the bus, or answered by the daemon with a reply that contains `replyContains`.
    static void checkOutcome(const BusCallResult &result, bool denied, const QString &replyContains)
    {
        const bool answered = result.exitCode == 0 && result.reply.contains(replyContains);
        QVERIFY2(denied ? result.accessDenied() : answered,
            qPrintable(QStringLiteral("exit %1, reply: %2, error: %3")
                           .arg(QString::number(result.exitCode), result.reply, result.error)));
    }

private slots:
    void initTestCase()
    {
        QString log;
        QVERIFY2(_tree.install(QStringLiteral(METERD_BUILD_DIR), &log), qPrintable(log));
        _unit = readFile(_tree.path(QStringLiteral(METERD_INSTALLED_UNIT)));
        QVERIFY2(!_unit.isEmpty(), METERD_INSTALLED_UNIT " is not installed");
        _bus = std::make_unique<SystemBus>(_tree.path(QStringLiteral(METERD_INSTALLED_POLICYDIR)));
        QVERIFY2(_bus->isReady(), qPrintable(_bus->startupLog()));
    }

    // systemd accepts the installed unit without a remark, with ExecStart naming the installed
    // binary; the same check does report a binary that is not there.
    void unitVerifies_data()
    {
        QTest::addColumn<QString>("binaryName");
        QTest::addColumn<bool>("clean");
        QTest::newRow("as installed") << "/meterd\n" << true;
        QTest::newRow("binary not installed") << "/meterd.missing\n" << false;
    }

    void unitVerifies()
    {
        QFETCH(QString, binaryName);
        QFETCH(bool, clean);
        const QString unit = QString(_unit).replace(QStringLiteral("/meterd\n"), binaryName);
        const ToolResult result = verifyUnit(QStringLiteral("meterd.service"), unit, _tree.root());
        const bool passed = result.exitCode == 0 && result.output.trimmed().isEmpty();
        QVERIFY2(passed == clean, qPrintable(result.output));
    }

    // systemd takes the daemon's keep-alives and does not kill a daemon that sends them on time.
    void keepAliveAccepted()
    {
        QCOMPARE(unitValues(_unit, QStringLiteral("Type")), QStringList { "notify" });
        const QStringList watchdog = unitValues(_unit, QStringLiteral("WatchdogSec"));
        QCOMPARE(watchdog.size(), 1);
        QVERIFY2(timespan(watchdog.constFirst()) > keepAliveMicroseconds,
            qPrintable(watchdog.constFirst()));
    }

    // The device cgroup lets meterd open its RS-485 channels at the paths it uses by default.
    void channelDevicesAllowed()
    {
        qunsetenv("CM_MODBUS_EXT_DEVICE");
        qunsetenv("CM_MODBUS_OCU_DEVICE");
        const QStringList allowed = unitValues(_unit, QStringLiteral("DeviceAllow"));
        for (Channel channel : { Channel::External, Channel::Internal })
            QVERIFY2(allowed.contains(ModbusManager::devicePath(channel) + QStringLiteral(" rw")),
                qPrintable(ModbusManager::devicePath(channel)));
    }

    // Only root may own the service's name. Checked while the name is free, so that a call that
    // is let through does get it.
    void nameOwnership_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<bool>("granted");
        QTest::newRow("root") << "root" << true;
        QTest::newRow("nobody") << "nobody" << false;
    }

    void nameOwnership()
    {
        if (geteuid() != 0)
            QSKIP("Calling as root and as nobody (setpriv) needs root");
        QFETCH(QString, user);
        QFETCH(bool, granted);
        _daemon.emplace<std::monostate>();
        const BusCallResult result = callAs(user, _bus->address(),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus.RequestName"),
            { QStringLiteral("string:") + serviceName, QStringLiteral("uint32:0") });
        // 1: the caller became the primary owner.
        checkOutcome(result, !granted, QStringLiteral("uint32 1"));
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
        if (geteuid() != 0)
            QSKIP("Calling as root and as nobody (setpriv) needs root");
        QFETCH(QString, user);
        QFETCH(int, value);
        QFETCH(bool, written);
        QVERIFY(running<MeasurementDaemon>(_bus->address()));
        const BusCallResult result = callAs(user, _bus->address(), serviceName,
            QStringLiteral("/MeasurementManager"), measurementInterface + "setModbusRegister",
            { QStringLiteral("uint16:%1").arg(slaveAddress),
                QStringLiteral("uint16:%1").arg(writtenRegister),
                QStringLiteral("uint16:%1").arg(value) });
        checkOutcome(result, !written, QStringLiteral("boolean true"));
        QCOMPARE(std::get<MeasurementDaemon>(_daemon).writtenValue() == value, written);
    }

    // Everybody may read meters; only root may change anything or drive the RS-485 ports in the
    // production test.
    void calls_data()
    {
        QTest::addColumn<bool>("productionTest");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("member");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("denied");
        QTest::addColumn<QString>("replyContains");
        const QString meter = QStringLiteral("string:modbus/1/7");
        const QStringList disable { meter, QStringLiteral("boolean:true") };
        const QString m = measurementInterface;
        const QString testRS485 = QStringLiteral("com.ovra.outletmanager.pts.TestRS485");
        QTest::newRow("nobody meterList")
            << false << "nobody" << m + "meterList" << QStringList {} << false << "\"modbus/1/7\"";
        QTest::newRow("nobody metervalues") << false << "nobody" << m + "metervalues"
                                            << QStringList { meter } << false << "array [";
        QTest::newRow("nobody setDisabled")
            << false << "nobody" << m + "setDisabled" << disable << true << "";
        // The daemon's methods under another interface name must not slip past the policy.
        QTest::newRow("nobody setDisabled, other interface")
            << false << "nobody"
            << "local.MeasurementManager.setDisabled" << disable << true << "";
        QTest::newRow("nobody TestRS485")
            << true << "nobody" << testRS485 << QStringList {} << true << "";
        QTest::newRow("root TestRS485")
            << true << "root" << testRS485 << QStringList {} << false << "boolean true";
    }

    void calls()
    {
        if (geteuid() != 0)
            QSKIP("Calling as root and as nobody (setpriv) needs root");
        QFETCH(bool, productionTest);
        QFETCH(QString, user);
        QFETCH(QString, member);
        QFETCH(QStringList, arguments);
        QFETCH(bool, denied);
        QFETCH(QString, replyContains);
        QVERIFY(productionTest ? running<ProductionTestDaemon>(
                    _bus->address(), _ptsLine.first(), _ptsLine.second())
                               : running<MeasurementDaemon>(_bus->address()));
        const QString path = productionTest ? "/pts" : "/MeasurementManager";
        checkOutcome(callAs(user, _bus->address(), serviceName, path, member, arguments), denied,
            replyContains);
    }
};

QTEST_GUILESS_MAIN(TestService)
#include "tst_service.moc"
