#include "frozenmeters.h"
#include "meterdrig.h"
#include "privatebus.h"
#include "productiontestdaemon.h"
#include "ptypair.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QDBusMessage>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <cmath>
#include <csignal>
#include <limits>
#include <memory>

namespace {

const double missing = std::numeric_limits<double>::quiet_NaN();

// Label to text in the output of show.
using Details = QMap<QString, QString>;
// D-Bus method name to the arguments of its reply.
using Replies = QHash<QString, QVariantList>;

// A POSIX zone far from UTC, so that a time printed in UTC instead of local time shows.
const char *const stationZone = "MTZ-5";
constexpr qint64 stationOffsetSeconds = 5 * 3600;

struct Run
{
    QProcess::ExitStatus exitStatus = QProcess::CrashExit;
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

// Waits with the event loop running: the fake services of this test answer from it.
Run runMeterctl(const QString &busAddress, const QStringList &arguments)
{
    QProcess process;
    process.setProcessEnvironment(environmentFor(busAddress));
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(METERCTL_BINARY, arguments);
    if (!finished.wait(60000))
        process.kill();
    return { process.exitStatus(), process.exitCode(),
        QString::fromUtf8(process.readAllStandardOutput()),
        QString::fromUtf8(process.readAllStandardError()) };
}

QString describe(const Run &result)
{
    return QStringLiteral("exit %1, stdout:\n%2\nstderr:\n%3")
        .arg(result.exitCode)
        .arg(result.out, result.err);
}

// "label   value" lines of show.
Details detailLines(const QString &text)
{
    static const QRegularExpression line(QStringLiteral("^(\\S.*?)  +(\\S.*)$"));
    Details details;
    for (const QString &row : text.split('\n', Qt::SkipEmptyParts)) {
        const QRegularExpressionMatch match = line.match(row);
        if (match.hasMatch())
            details.insert(match.captured(1), match.captured(2));
    }
    return details;
}

// The rows of a table, cut at the columns where the header's titles begin.
QList<QStringList> tableRows(const QStringList &lines)
{
    if (lines.isEmpty())
        return {};
    static const QRegularExpression title(QStringLiteral("\\S+(?: \\S+)*"));
    QList<qsizetype> starts;
    for (auto it = title.globalMatch(lines.first()); it.hasNext();)
        starts.append(it.next().capturedStart());
    QList<QStringList> rows;
    for (const QString &line : lines) {
        QStringList cells;
        for (qsizetype column = 0; column < starts.size(); ++column) {
            const qsizetype end = column + 1 < starts.size() ? starts.at(column + 1) : line.size();
            cells.append(line.mid(starts.at(column), end - starts.at(column)).trimmed());
        }
        rows.append(cells);
    }
    return rows;
}

QList<QStringList> tableRows(const QString &text)
{
    return tableRows(text.split('\n', Qt::SkipEmptyParts));
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
    if (std::isnan(expected))
        return actual.isNull();
    // The meters hand on single-precision values.
    return actual.isDouble()
        && std::fabs(actual.toDouble() - expected) < 1e-5 * qMax(1.0, std::fabs(expected));
}

QStringList daemonMeterList(const MeterdRig &rig)
{
    // busctl prints: as 4 "modbus/1/10" "modbus/1/8" ...
    static const QRegularExpression quoted(QStringLiteral("\"([^\"]*)\""));
    QStringList paths;
    for (auto it = quoted.globalMatch(rig.busctl("meterList")); it.hasNext();)
        paths.append(it.next().captured(1));
    return paths;
}

} // namespace

// Stands in for meterd with whatever replies a test wants, including ones the real daemon
// never sends, to prove that meterctl does not trust the shape of a reply.
class FakeObject : public QObject, protected QDBusContext
{
    Q_OBJECT

public:
    explicit FakeObject(const Replies &replies)
        : _replies(replies)
    {
    }

protected:
    void answer()
    {
        setDelayedReply(true);
        connection().send(message().createReply(_replies.value(message().member())));
    }

private:
    const Replies &_replies;
};

class FakeMeasurementManager : public FakeObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.ovra.slavecontroller.MeasurementManager")

public:
    using FakeObject::FakeObject;

public slots:
    void meterList() { answer(); }
    void metervalues(const QString &) { answer(); }
    void info(const QString &) { answer(); }
    void getErrorRate(const QString &) { answer(); }
    void readModbusRegister(ushort, ushort) { answer(); }
    void setModbusRegister(ushort, ushort, ushort) { answer(); }
};

class FakePts : public FakeObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "com.ovra.outletmanager.pts")

public:
    using FakeObject::FakeObject;

public slots:
    void TestRS485() { answer(); }
};

class TestMeterctl : public QObject
{
    Q_OBJECT

public:
    // Where a case runs meterctl: beside the rig's daemon, on a bus without meterd, or
    // with no bus at all.
    enum Bus { RigBus, EmptyBus, UnreachableBus };
    Q_ENUM(Bus)

private:
    std::unique_ptr<MeterdRig> _rig;
    PrivateBus _emptyBus;
    PrivateBus _fakeBus;
    Replies _fakeReplies;
    FakeMeasurementManager _fakeMeasurement { _fakeReplies };
    FakePts _fakePts { _fakeReplies };

    QString address(Bus bus) const
    {
        switch (bus) {
        case RigBus:
            return _rig->busAddress();
        case EmptyBus:
            return _emptyBus.address();
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

    QStringList listRow(const QString &path) const
    {
        return rowOf(tableRows(run({ "list" }).out), path);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_emptyBus.isReady());
        QVERIFY(_fakeBus.isReady());
        QDBusConnection fake = QDBusConnection::connectToBus(_fakeBus.address(), "fake");
        QVERIFY(fake.registerService("com.ovra.slavecontroller"));
        QVERIFY(fake.registerObject(
            "/MeasurementManager", &_fakeMeasurement, QDBusConnection::ExportAllSlots));
        QVERIFY(fake.registerObject("/pts", &_fakePts, QDBusConnection::ExportAllSlots));

        _rig = std::make_unique<MeterdRig>(FrozenMeters::scenario(), FrozenMeters::corvix());
        QVERIFY(_rig->start());
        waitConnected("modbus/1/7");
        waitConnected("modbus/1/8");
        waitConnected("modbus/1/9");
    }

    void cleanupTestCase() { _rig.reset(); }

    void list_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("identity");
        QTest::addColumn<bool>("hasErrorRate");
        QTest::newRow("three-phase meter") << "modbus/1/7"
                                           << "Connected"
                                           << "EM340:EM340SERIAL007" << true;
        QTest::newRow("single-phase meter") << "modbus/1/8"
                                            << "Connected"
                                            << "EM111_AV7:EM111SERIAL00" << true;
        QTest::newRow("absent meter") << "modbus/1/10"
                                      << "NotFound"
                                      << "-" << false;
    }

    void list()
    {
        QFETCH(QString, path);
        QFETCH(QString, status);
        QFETCH(QString, identity);
        QFETCH(bool, hasErrorRate);

        const Run result = run({ "list" });
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 0,
            qPrintable(describe(result)));
        QVERIFY(result.err.isEmpty());
        const QList<QStringList> rows = tableRows(result.out);
        QCOMPARE(rows.value(0), QStringList({ "PATH", "STATUS", "MODEL:SERIAL", "ERRORS [%]" }));

        QStringList paths;
        for (const QStringList &row : rows.mid(1))
            paths.append(row.value(0));
        QCOMPARE(paths, daemonMeterList(*_rig));

        const QStringList row = rowOf(rows, path);
        QCOMPARE(row.value(1), status);
        QCOMPARE(row.value(2), identity);
        bool isNumber = false;
        const double errorRate = row.value(3).toDouble(&isNumber);
        if (hasErrorRate)
            QVERIFY2(isNumber && errorRate >= 0.0 && errorRate < 5.0, qPrintable(row.value(3)));
        else
            QCOMPARE(row.value(3), QStringLiteral("-"));
    }

    void show_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<Details>("expected");
        const Details em340 { { "Path", "modbus/1/7" }, { "Status", "Connected" },
            { "Model:Serial", "EM340:EM340SERIAL007" }, { "Voltage L1", "230.1 V" },
            { "Voltage L2", "231.2 V" }, { "Voltage L3", "229.3 V" }, { "Current L1", "5.200 A" },
            { "Current L2", "-6.250 A" }, { "Current L3", "0.125 A" }, { "Power", "-1500.5 W" },
            { "Power factor L1", "0.980" }, { "Power factor L2", "0.500" },
            { "Power factor L3", "-0.750" }, { "Frequency", "49.90 Hz" },
            { "Energy imported", "123456.70 kWh" }, { "Energy exported", "12.30 kWh" },
            { "Session energy imported", "-" }, { "Session energy exported", "-" } };
        QTest::newRow("three-phase meter") << "modbus/1/7" << em340;
        QTest::newRow("path with leading zeros") << "modbus/01/007" << em340;
        QTest::newRow("single-phase meter")
            << "modbus/1/8"
            << Details { { "Status", "Connected" }, { "Model:Serial", "EM111_AV7:EM111SERIAL00" },
                   { "Voltage L1", "228.4 V" }, { "Voltage L2", "-" }, { "Current L1", "9.876 A" },
                   { "Current L3", "-" }, { "Power", "2254.6 W" }, { "Power factor L1", "-" },
                   { "Frequency", "-" }, { "Energy imported", "42.50 kWh" },
                   { "Energy exported", "0.00 kWh" } };
        QTest::newRow("absent meter")
            << "modbus/1/10"
            << Details { { "Status", "NotFound" }, { "Model:Serial", "-" }, { "Error rate", "-" },
                   { "Voltage L1", "-" }, { "Current L1", "-" }, { "Power", "-" },
                   { "Energy imported", "-" } };
    }

    void show()
    {
        QFETCH(QString, path);
        QFETCH(Details, expected);
        const Run result = run({ "show", path });
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 0,
            qPrintable(describe(result)));
        const Details details = detailLines(result.out);
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QVERIFY2(details.value(it.key()) == it.value(),
                qPrintable(it.key() + ": " + details.value(it.key())));
    }

    void showLastUpdateInLocalTime()
    {
        const Run json = run({ "show", "--json", "modbus/1/7" });
        const Run text = run({ "show", "modbus/1/7" });
        const qint64 lastUpdate
            = QJsonDocument::fromJson(json.out.toUtf8()).object().value("last_update").toInteger();
        QVERIFY(lastUpdate > 0);

        QDateTime shown = QDateTime::fromString(
            detailLines(text.out).value("Last update"), "yyyy-MM-dd HH:mm:ss");
        QVERIFY(shown.isValid());
        shown.setOffsetFromUtc(stationOffsetSeconds);
        // The meter is read about every second between the two runs.
        QVERIFY2(qAbs(shown.toSecsSinceEpoch() - lastUpdate) <= 10, qPrintable(text.out));
    }

    void showJson_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("three-phase meter")
            << "modbus/1/7"
            << QVariantMap { { "voltage1", 230.1 }, { "voltage2", 231.2 }, { "voltage3", 229.3 },
                   { "current1", 5.2 }, { "current2", -6.25 }, { "current3", 0.125 },
                   { "power", -1500.5 }, { "power_factor1", 0.98 }, { "power_factor2", 0.5 },
                   { "power_factor3", -0.75 }, { "frequency", 49.9 }, { "total_energy", 123456.7 },
                   { "total_energy_exported", 12.3 }, { "session_energy", missing } };
        QTest::newRow("single-phase meter")
            << "modbus/1/8"
            << QVariantMap { { "voltage1", 228.4 }, { "voltage2", missing }, { "current1", 9.876 },
                   { "current3", missing }, { "power", 2254.6 }, { "power_factor1", missing },
                   { "frequency", missing }, { "total_energy", 42.5 } };
        QTest::newRow("absent meter")
            << "modbus/1/10"
            << QVariantMap { { "voltage1", missing }, { "power", missing },
                   { "total_energy", missing }, { "error_rate", missing } };
    }

    void showJson()
    {
        QFETCH(QString, path);
        QFETCH(QVariantMap, expected);
        const Run result = run({ "--json", "show", path });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        QJsonParseError error;
        const QJsonObject meter = QJsonDocument::fromJson(result.out.toUtf8(), &error).object();
        QCOMPARE(error.error, QJsonParseError::NoError);
        QCOMPARE(meter.value("path").toString(), path);
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QVERIFY2(near(meter.value(it.key()), it.value().toDouble()),
                qPrintable(it.key() + " = "
                    + QJsonDocument(QJsonArray { meter.value(it.key()) }).toJson()));
    }

    void listJson()
    {
        const Run result = run({ "list", "--json" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        const QJsonArray meters
            = QJsonDocument::fromJson(result.out.toUtf8()).object().value("meters").toArray();
        QStringList paths;
        QHash<QString, QJsonObject> byPath;
        for (const QJsonValue &meter : meters) {
            paths.append(meter.toObject().value("path").toString());
            byPath.insert(paths.last(), meter.toObject());
        }
        QCOMPARE(paths, daemonMeterList(*_rig));
        QCOMPARE(byPath["modbus/1/7"]["status"].toString(), QStringLiteral("Connected"));
        QCOMPARE(byPath["modbus/1/7"]["model"].toString(), QStringLiteral("EM340"));
        QCOMPARE(byPath["modbus/1/7"]["serial"].toString(), QStringLiteral("EM340SERIAL007"));
        QVERIFY(byPath["modbus/1/7"]["error_rate"].isDouble());
        QCOMPARE(byPath["modbus/1/10"]["status"].toString(), QStringLiteral("NotFound"));
        QVERIFY(byPath["modbus/1/10"]["model"].isNull());
        QVERIFY(byPath["modbus/1/10"]["error_rate"].isNull());
    }

    void registerRoundTrip_data()
    {
        QTest::addColumn<QString>("registerAddress");
        QTest::addColumn<QString>("value");
        QTest::addColumn<int>("expected");
        QTest::newRow("decimal") << "4356"
                                 << "1234" << 1234;
        QTest::newRow("hexadecimal") << "0x1104"
                                     << "0xBEEF" << 0xBEEF;
        QTest::newRow("largest value") << "4356"
                                       << "65535" << 65535;
        QTest::newRow("zero") << "0X1104"
                              << "0" << 0;
        QTest::newRow("leading zeros are decimal") << "04356"
                                                   << "0777" << 777;
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
        const QJsonObject object = QJsonDocument::fromJson(json.out.toUtf8()).object();
        QCOMPARE(object.value("address").toInt(), 7);
        QCOMPARE(object.value("register").toInt(), 4356);
        QCOMPARE(object.value("value").toInt(-1), expected);
    }

    void registerWriteFails_data()
    {
        QTest::addColumn<QString>("address");
        QTest::addColumn<QString>("registerAddress");
        QTest::newRow("register not writable") << "7"
                                               << "0";
        QTest::newRow("absent slave") << "10"
                                      << "4356";
    }

    void registerWriteFails()
    {
        QFETCH(QString, address);
        QFETCH(QString, registerAddress);
        const Run result = run({ "write", address, registerAddress, "1" });
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 1,
            qPrintable(describe(result)));
        QVERIFY(result.out.isEmpty());
        QCOMPARE(result.err.count('\n'), 1);
        QVERIFY(result.err.startsWith("meterctl: ") && result.err.contains("failed"));
    }

    void usageErrors_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no command") << QStringList {};
        QTest::newRow("unknown command") << QStringList { "status" };
        QTest::newRow("unknown option") << QStringList { "list", "--verbose" };
        QTest::newRow("missing path") << QStringList { "show" };
        QTest::newRow("extra argument") << QStringList { "list", "modbus/1/7" };
        QTest::newRow("two paths") << QStringList { "watch", "modbus/1/7", "modbus/1/8" };
        QTest::newRow("missing register") << QStringList { "read", "7" };
        QTest::newRow("missing value") << QStringList { "write", "7", "4356" };
        QTest::newRow("channel 3") << QStringList { "show", "modbus/3/7" };
        QTest::newRow("address 0") << QStringList { "show", "modbus/1/0" };
        QTest::newRow("address 256") << QStringList { "show", "modbus/1/256" };
        QTest::newRow("channel not a number") << QStringList { "show", "modbus/x/7" };
        QTest::newRow("address not a number") << QStringList { "show", "modbus/1/x" };
        QTest::newRow("empty channel") << QStringList { "show", "modbus//7" };
        QTest::newRow("too few parts") << QStringList { "show", "modbus/1" };
        QTest::newRow("too many parts") << QStringList { "show", "modbus/1/7/8" };
        QTest::newRow("capital prefix") << QStringList { "show", "Modbus/1/7" };
        QTest::newRow("empty path") << QStringList { "show", "" };
        QTest::newRow("IPv4 octet too large") << QStringList { "show", "modbus/192.168.0.256" };
        QTest::newRow("IPv4 short form") << QStringList { "show", "modbus/192.168.10" };
        QTest::newRow("IPv4 octal octet") << QStringList { "watch", "modbus/192.168.0.010" };
        QTest::newRow("IPv6 in brackets") << QStringList { "show", "modbus/[::1]" };
        QTest::newRow("trafo path") << QStringList { "show", "trafo/1" };
        QTest::newRow("slave address 0") << QStringList { "read", "0", "1" };
        QTest::newRow("slave address 248") << QStringList { "read", "248", "1" };
        QTest::newRow("slave address hex too large") << QStringList { "read", "0xF8", "1" };
        QTest::newRow("register 65536") << QStringList { "read", "7", "65536" };
        QTest::newRow("register hex 0x10000") << QStringList { "read", "7", "0x10000" };
        QTest::newRow("register huge") << QStringList { "read", "7", "99999999999999999999999" };
        QTest::newRow("register negative") << QStringList { "read", "7", "-1" };
        QTest::newRow("register with sign") << QStringList { "read", "7", "+1" };
        QTest::newRow("register with blank") << QStringList { "read", "7", " 1" };
        QTest::newRow("register with line break") << QStringList { "read", "7", "1\n" };
        QTest::newRow("register bare 0x") << QStringList { "read", "7", "0x" };
        QTest::newRow("register in exponent form") << QStringList { "read", "7", "1e3" };
        QTest::newRow("value 65536") << QStringList { "write", "7", "4356", "65536" };
        QTest::newRow("value not a number") << QStringList { "write", "7", "4356", "on" };
        QTest::newRow("address not a number") << QStringList { "write", "seven", "4356", "1" };
        QTest::newRow("count 0") << QStringList { "watch", "--count", "0" };
        QTest::newRow("count not a number") << QStringList { "watch", "--count", "two" };
        QTest::newRow("count without value") << QStringList { "watch", "--count" };
        QTest::newRow("count for list") << QStringList { "list", "--count", "2" };
        QTest::newRow("json for write") << QStringList { "--json", "write", "7", "4356", "1" };
    }

    void usageErrors()
    {
        QFETCH(QStringList, arguments);
        const Run result = run(arguments);
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 2,
            qPrintable(describe(result)));
        QVERIFY(result.out.isEmpty());
        QCOMPARE(result.err.count('\n'), 1);
        QVERIFY(result.err.startsWith("meterctl: "));
    }

    void noSuchMeter_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("show unconfigured address") << QStringList { "show", "modbus/1/99" };
        QTest::newRow("show unconfigured channel") << QStringList { "show", "modbus/2/7" };
        QTest::newRow("show prefix that only starts with modbus")
            << QStringList { "show", "modbusX/1/7" };
        QTest::newRow("show TCP meter") << QStringList { "show", "modbus/192.168.0.10" };
        QTest::newRow("show IPv6 meter") << QStringList { "--json", "show", "modbus/fe80::1" };
        QTest::newRow("watch unconfigured address")
            << QStringList { "watch", "modbus/1/99", "--count", "1" };
    }

    void noSuchMeter()
    {
        QFETCH(QStringList, arguments);
        const Run result = run(arguments);
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 1,
            qPrintable(describe(result)));
        QVERIFY(result.out.isEmpty());
        QCOMPARE(result.err,
            QStringLiteral("meterctl: no such meter: %1\n")
                .arg(arguments.at(arguments.indexOf(QRegularExpression("^modbus.*")))));
    }

    void serviceUnavailable_data()
    {
        QTest::addColumn<Bus>("bus");
        QTest::addColumn<QStringList>("arguments");
        const QList<QStringList> commands { { "list" }, { "show", "modbus/1/7" },
            { "watch", "--count", "1" }, { "--json", "watch" }, { "read", "7", "11" },
            { "write", "7", "4356", "1" }, { "test-rs485" }, { "--json", "list" } };
        for (const QStringList &arguments : commands) {
            QTest::addRow("no daemon: %s", qPrintable(arguments.join(' ')))
                << EmptyBus << arguments;
            QTest::addRow("no bus: %s", qPrintable(arguments.join(' ')))
                << UnreachableBus << arguments;
        }
        QTest::newRow("loop test of a configured unit") << RigBus << QStringList { "test-rs485" };
    }

    void serviceUnavailable()
    {
        QFETCH(Bus, bus);
        QFETCH(QStringList, arguments);
        const Run result = runMeterctl(address(bus), arguments);
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 3,
            qPrintable(describe(result)));
        QVERIFY(result.out.isEmpty());
        QCOMPARE(result.err.count('\n'), 1);
        QVERIFY(result.err.startsWith("meterctl: "));
    }

    void watchCount_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("meters");
        QTest::newRow("all meters") << QStringList { "watch", "--count", "2" } << 4;
        QTest::newRow("one meter") << QStringList { "watch", "modbus/1/7", "--count", "2" } << 1;
    }

    void watchCount()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, meters);
        const Run result = run(arguments);
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == 0,
            qPrintable(describe(result)));
        // Not a terminal: one block after the other, no escape sequences.
        QVERIFY(!result.out.contains('\x1b'));
        const QStringList lines = result.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 2 * (2 + meters));
        for (int block = 0; block < 2; ++block) {
            const QList<QStringList> rows
                = tableRows(lines.mid(block * (2 + meters) + 1, 1 + meters));
            QCOMPARE(rows.value(0).value(0), QStringLiteral("PATH"));
            QCOMPARE(rows.value(0).value(2), QStringLiteral("U1 [V]"));
            QCOMPARE(rowOf(rows, "modbus/1/7").mid(1, 3),
                QStringList({ "Connected", "230.1", "231.2" }));
        }
    }

    void watchJson_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("meters");
        QTest::newRow("all meters") << QStringList { "--json", "watch", "--count", "3" } << 4;
        QTest::newRow("one meter")
            << QStringList { "--json", "watch", "--count", "3", "modbus/1/7" } << 1;
    }

    void watchJson()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, meters);
        const Run result = run(arguments);
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        const QStringList lines = result.out.split('\n', Qt::SkipEmptyParts);
        QCOMPARE(lines.size(), 3);
        for (const QString &line : lines) {
            const QJsonObject frame = QJsonDocument::fromJson(line.toUtf8()).object();
            QVERIFY(QDateTime::fromString(frame.value("time").toString(), Qt::ISODate).isValid());
            const QJsonArray list = frame.value("meters").toArray();
            QCOMPARE(list.size(), meters);
            QJsonObject em340;
            for (const QJsonValue &meter : list) {
                if (meter.toObject().value("path") == QStringLiteral("modbus/1/7"))
                    em340 = meter.toObject();
            }
            QVERIFY(near(em340.value("current2"), -6.25));
        }
    }

    void watchEndsOnSignal_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGTERM") << SIGTERM;
    }

    void watchEndsOnSignal()
    {
        QFETCH(int, signalNumber);
        QProcess process;
        process.setProcessEnvironment(environmentFor(_rig->busAddress()));
        QSignalSpy finished(&process, &QProcess::finished);
        process.start(METERCTL_BINARY, { "watch" });
        QByteArray out;
        QTRY_VERIFY_WITH_TIMEOUT(
            (out += process.readAllStandardOutput()).count("PATH") >= 2, 20000);
        QCOMPARE(::kill(pid_t(process.processId()), signalNumber), 0);
        QVERIFY(finished.wait(10000));
        QCOMPARE(process.exitStatus(), QProcess::NormalExit);
        QCOMPARE(process.exitCode(), 0);
    }

    void unusualReplies_data()
    {
        QTest::addColumn<Replies>("replies");
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        // A pattern for standard output; a failure prints nothing there.
        QTest::addColumn<QString>("output");

        const QVariantList oneMeter { QStringList { "modbus/1/7" } };
        const QVariantMap oddValues { { "status", 5 }, { "voltage1", "230" },
            { "current1", "many" }, { "power", QVariantList { 1, 2 } }, { "frequency", true },
            { "last_update", "yesterday" } };
        QTest::newRow("values of unexpected types")
            << Replies { { "meterList", oneMeter }, { "metervalues", { oddValues } },
                   { "info", { "no colon" } }, { "getErrorRate", { qInf() } } }
            << QStringList { "--json", "show", "modbus/1/7" } << 0
            << "\"current1\": null,\n.*\"error_rate\": null,\n.*\"model\": null,\n.*\"power\": "
               "null,";
        QTest::newRow("infinite error rate")
            << Replies { { "meterList", oneMeter }, { "metervalues", { QVariantMap {} } },
                   { "info", { ":" } }, { "getErrorRate", { qInf() } } }
            << QStringList { "--json", "list" } << 0 << "\"error_rate\": null";
        QTest::newRow("empty value map")
            << Replies { { "meterList", oneMeter }, { "metervalues", { QVariantMap {} } },
                   { "info", { "N/A" } }, { "getErrorRate", { missing } } }
            << QStringList { "show", "modbus/1/7" } << 0
            << "\nStatus +-\nModel:Serial +-\nError rate +-\nLast update +-\n";
        QTest::newRow("control characters in texts")
            << Replies { { "meterList", { QStringList { "", "\x1b[2J", "modbus/1/7" } } },
                   { "metervalues", { QVariantMap { { "status", "Conn\nected" } } } },
                   { "info", { "EM\x1b[31m:1" } }, { "getErrorRate", { 0.5 } } }
            << QStringList { "list" } << 0 << "\n\\?\\[2J +Conn\\?ected +EM\\?\\[31m:1 +0.50\n";
        QTest::newRow("empty meter list")
            << Replies { { "meterList", { QStringList {} } } } << QStringList { "list" } << 0
            << "^PATH  STATUS  MODEL:SERIAL  ERRORS \\[%\\]\n$";
        QTest::newRow("meter list of the wrong type")
            << Replies { { "meterList", { 42 } } } << QStringList { "list" } << 1 << "^$";
        QTest::newRow("error rate of the wrong type")
            << Replies { { "meterList", oneMeter }, { "metervalues", { QVariantMap {} } },
                   { "info", { ":" } }, { "getErrorRate", { "none" } } }
            << QStringList { "watch", "--count", "1" } << 1 << "^$";
        QTest::newRow("no reply arguments")
            << Replies {} << QStringList { "read", "7", "1" } << 1 << "^$";
        QTest::newRow("register value of the wrong type")
            << Replies { { "readModbusRegister", { true } } } << QStringList { "read", "7", "1" }
            << 1 << "^$";
        QTest::newRow("loop test passed")
            << Replies { { "TestRS485", { true } } } << QStringList { "test-rs485" } << 0
            << "^RS-485 loop test passed\n$";
        QTest::newRow("loop test failed")
            << Replies { { "TestRS485", { false } } } << QStringList { "test-rs485" } << 1
            << "^RS-485 loop test failed\n$";
        QTest::newRow("loop test passed, JSON")
            << Replies { { "TestRS485", { true } } } << QStringList { "--json", "test-rs485" } << 0
            << "\"passed\": true";
        QTest::newRow("loop test failed, JSON")
            << Replies { { "TestRS485", { false } } } << QStringList { "--json", "test-rs485" } << 1
            << "\"passed\": false";
        QTest::newRow("loop test answer of the wrong type")
            << Replies { { "TestRS485", { "yes" } } } << QStringList { "test-rs485" } << 1 << "^$";
    }

    void unusualReplies()
    {
        QFETCH(Replies, replies);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        _fakeReplies = replies;
        const Run result = runMeterctl(_fakeBus.address(), arguments);
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == exitCode,
            qPrintable(describe(result)));
        QVERIFY2(QRegularExpression(output, QRegularExpression::DotMatchesEverythingOption)
                     .match(result.out)
                     .hasMatch(),
            qPrintable(describe(result)));
        QVERIFY(!result.out.contains('\x1b'));
        if (arguments.contains("--json") && !result.out.isEmpty())
            QVERIFY(!QJsonDocument::fromJson(result.out.toUtf8()).isNull());
        // A failure explains itself on one line; a success says nothing there.
        QCOMPARE(result.err.count('\n'), result.out.isEmpty() ? 1 : 0);
    }

    void loopTestOfAnUnconfiguredUnit_data()
    {
        QTest::addColumn<bool>("wired");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        QTest::newRow("ports wired together") << true << 0 << "RS-485 loop test passed\n";
        QTest::newRow("ports not wired") << false << 1 << "RS-485 loop test failed\n";
    }

    void loopTestOfAnUnconfiguredUnit()
    {
        QFETCH(bool, wired);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        PrivateBus bus;
        PtyPair wire;
        PtyPair other;
        QVERIFY(bus.isReady() && wire.isReady() && other.isReady());
        ProductionTestDaemon daemon(
            bus.address(), wire.first(), wired ? wire.second() : other.first());
        QVERIFY(daemon.isReady());

        const Run result = runMeterctl(bus.address(), { "test-rs485" });
        QVERIFY2(result.exitStatus == QProcess::NormalExit && result.exitCode == exitCode,
            qPrintable(describe(result)));
        QCOMPARE(result.out, output);

        // In production-test mode the daemon has no measurement service.
        const Run list = runMeterctl(bus.address(), { "list" });
        QVERIFY2(list.exitCode == 3, qPrintable(describe(list)));
    }

    void helpAndVersion_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QStringList>("fragments");
        const QStringList help { "Usage: meterctl", "list", "show PATH", "watch [PATH]",
            "read ADDR REG", "write ADDR REG VALUE", "test-rs485", "--json", "--count N",
            "Exit status", "a read of 0" };
        QTest::newRow("--help") << QStringList { "--help" } << help;
        QTest::newRow("-h after a command") << QStringList { "show", "-h" } << help;
        QTest::newRow("--version")
            << QStringList { "--version" } << QStringList { "meterctl " METERD_VERSION "\n" };
    }

    void helpAndVersion()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QStringList, fragments);
        // Neither needs the daemon.
        const Run result = runMeterctl(address(UnreachableBus), arguments);
        QCOMPARE(result.exitCode, 0);
        QVERIFY(result.err.isEmpty());
        for (const QString &fragment : fragments)
            QVERIFY2(result.out.contains(fragment), qPrintable(fragment));
    }

    // Last: the silent meter stays silent, and waiting for the daemon's 20 s verdict is slow.
    void faultyMeter()
    {
        QVERIFY(_rig->simulator("gone 8"));
        QTRY_COMPARE_WITH_TIMEOUT(listRow("modbus/1/8").value(1), QStringLiteral("Faulty"), 40000);

        const Run text = run({ "show", "modbus/1/8" });
        QCOMPARE(text.exitCode, 0);
        QCOMPARE(detailLines(text.out).value("Status"), QStringLiteral("Faulty"));
        QCOMPARE(detailLines(text.out).value("Current L1"), QStringLiteral("-"));

        const Run json = run({ "--json", "show", "modbus/1/8" });
        const QJsonObject meter = QJsonDocument::fromJson(json.out.toUtf8()).object();
        QCOMPARE(meter.value("status").toString(), QStringLiteral("Faulty"));
        QVERIFY(meter.value("current1").isNull());
        QCOMPARE(listRow("modbus/1/7").value(1), QStringLiteral("Connected"));
    }
};

QTEST_GUILESS_MAIN(TestMeterctl)
#include "tst_meterctl.moc"
