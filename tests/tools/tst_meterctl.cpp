#include "frozenmeters.h"
#include "meterdrig.h"
#include "privatebus.h"
#include "productiontestdaemon.h"
#include "ptypair.h"

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

#include <csignal>
#include <memory>

namespace {

const double missing = qQNaN();

// Label to text in the output of show.
using Details = QMap<QString, QString>;

// A POSIX zone far from UTC, so that a time printed in UTC instead of local time shows.
const char *const stationZone = "MTZ-5";
constexpr qint64 stationOffsetSeconds = 5 * 3600;

struct Run
{
    // -1 after a crash.
    int exitCode = -1;
    QString out;
    QString err;
};

QProcessEnvironment environmentFor(const QString &busAddress)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
    environment.insert("TZ", stationZone);
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
    static const QRegularExpression gap(QStringLiteral(" {2,}"));
    QList<QStringList> rows;
    for (const QString &line : text.split('\n', Qt::SkipEmptyParts))
        rows.append(line.split(gap));
    return rows;
}

// "Label  value" lines of show.
Details detailLines(const QString &text)
{
    Details details;
    for (const QStringList &row : tableRows(text))
        details.insert(row.value(0), row.value(1));
    return details;
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

bool near(const QJsonValue &actual, double expected)
{
    if (qIsNaN(expected))
        return actual.isNull();
    // The meters hand on single-precision values.
    return actual.isDouble()
        && qAbs(actual.toDouble() - expected) < 1e-5 * qMax(1.0, qAbs(expected));
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
        switch (bus) {
        case RigBus:
            return _rig->busAddress();
        case EmptyBus:
            return _emptyBus.address();
        case FakeBus:
            return _fakeBus.address();
        case UnreachableBus:
            break;
        }
        return QStringLiteral("unix:path=/nonexistent/meterctl-test-bus");
    }

    Run run(const QStringList &arguments) const
    {
        return runMeterctl(_rig->busAddress(), arguments);
    }

    void waitConnected(const QString &path)
    {
        QTRY_VERIFY_WITH_TIMEOUT(
            _rig->busctl("metervalues", "s", { path }).contains("\"Connected\""), 20000);
    }

    QString listedStatus(const QString &path) const
    {
        return rowOf(tableRows(run({ "list" }).out), path).value(1);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_emptyBus.isReady() && _fakeBus.isReady());
        QDBusConnection fake = QDBusConnection::connectToBus(_fakeBus.address(), "fake");
        QVERIFY(fake.registerService("com.ovra.slavecontroller"));
        QVERIFY(fake.registerVirtualObject("/MeasurementManager", &_fake));

        _rig = std::make_unique<MeterdRig>(FrozenMeters::scenario(), FrozenMeters::corvix());
        QVERIFY(_rig->start());
        waitConnected("modbus/1/7");
        waitConnected("modbus/1/8");
        waitConnected("modbus/1/12");
    }

    void cleanupTestCase() { _rig.reset(); }

    void show_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<Details>("text");
        QTest::addColumn<QVariantMap>("json");
        const Details em340Text { { "Path", "modbus/1/7" }, { "Status", "Connected" },
            { "Model:Serial", "EM340:EM340SERIAL007" }, { "Voltage L1", "230.1 V" },
            { "Voltage L3", "229.3 V" }, { "Current L2", "-6.250 A" }, { "Power", "-1500.5 W" },
            { "Power factor L3", "-0.750" }, { "Frequency", "49.90 Hz" },
            { "Energy imported", "123456.70 kWh" }, { "Energy exported", "12.30 kWh" },
            { "Session energy imported", "-" } };
        const QVariantMap em340Json { { "path", "modbus/1/7" }, { "model", "EM340" },
            { "serial", "EM340SERIAL007" }, { "voltage1", 230.1 }, { "current2", -6.25 },
            { "power", -1500.5 }, { "power_factor3", -0.75 }, { "frequency", 49.9 },
            { "total_energy", 123456.7 }, { "total_energy_exported", 12.3 },
            { "session_energy", missing } };
        QTest::newRow("three-phase meter") << "modbus/1/7" << em340Text << em340Json;
        QTest::newRow("path with leading zeros") << "modbus/01/007" << em340Text << em340Json;
        QTest::newRow("single-phase meter")
            << "modbus/1/8"
            << Details { { "Model:Serial", "EM111_AV7:EM111SERIAL00" }, { "Voltage L1", "228.4 V" },
                   { "Voltage L2", "-" }, { "Current L1", "9.876 A" }, { "Power", "2254.6 W" },
                   { "Energy imported", "42.50 kWh" } }
            << QVariantMap { { "voltage1", 228.4 }, { "voltage2", missing }, { "current1", 9.876 },
                   { "power", 2254.6 }, { "total_energy", 42.5 } };
        QTest::newRow("EM540, a register-index driver")
            << "modbus/1/12"
            << Details { { "Model:Serial", "EM540:EM540SERIAL00012" }, { "Power", "123.4 W" },
                   { "Power factor L1", "65.535" }, { "Energy exported", "7.80 kWh" } }
            << QVariantMap { { "model", "EM540" }, { "serial", "EM540SERIAL00012" },
                   { "power", 123.4 }, { "power_factor1", 65.535 } };
        QTest::newRow("absent meter")
            << "modbus/1/10"
            << Details { { "Status", "NotFound" }, { "Model:Serial", "-" }, { "Error rate", "-" },
                   { "Voltage L1", "-" }, { "Energy imported", "-" } }
            << QVariantMap { { "status", "NotFound" }, { "model", QVariant() },
                   { "voltage1", missing }, { "error_rate", missing } };
    }

    void show()
    {
        QFETCH(QString, path);
        QFETCH(Details, text);
        QFETCH(QVariantMap, json);
        const Run result = run({ "show", path });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        const Details details = detailLines(result.out);
        for (auto it = text.cbegin(); it != text.cend(); ++it)
            QVERIFY2(details.value(it.key()) == it.value(),
                qPrintable(it.key() + ": " + details.value(it.key())));

        const Run jsonResult = run({ "--json", "show", path });
        QVERIFY2(jsonResult.exitCode == 0, qPrintable(describe(jsonResult)));
        QJsonParseError error;
        const QJsonObject meter = QJsonDocument::fromJson(jsonResult.out.toUtf8(), &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        for (auto it = json.cbegin(); it != json.cend(); ++it) {
            const QJsonValue value = meter.value(it.key());
            QVERIFY2(it.value().typeId() == QMetaType::Double
                    ? near(value, it.value().toDouble())
                    : value == QJsonValue::fromVariant(it.value()),
                qPrintable(it.key() + " = " + value.toVariant().toString()));
        }

        // Printed in the station's local time, not in UTC; the meter is read every second.
        QDateTime shown = QDateTime::fromString(details["Last update"], "yyyy-MM-dd HH:mm:ss");
        shown.setOffsetFromUtc(stationOffsetSeconds);
        QVERIFY2(qAbs(shown.toSecsSinceEpoch() - meter["last_update"].toInteger(-1)) <= 10,
            qPrintable(result.out));
    }

    void list()
    {
        const Run result = run({ "list" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        QVERIFY(result.err.isEmpty());
        const QList<QStringList> rows = tableRows(result.out);
        QCOMPARE(rows.value(0), QStringList({ "PATH", "STATUS", "MODEL:SERIAL", "ERRORS [%]" }));
        QCOMPARE(rows.size(), 6);
        const QStringList em340 = rowOf(rows, "modbus/1/7");
        QCOMPARE(em340.mid(1, 2), QStringList({ "Connected", "EM340:EM340SERIAL007" }));
        // The error rate moves with the traffic; a percentage with two decimals, and small.
        QVERIFY2(QRegularExpression("^[0-4]\\.\\d\\d$").match(em340.value(3)).hasMatch(),
            qPrintable(em340.value(3)));
        QCOMPARE(rowOf(rows, "modbus/1/10"), QStringList({ "modbus/1/10", "NotFound", "-", "-" }));
    }

    void registerRoundTrip_data()
    {
        QTest::addColumn<QString>("registerAddress");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("expected");
        QTest::newRow("decimal") << QString("4356") << "1234" << 1234;
        QTest::newRow("hexadecimal") << QString("0x1104") << "0xBEEF" << 0xBEEF;
        QTest::newRow("largest value") << QString("4356") << "65535" << 65535;
        QTest::newRow("leading zeros are decimal") << QString("04356") << "0777" << 777;
    }

    void registerRoundTrip()
    {
        QFETCH(QString, registerAddress);
        QFETCH(QString, value);
        QFETCH(int, expected);
        const Run write = run({ "write", "7", registerAddress, value });
        QVERIFY2(write.exitCode == 0, qPrintable(describe(write)));
        QCOMPARE(write.out, QStringLiteral("ok\n"));

        const Run read = run({ "read", "0x7", registerAddress });
        QVERIFY2(read.exitCode == 0, qPrintable(describe(read)));
        QCOMPARE(read.out, QString::number(expected) + '\n');
        const Run json = run({ "--json", "read", "7", registerAddress });
        QCOMPARE(QJsonDocument::fromJson(json.out.toUtf8())["value"].toInt(-1), expected);
    }

    void failures_data()
    {
        QTest::addColumn<Bus>("bus");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        // Part of the one line on standard error.
        QTest::addColumn<QString>("reason");
        const auto usage = [](const char *name, const QStringList &arguments, const char *reason) {
            QTest::newRow(name) << RigBus << arguments << 2 << reason;
        };
        usage("unknown command", { "status" }, "unknown command \"status\"");
        usage("missing argument", { "read", "7" }, "usage: meterctl read ADDR REG");
        usage("malformed path", { "show", "modbus/3/7" }, "malformed meter path \"modbus/3/7\"");
        usage("slave address out of range", { "read", "248", "1" }, "ADDR must be a number");
        usage("value not a number", { "write", "7", "4356", "on" }, "VALUE must be a number");
        usage("count 0", { "watch", "--count", "0" }, "--count must be a number");
        usage("count for list", { "list", "--count", "2" }, "--count is only for watch");

        QTest::newRow("no such meter")
            << RigBus << QStringList { "show", "modbus/1/99" } << 1 << "no such meter: modbus/1/99";
        QTest::newRow("write refused")
            << RigBus << QStringList { "write", "7", "0", "1" } << 1 << "failed";
        QTest::newRow("reply without arguments")
            << FakeBus << QStringList { "read", "7", "1" } << 1 << "unexpected answer from meterd";
        QTest::newRow("loop test of a configured unit")
            << RigBus << QStringList { "test-rs485" } << 3 << "production-test mode";
        for (const QStringList &arguments : QList<QStringList> {
                 { "list" }, { "show", "modbus/1/7" }, { "watch", "--count", "1" } }) {
            QTest::addRow("no daemon: %s", qPrintable(arguments.join(' ')))
                << EmptyBus << arguments << 3 << "meterd is not running";
            QTest::addRow("no bus: %s", qPrintable(arguments.join(' ')))
                << UnreachableBus << arguments << 3 << "cannot reach the D-Bus system bus";
        }
    }

    void failures()
    {
        QFETCH(Bus, bus);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, reason);
        const Run result = runMeterctl(address(bus), arguments);
        QVERIFY2(result.exitCode == exitCode, qPrintable(describe(result)));
        QVERIFY(result.out.isEmpty());
        QCOMPARE(result.err.count('\n'), 1);
        QVERIFY2(result.err.startsWith("meterctl: ") && result.err.contains(reason),
            qPrintable(result.err));
    }

    void watchCount()
    {
        const Run result = run({ "watch", "--count", "2" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        // Not a terminal: one frame after the other, each its time, the header and five meters.
        QVERIFY(!result.out.contains('\x1b'));
        const QStringList lines = result.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2 * 7);
        for (int frame = 0; frame < 2; ++frame) {
            const QList<QStringList> rows = tableRows(lines.mid(frame * 7 + 1, 6).join('\n'));
            QCOMPARE(rows.value(0).value(2), QStringLiteral("U1 [V]"));
            QCOMPARE(rowOf(rows, "modbus/1/7").mid(1, 3),
                QStringList({ "Connected", "230.1", "231.2" }));
        }
    }

    void watchEndsOnSignal()
    {
        QProcess process;
        process.setProcessEnvironment(environmentFor(_rig->busAddress()));
        QSignalSpy finished(&process, &QProcess::finished);
        process.start(METERCTL_BINARY, { "watch" });
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT(
            (out += process.readAllStandardOutput()).count("PATH") >= 2, 20000);
        QCOMPARE(::kill(pid_t(process.processId()), SIGINT), 0);
        QVERIFY(finished.wait(10000));
        QVERIFY(process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0);
    }

    void controlCharactersFromTheBus()
    {
        const Run result = runMeterctl(address(FakeBus), { "list" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        QCOMPARE(tableRows(result.out).value(1),
            QStringList({ "?[2J", "Conn?ected", "EM?[31m:1", "0.50" }));
    }

    void loopTest_data()
    {
        QTest::addColumn<bool>("wired");
        QTest::newRow("ports wired together") << true;
        QTest::newRow("ports not wired") << false;
    }

    // On an unconfigured unit, where the daemon runs in production-test mode.
    void loopTest()
    {
        QFETCH(bool, wired);
        PrivateBus bus;
        PtyPair wire;
        PtyPair other;
        QVERIFY(bus.isReady() && wire.isReady() && other.isReady());
        ProductionTestDaemon daemon(
            bus.address(), wire.first(), wired ? wire.second() : other.first());
        QVERIFY(daemon.isReady());

        const Run result = runMeterctl(bus.address(), { "test-rs485" });
        QVERIFY2(result.exitCode == (wired ? 0 : 1), qPrintable(describe(result)));
        QCOMPARE(result.out, wired ? "RS-485 loop test passed\n" : "RS-485 loop test failed\n");

        // That mode has no measurement service.
        const Run list = runMeterctl(bus.address(), { "list" });
        QVERIFY2(list.exitCode == 3, qPrintable(describe(list)));
    }

    // Last: the silent meter stays silent, and waiting for the daemon's 20 s verdict is slow.
    void faultyMeter()
    {
        QVERIFY(_rig->simulator("gone 8"));
        QTRY_COMPARE_WITH_TIMEOUT(listedStatus("modbus/1/8"), QStringLiteral("Faulty"), 40000);

        const Details details = detailLines(run({ "show", "modbus/1/8" }).out);
        QCOMPARE(details.value("Status"), QStringLiteral("Faulty"));
        QCOMPARE(details.value("Current L1"), QStringLiteral("-"));

        QCOMPARE(listedStatus("modbus/1/7"), QStringLiteral("Connected"));
    }
};

QTEST_GUILESS_MAIN(TestMeterctl)
#include "tst_meterctl.moc"
