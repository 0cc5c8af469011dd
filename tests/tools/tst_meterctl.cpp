#include "meterdrig.h"
#include "privatebus.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {

// A POSIX zone far from UTC, so that a time printed in UTC instead of local time shows.
constexpr qint64 stationOffsetSeconds = 5 * 3600;

struct Run
{
    int exitCode = -1; // -1 after a crash
    QString out;
    QString err;
};

QProcessEnvironment environmentFor(const QString &busAddress)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
    environment.insert("TZ", "MTZ-5");
    return environment;
}

// Waits with the event loop running: the fake meterd of this test answers from it.
Run runMeterctl(const QString &busAddress, const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(environmentFor(busAddress));
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(METERCTL_BINARY, arguments);
    if (!finished.wait(60000))
        process.kill();
    return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1,
        QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}

QString describe(const Run &result)
{
    return QStringLiteral("exit %1, stdout:\n%2\nstderr:\n%3")
        .arg(result.exitCode)
        .arg(result.out, result.err);
}

// The cells of each line of a table, whose columns are two or more blanks apart.
QList<QStringList> tableRows(const QString &text)
{
    QList<QStringList> rows;
    for (const QString &line : text.split('\n', Qt::SkipEmptyParts))
        rows.append(line.split(QRegularExpression(" {2,}")));
    return rows;
}

// The row of a table whose first cell is the path; empty when there is none.
QStringList rowOf(const QList<QStringList> &rows, const QString &path)
{
    for (const QStringList &row : rows) {
        if (row.value(0) == path)
            return row;
    }
    return {};
}

// Stands in for meterd with replies the real daemon never sends: control characters in its
// texts, and a reply without arguments to every method not named here.
class FakeMeterd : public QDBusVirtualObject
{
public:
    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override
    {
        static const QHash<QString, QVariantList> replies {
            { "meterList", { QStringList { "\x1b[2J" } } },
            { "metervalues", { QVariantMap { { "status", "Conn\nected" } } } },
            { "info", { "EM\x1b[31m:1" } },
            { "getErrorRate", { 0.5 } },
        };
        return connection.send(message.createReply(replies.value(message.member())));
    }
    QString introspect(const QString &) const override { return {}; }
};

} // namespace

class TestMeterctl : public QObject
{
    Q_OBJECT

public:
    // Where a case runs meterctl: beside the rig's daemon, on a bus without meterd, beside
    // the fake meterd, or with no bus at all.
    enum Bus { RigBus, EmptyBus, FakeBus, UnreachableBus };
    Q_ENUM(Bus)

private:
    std::unique_ptr<MeterdRig> _rig;
    PrivateBus _emptyBus;
    PrivateBus _fakeBus;
    FakeMeterd _fake;

    QString address(Bus bus) const
    {
        const QMap<Bus, QString> addresses { { RigBus, _rig->busAddress() },
            { EmptyBus, _emptyBus.address() }, { FakeBus, _fakeBus.address() } };
        return addresses.value(bus, "unix:path=/nonexistent/meterctl-test-bus");
    }

    Run run(const QStringList &arguments) const
    {
        return runMeterctl(_rig->busAddress(), arguments);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_emptyBus.isReady() && _fakeBus.isReady());
        QDBusConnection fake = QDBusConnection::connectToBus(_fakeBus.address(), "fake");
        QVERIFY(fake.registerService("com.ovra.slavecontroller"));
        QVERIFY(fake.registerVirtualObject("/MeasurementManager", &_fake));

        _rig = std::make_unique<MeterdRig>(
            "[7]\nmodel=EM340\ncurrent2=-6.25\nfault=frozen\n[8]\nmodel=EM111\nfault=frozen\n",
            "[a]\nmeter=modbus/1/7\n[b]\nmeter=modbus/1/8\n[c]\nmeter=modbus/1/10\n");
        QVERIFY(_rig->start());
        for (const char *path : { "modbus/1/7", "modbus/1/8" })
            QTRY_VERIFY_WITH_TIMEOUT(
                _rig->busctl("metervalues", "s", { path }).contains("\"Connected\""), 20000);
    }

    void cleanupTestCase() { _rig.reset(); }

    // A meter's values with their units, and as JSON.
    void show()
    {
        const Run result = run({ "show", "modbus/01/007" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        QMap<QString, QString> details;
        for (const QStringList &row : tableRows(result.out))
            details.insert(row.value(0), row.value(1));
        const QMap<QString, QString> shown { { "Path", "modbus/1/7" }, { "Status", "Connected" },
            { "Model:Serial", "EM340:SIM00000000007" }, { "Voltage L3", "229.5 V" },
            { "Current L2", "-6.250 A" }, { "Power", "3405.5 W" }, { "Power factor L3", "0.990" },
            { "Frequency", "50.00 Hz" }, { "Energy imported", "1234.50 kWh" },
            { "Energy exported", "12.30 kWh" }, { "Session energy imported", "-" } };
        for (auto it = shown.cbegin(); it != shown.cend(); ++it)
            QCOMPARE(details.value(it.key()), it.value());

        const QJsonObject meter
            = QJsonDocument::fromJson(run({ "--json", "show", "modbus/1/7" }).out.toUtf8()).object();
        QCOMPARE(meter["serial"].toString(), QStringLiteral("SIM00000000007"));
        QCOMPARE(meter["current2"].toDouble(), -6.25);
        QCOMPARE(meter["total_energy"].toDouble(), 1234.5);
        QVERIFY(meter["session_energy"].isNull());
        // Printed in the station's local time, not in UTC; the meter is read every second.
        QDateTime time = QDateTime::fromString(details["Last update"], "yyyy-MM-dd HH:mm:ss");
        time.setOffsetFromUtc(stationOffsetSeconds);
        QVERIFY2(qAbs(time.toSecsSinceEpoch() - meter["last_update"].toInteger(-1)) <= 10,
            qPrintable(result.out));
    }

    void list()
    {
        const Run result = run({ "list" });
        QVERIFY2(result.exitCode == 0 && result.err.isEmpty(), qPrintable(describe(result)));
        const QList<QStringList> rows = tableRows(result.out);
        QCOMPARE(rows.size(), 4);
        QCOMPARE(rows.value(0), QStringList({ "PATH", "STATUS", "MODEL:SERIAL", "ERRORS [%]" }));
        const QStringList em340 = rowOf(rows, "modbus/1/7");
        QCOMPARE(em340.mid(1, 2), QStringList({ "Connected", "EM340:SIM00000000007" }));
        // The error rate moves with the traffic; a percentage with two decimals, and small.
        QVERIFY2(QRegularExpression("^[0-4]\\.\\d\\d$").match(em340.value(3)).hasMatch(),
            qPrintable(em340.value(3)));
        QCOMPARE(rowOf(rows, "modbus/1/10"), QStringList({ "modbus/1/10", "NotFound", "-", "-" }));
    }

    // Numbers in hexadecimal or decimal; leading zeros are decimal.
    void registerRoundTrip()
    {
        const Run write = run({ "write", "7", "0x1104", "0xFFFF" });
        QVERIFY2(write.exitCode == 0 && write.out == "ok\n", qPrintable(describe(write)));
        QCOMPARE(run({ "read", "0x7", "04356" }).out, QStringLiteral("65535\n"));
        QCOMPARE(run({ "write", "7", "04356", "0777" }).exitCode, 0);
        const Run json = run({ "--json", "read", "7", "0x1104" });
        QCOMPARE(QJsonDocument::fromJson(json.out.toUtf8())["value"].toInt(-1), 777);
    }

    // One line on standard error, nothing on standard output, and the exit code.
    void failures_data()
    {
        QTest::addColumn<Bus>("bus");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("reason");
        const auto row = [](const char *name, Bus bus, const QStringList &arguments, int code,
                             const char *reason) {
            QTest::newRow(name) << bus << arguments << code << reason;
        };
        row("unknown command", RigBus, { "status" }, 2, "unknown command \"status\"");
        row("missing argument", RigBus, { "read", "7" }, 2, "usage: meterctl read ADDR REG");
        row("malformed path", RigBus, { "show", "modbus/3/7" }, 2, "malformed meter path");
        row("slave address out of range", RigBus, { "read", "248", "1" }, 2,
            "ADDR must be a number");
        row("value not a number", RigBus, { "write", "7", "4356", "on" }, 2,
            "VALUE must be a number");
        row("count for list", RigBus, { "list", "--count", "2" }, 2, "--count is only for watch");
        row("no such meter", RigBus, { "show", "modbus/1/99" }, 1, "no such meter: modbus/1/99");
        row("write refused", RigBus, { "write", "7", "0", "1" }, 1, "failed");
        row("reply without arguments", FakeBus, { "read", "7", "1" }, 1,
            "unexpected answer from meterd");
        row("loop test of a configured unit", RigBus, { "test-rs485" }, 3, "production-test mode");
        row("no daemon", EmptyBus, { "watch", "--count", "1" }, 3, "meterd is not running");
        row("no bus", UnreachableBus, { "list" }, 3, "cannot reach the D-Bus system bus");
    }

    void failures()
    {
        QFETCH(Bus, bus);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, reason);
        const Run result = runMeterctl(address(bus), arguments);
        QVERIFY2(result.exitCode == exitCode && result.out.isEmpty()
                && result.err.count('\n') == 1 && result.err.startsWith("meterctl: ")
                && result.err.contains(reason),
            qPrintable(describe(result)));
    }

    void controlCharactersFromTheBus()
    {
        const Run result = runMeterctl(address(FakeBus), { "list" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        QCOMPARE(tableRows(result.out).value(1),
            QStringList({ "?[2J", "Conn?ected", "EM?[31m:1", "0.50" }));
    }

    void watch()
    {
        // Not a terminal: one frame after the other, each its time, the header and the meters.
        const Run result = run({ "watch", "--count", "2" });
        QVERIFY2(result.exitCode == 0 && !result.out.contains('\x1b'), qPrintable(describe(result)));
        const QStringList lines = result.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2 * 5);
        for (int frame = 0; frame < 2; ++frame) {
            const QList<QStringList> rows = tableRows(lines.mid(frame * 5 + 1, 4).join('\n'));
            QCOMPARE(rows.value(0).value(2), QStringLiteral("U1 [V]"));
            QCOMPARE(rowOf(rows, "modbus/1/7").mid(1, 3),
                QStringList({ "Connected", "230.0", "231.0" }));
        }

    }
};

QTEST_GUILESS_MAIN(TestMeterctl)
#include "tst_meterctl.moc"
