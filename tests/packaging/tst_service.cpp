#include "meterdrig.h"
#include "modbusmanager.h"
#include "privatebus.h"
#include "productiontestdaemon.h"
#include "ptypair.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

#include <pwd.h>
#include <unistd.h>

// The daemon as installed: its systemd unit, checked offline by systemd, and its system bus
// policy, loaded by buses configured like Debian's system bus, with the real meterd on them and
// callers running as root and as nobody.
namespace {

struct ToolResult
{
    int exitCode = -1;
    QString output;
};

// Runs a program to its end, with `environment` added to the test's; standard output and error
// interleaved in the result.
ToolResult runTool(
    const QString &program, const QStringList &arguments, const QStringList &environment = {})
{
    QProcess process;
    QProcessEnvironment processEnvironment = QProcessEnvironment::systemEnvironment();
    for (const QString &setting : environment)
        processEnvironment.insert(setting.section('=', 0, 0), setting.section('=', 1));
    process.setProcessEnvironment(processEnvironment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted())
        return { -1, program + ": " + process.errorString() };
    if (!process.waitForFinished(60000)) {
        process.kill();
        process.waitForFinished();
        return { -1, QString::fromUtf8(process.readAll()) + program + ": did not finish in time" };
    }
    const QString output = QString::fromUtf8(process.readAll());
    return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, output };
}

const QString serviceName = QStringLiteral("com.ovra.slavecontroller");

// meterd sends WATCHDOG=1 on a fixed 45 s timer, whatever the unit says.
constexpr qint64 keepAliveMicroseconds = 45 * 1000 * 1000;

// `systemd-analyze verify` of the unit with its Exec lines pointing under the install root, so
// that it is checked against the programs installed with it: true when systemd has no remark.
bool verifiesClean(QString unit, const QString &root)
{
    unit.replace(QRegularExpression("^(Exec[A-Za-z]*=[-@+!:]*)/",
                     QRegularExpression::MultilineOption),
        "\\1" + root + "/");
    QTemporaryDir directory;
    QFile copy(directory.filePath("meterd.service"));
    if (!copy.open(QIODevice::WriteOnly) || copy.write(unit.toUtf8()) < 0)
        return false;
    copy.close();
    const ToolResult result = runTool("systemd-analyze", { "verify", "--man=no", copy.fileName() });
    return result.exitCode == 0 && result.output.trimmed().isEmpty();
}

// The values a unit assigns to a key, in order.
QStringList unitValues(const QString &unit, const QString &key)
{
    QStringList values;
    for (const QString &line : unit.split('\n')) {
        if (line.section('=', 0, 0).trimmed() == key && !line.trimmed().startsWith('#'))
            values << line.section('=', 1).trimmed();
    }
    return values;
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

// Calls a method as `user` with dbus-send (that user's primary group, no supplementary groups)
// and checks the outcome: refused by the bus, or answered with a reply containing `expected`.
// Arguments as dbus-send takes them, e.g. "string:modbus/1/7".
void checkCallAs(const QString &user, const QString &address, const QString &path,
    const QString &member, const QStringList &arguments, bool denied, const QString &expected)
{
    const passwd *account = getpwnam(user.toLocal8Bit().constData());
    QVERIFY(account);
    const QString destination
        = path.startsWith("/org/freedesktop") ? "org.freedesktop.DBus" : serviceName;
    QProcess process;
    process.start(QStringLiteral("setpriv"),
        QStringList { QStringLiteral("--reuid=%1").arg(account->pw_uid),
            QStringLiteral("--regid=%1").arg(account->pw_gid), QStringLiteral("--clear-groups"),
            QStringLiteral("dbus-send"), "--bus=" + address, QStringLiteral("--print-reply"),
            QStringLiteral("--reply-timeout=20000"), "--dest=" + destination, path, member }
            + arguments);
    QVERIFY(process.waitForFinished(30000));
    const QString reply = QString::fromUtf8(process.readAllStandardOutput());
    const QString error = QString::fromUtf8(process.readAllStandardError());
    const bool answered = process.exitCode() == 0 && reply.contains(expected);
    QVERIFY2(denied ? error.contains("org.freedesktop.DBus.Error.AccessDenied") : answered,
        qPrintable(QStringLiteral("exit %1, reply: %2, error: %3")
                       .arg(QString::number(process.exitCode()), reply, error)));
}

} // namespace

class TestService : public QObject
{
    Q_OBJECT

    QTemporaryDir _root; // the install tree
    QString _unit;
    QString _policies;
    std::unique_ptr<MeterdRig> _rig;
    std::unique_ptr<PrivateBus> _ptsBus;
    PtyPair _ptsLine; // the production test's two ports, wired to each other
    std::unique_ptr<ProductionTestDaemon> _ptsDaemon;

private slots:
    void initTestCase()
    {
        const ToolResult install = runTool(
            METERD_CMAKE, { "--install", METERD_BUILD_DIR }, { "DESTDIR=" + _root.path() });
        QVERIFY2(install.exitCode == 0, qPrintable(install.output));
        QFile unit(_root.path() + METERD_INSTALLED_UNIT);
        QVERIFY2(unit.open(QIODevice::ReadOnly), METERD_INSTALLED_UNIT " is not installed");
        _unit = QString::fromUtf8(unit.readAll());
        _policies = _root.path() + METERD_INSTALLED_POLICYDIR;
        _ptsBus = std::make_unique<PrivateBus>(_policies);
        QVERIFY2(_ptsBus->isReady(), qPrintable(_ptsBus->startupLog()));
    }

    // systemd accepts the installed unit without a remark, with ExecStart naming the installed
    // binary; the same check does report a binary that is not there.
    void unitVerifies()
    {
        QVERIFY(verifiesClean(_unit, _root.path()));
        QVERIFY(!verifiesClean(QString(_unit).replace("/meterd\n", "/meterd.missing\n"), _root.path()));
    }

    // systemd takes the daemon's keep-alives and does not kill a daemon that sends them on time;
    // the device cgroup lets meterd open its RS-485 channels at the paths it uses by default.
    void keepAliveAndDevices()
    {
        QCOMPARE(unitValues(_unit, QStringLiteral("Type")), QStringList { "notify" });
        const QStringList watchdog = unitValues(_unit, QStringLiteral("WatchdogSec"));
        QCOMPARE(watchdog.size(), 1);
        QVERIFY2(timespan(watchdog.constFirst()) > keepAliveMicroseconds,
            qPrintable(watchdog.constFirst()));
        qunsetenv("CM_MODBUS_EXT_DEVICE");
        qunsetenv("CM_MODBUS_OCU_DEVICE");
        const QStringList allowed = unitValues(_unit, QStringLiteral("DeviceAllow"));
        for (Channel channel : { Channel::External, Channel::Internal })
            QVERIFY2(allowed.contains(ModbusManager::devicePath(channel) + QStringLiteral(" rw")),
                qPrintable(ModbusManager::devicePath(channel)));
    }

    // Only root may own the service's name. Checked while the name is free, so that a call that
    // is let through does get it (reply 1: the caller became the primary owner).
    void nameOwnership()
    {
        if (geteuid() != 0)
            QSKIP("Calling as root and as nobody (setpriv) needs root");
        for (const char *user : { "nobody", "root" })
            checkCallAs(user, _ptsBus->address(), "/org/freedesktop/DBus",
                "org.freedesktop.DBus.RequestName", { "string:" + serviceName, "uint32:0" },
                user == QLatin1String("nobody"), "uint32 1");
    }

    // Everybody may read meters; only root may change anything or drive the RS-485 ports in the
    // production test. A write that is let through reaches the meter on the line.
    void calls_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("member");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<bool>("denied");
        QTest::addColumn<QString>("reply");
        const QStringList meter { "string:modbus/1/7" };
        const QStringList disable = meter + QStringList { "boolean:true" };
        const QStringList write { "uint16:7", "uint16:4356", "uint16:2222" };
        const auto row = [](const char *user, const QString &member, const QStringList &arguments,
                             bool denied, const QString &reply = {}) {
            QTest::addRow("%s %s", user, qPrintable(member))
                << QString(user) << member << arguments << denied << reply;
        };
        const QString m = QStringLiteral("com.ovra.slavecontroller.MeasurementManager.");
        row("nobody", m + "meterList", {}, false, "\"modbus/1/7\"");
        row("nobody", m + "metervalues", meter, false, "array [");
        row("nobody", m + "setDisabled", disable, true);
        // The daemon's methods under another interface name must not slip past the policy.
        row("nobody", "local.MeasurementManager.setDisabled", disable, true);
        row("nobody", m + "setModbusRegister", write, true);
        row("root", m + "setModbusRegister", write, false, "boolean true");
        row("root", m + "readModbusRegister", { "uint16:7", "uint16:4356" }, false, "uint16 2222");
        row("nobody", "com.ovra.outletmanager.pts.TestRS485", {}, true);
        row("root", "com.ovra.outletmanager.pts.TestRS485", {}, false, "boolean true");
    }

    void calls()
    {
        if (geteuid() != 0)
            QSKIP("Calling as root and as nobody (setpriv) needs root");
        QFETCH(QString, user);
        QFETCH(QString, member);
        QFETCH(QStringList, arguments);
        QFETCH(bool, denied);
        QFETCH(QString, reply);
        QString address = _ptsBus->address();
        QString path = QStringLiteral("/pts");
        if (!member.contains(".pts.")) {
            if (!_rig) {
                _rig = std::make_unique<MeterdRig>(
                    "[7]\nmodel=EM340\n", "[a]\nmeter=modbus/1/7\n", QStringList(), _policies);
                QVERIFY2(_rig->start(), qPrintable(_rig->daemonLog()));
            }
            address = _rig->busAddress();
            path = QStringLiteral("/MeasurementManager");
        } else if (!_ptsDaemon) {
            _rig.reset();
            _ptsDaemon = std::make_unique<ProductionTestDaemon>(
                address, _ptsLine.first(), _ptsLine.second());
            QVERIFY(_ptsDaemon->isReady());
        }
        checkCallAs(user, address, path, member, arguments, denied, reply);
    }
};

QTEST_GUILESS_MAIN(TestService)
#include "tst_service.moc"
