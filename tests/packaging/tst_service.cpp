#include "meterdrig.h"

#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <pwd.h>
#include <unistd.h>

// The daemon as installed: its system bus policy, enforced by a bus configured like Debian's
// system bus with the real meterd on it and callers running as root and as nobody.
namespace {

// Runs a program to its end: its standard output and error, behind "failed: " unless it
// succeeded.
QString run(const QString &program, const QStringList &arguments, const QString &environment = {})
{
    QProcess process;
    if (!environment.isEmpty()) {
        QProcessEnvironment variables = QProcessEnvironment::systemEnvironment();
        variables.insert(environment.section('=', 0, 0), environment.section('=', 1));
        process.setProcessEnvironment(variables);
    }
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    const bool finished = process.waitForFinished(60000);
    const QString output = QString::fromUtf8(process.readAll());
    return finished && process.exitCode() == 0 ? output : "failed: " + output;
}

} // namespace

class TestService : public QObject
{
    Q_OBJECT

    QTemporaryDir _root; // the install tree
    std::unique_ptr<MeterdRig> _rig;

private slots:
    void initTestCase()
    {
        const QString install
            = run(METERD_CMAKE, { "--install", METERD_BUILD_DIR }, "DESTDIR=" + _root.path());
        QVERIFY2(!install.startsWith("failed: "), qPrintable(install));
        QVERIFY2(QFile::exists(_root.path() + METERD_INSTALLED_UNIT), "the unit is not installed");
    }

    // Everybody may read meters; only root may own the name or change anything. A write that is
    // let through reaches the meter on the line.
    void policy_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("member");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("reply"); // empty: refused by the bus
        const QString m = QStringLiteral("com.ovra.slavecontroller.MeasurementManager.");
        const QStringList write { "uint16:7", "uint16:4356", "uint16:2222" };
        QTest::newRow("nobody reads")
            << "nobody" << m + "metervalues" << QStringList { "string:modbus/1/7" } << "array [";
        QTest::newRow("nobody owns")
            << "nobody"
            << "org.freedesktop.DBus.RequestName"
            << QStringList { "string:com.ovra.slavecontroller", "uint32:0" } << "";
        QTest::newRow("nobody writes") << "nobody" << m + "setModbusRegister" << write << "";
        // The daemon's methods under another interface name must not slip past the policy.
        QTest::newRow("nobody disables, other interface")
            << "nobody"
            << "local.MeasurementManager.setDisabled"
            << QStringList { "string:modbus/1/7", "boolean:true" } << "";
        QTest::newRow("nobody tests RS-485")
            << "nobody"
            << "com.ovra.outletmanager.pts.TestRS485" << QStringList {} << "";
        QTest::newRow("root writes") << "root" << m + "setModbusRegister" << write << "true";
        QTest::newRow("root reads back") << "root" << m + "readModbusRegister"
                                         << QStringList { "uint16:7", "uint16:4356" } << "2222";
    }

    void policy()
    {
        // Calling as root and as nobody needs root with every user mapped, not a user namespace.
        if (geteuid() != 0 || run("setpriv", { "--reuid=nobody", "true" }).startsWith("failed: "))
            QSKIP("cannot call as root and as nobody here");
        QFETCH(QString, user);
        QFETCH(QString, member);
        QFETCH(QStringList, arguments);
        QFETCH(QString, reply);
        if (!_rig) {
            _rig = std::make_unique<MeterdRig>("[7]\nmodel=EM340\n", "[a]\nmeter=modbus/1/7\n",
                QStringList(), _root.path() + METERD_INSTALLED_POLICYDIR);
            QVERIFY2(_rig->start(), qPrintable(_rig->daemonLog()));
        }
        const passwd *account = getpwnam(user.toLocal8Bit().constData());
        QVERIFY(account);
        const bool toBus = member.startsWith("org.freedesktop.DBus");
        QProcess call;
        call.start("setpriv",
            QStringList { QStringLiteral("--reuid=%1").arg(account->pw_uid),
                QStringLiteral("--regid=%1").arg(account->pw_gid), "--clear-groups", "dbus-send",
                "--bus=" + _rig->busAddress(), "--print-reply",
                toBus ? "--dest=org.freedesktop.DBus" : "--dest=com.ovra.slavecontroller",
                toBus                          ? "/org/freedesktop/DBus"
                    : member.contains(".pts.") ? "/pts"
                                               : "/MeasurementManager",
                member }
                + arguments);
        QVERIFY(call.waitForFinished(30000));
        const QString output = call.readAllStandardOutput() + call.readAllStandardError();
        QVERIFY2(reply.isEmpty() ? output.contains("org.freedesktop.DBus.Error.AccessDenied")
                                 : call.exitCode() == 0 && output.contains(reply),
            qPrintable(output));
    }
};

QTEST_GUILESS_MAIN(TestService)
#include "tst_service.moc"
