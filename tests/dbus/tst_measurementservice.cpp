#include "meterdrig.h"
#include "privatebus.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTest>

#include <climits>
#include <cmath>

namespace {

// Meters of every model the daemon detects on a line, frozen so that values do not drift. Values
// the simulator does not default are chosen to show how each model reads its registers. Address
// 10 answers nothing.
const QByteArray scenario = R"(
[7]
model=EM340
current2=-6.25
power=-1500.5
powerfactor3=-0.75
energy=123456.7
fault=frozen
[8]
model=EM111
current1=9.876
fault=frozen
[9]
model=EM210
current1=1.5
fault=frozen
; Power from the apparent power of phase 3 (words 28-29); power factors read unsigned, so
; -0.001 (0xFFFF) reads 65.535.
[12]
model=EM540
apparentpower3=123.4
powerfactor1=-0.001
fault=frozen
[13]
model=EM511
powerfactor1=-0.87
fault=frozen
[14]
model=EM580
current3=-2.25
power=-7200.5
powerfactor2=-0.98
fault=frozen
; Voltage 1 is the pair 0x0001, 0x0000: only the low words count.
[15]
model=GM3D
voltage1=0.1
fault=frozen
; The same registers: 5.0 A is 5000, which the EM21 retrofit (code 70) reads as 50.0 A.
[16]
model=GM3T
idcode=70
fault=frozen
[17]
model=GM3T
idcode=57
fault=frozen
; Imported energy at 62, where the others keep it at 52.
[18]
model=EM26
fault=frozen
)";

// Network meters where the suite may bind port 502: a PAC3220 and an EM24 (code 1650).
const QString pacAddress = "127.0.0.31";
const QString em24Address = "127.0.0.32";

QStringList networkMeters()
{
    if (!MeterSimulator::canServeModbusTcp())
        return {};
    return { pacAddress + ":PAC3220", em24Address + ":EM24:1650" };
}

QByteArray corvix()
{
    QByteArray text;
    for (int address : { 7, 8, 9, 10, 12, 13, 14, 15, 16, 17, 18 })
        text += QStringLiteral("[m%1]\nmeter=modbus/1/%2\n")
                    .arg(address, 2, 10, QLatin1Char('0'))
                    .arg(address)
                    .toLatin1();
    if (!networkMeters().isEmpty())
        text += "[tcp1]\nmeter=modbus/" + pacAddress.toLatin1() + "\n[tcp2]\nmeter=modbus/"
            + em24Address.toLatin1() + "\n";
    return text;
}

// The simulator's default values, with some absent (NaN) and some changed.
QVariantMap reading(const QVariantMap &changes, const QStringList &absent = {})
{
    QVariantMap values { { "voltage1", 230.0 }, { "voltage2", 231.0 }, { "voltage3", 229.5 },
        { "current1", 5.0 }, { "current2", 5.2 }, { "current3", 4.9 }, { "power", 3405.5 },
        { "power_factor1", 0.98 }, { "power_factor2", 0.97 }, { "power_factor3", 0.99 },
        { "frequency", 50.0 }, { "total_energy", 1234.5 }, { "total_energy_exported", 12.3 } };
    for (const QString &key : absent)
        values.insert(key, qQNaN());
    values.insert(changes);
    return values;
}

const QList<int> connectedAddresses { 7, 8, 9, 12, 13, 14, 15, 16, 17, 18 };

double number(const QString &reply)
{
    // busctl prints "d 230.1", "d nan", "q 1234" or "b true".
    return reply.section(' ', 1).toDouble();
}

// A D-Bus "q" argument; a plain quint16 would go out as "i".
QVariant word(quint16 value)
{
    return QVariant::fromValue(value);
}

bool near(double actual, double expected)
{
    return std::isnan(expected)
        ? std::isnan(actual)
        : std::fabs(actual - expected) < 1e-3 * qMax(1.0, std::fabs(expected));
}

// A POSIX zone far from UTC, so that a time printed in UTC instead of local time shows.
constexpr qint64 stationOffsetSeconds = 5 * 3600;

struct Run
{
    int exitCode = -1; // -1 after a crash
    QString out;
    QString err;
};

Run runMeterctl(const QString &busAddress, const QStringList &arguments)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("DBUS_SYSTEM_BUS_ADDRESS", busAddress);
    environment.insert("TZ", "MTZ-5");
    QProcess process;
    process.setProcessEnvironment(environment);
    process.start(METERCTL_BINARY, arguments);
    if (!process.waitForFinished(60000))
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

} // namespace

class TestMeasurementService : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MeterdRig> _rig;
    std::unique_ptr<QDBusInterface> _service;
    PrivateBus _emptyBus; // a bus without meterd

    QVariantMap values(const QString &path) const
    {
        return QDBusReply<QVariantMap>(_service->call("metervalues", path)).value();
    }

private slots:
    void initTestCase()
    {
        _rig = std::make_unique<MeterdRig>(scenario, corvix(), networkMeters());
        QVERIFY(_rig->start());
        _service = std::make_unique<QDBusInterface>("com.ovra.slavecontroller",
            "/MeasurementManager", "com.ovra.slavecontroller.MeasurementManager",
            QDBusConnection::connectToBus(_rig->busAddress(), "test"));
        // Started as the service manager starts it: its banner, configuration and bus.
        const QStringList lines = _rig->daemonLog().split('\n');
        for (const QString &line : QStringList { "<7>[config] Configuration read successfully",
                 "<6>[default] MeterManager, Version  " METERD_VERSION,
                 "<6>[default] Built with Qt 6.5.1 running on " + QString(qVersion()),
                 "<6>[default] Using system bus" })
            QVERIFY2(lines.contains(line), qPrintable(line));
        if (!networkMeters().isEmpty()) {
            for (const QString &address : { pacAddress, em24Address })
                QVERIFY(_rig->simulator("fault " + address + " frozen"));
        }
        QStringList paths;
        for (int address : connectedAddresses)
            paths << "modbus/1/" + QString::number(address);
        QVERIFY(_rig->waitConnected(paths));
    }

    void cleanupTestCase()
    {
        _service.reset();
        _rig.reset();
    }

    void meterListAndExists()
    {
        // Configuration order: corvix.ini's groups come sorted by name, TCP meters last.
        const QString network = networkMeters().isEmpty()
            ? QString()
            : QStringLiteral(" \"modbus/127.0.0.31\" \"modbus/127.0.0.32\"");
        QCOMPARE(_rig->busctl("meterList"),
            QStringLiteral("as %1 \"modbus/1/7\" \"modbus/1/8\" \"modbus/1/9\" \"modbus/1/10\" "
                           "\"modbus/1/12\" \"modbus/1/13\" \"modbus/1/14\" "
                           "\"modbus/1/15\" \"modbus/1/16\" \"modbus/1/17\" \"modbus/1/18\"%2")
                .arg(network.isEmpty() ? 11 : 13)
                .arg(network));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/1/7" }), QStringLiteral("b true"));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/1/10" }), QStringLiteral("b true"));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/1/19" }), QStringLiteral("b false"));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/01/7" }), QStringLiteral("b false"));
    }

    void readings_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("info");
        QTest::addColumn<QVariantMap>("expected");
        const QStringList onePhase { "voltage2", "voltage3", "current2", "current3",
            "power_factor2", "power_factor3" };
        const QStringList noQuality { "power_factor1", "power_factor2", "power_factor3",
            "frequency" };
        const QVariantMap noExport { { "total_energy_exported", 0.0 } };
        QTest::newRow("EM340") << "modbus/1/7"
                               << "EM340:SIM00000000007"
                               << reading({ { "current2", -6.25 }, { "power", -1500.5 },
                                      { "power_factor3", -0.75 }, { "total_energy", 123456.7 } });
        QTest::newRow("EM111, 13 serial bytes")
            << "modbus/1/8"
            << "EM111_AV7:SIM0000000000"
            << reading({ { "current1", 9.876 }, { "total_energy_exported", 0.0 } },
                   onePhase + noQuality);
        QTest::newRow("EM210") << "modbus/1/9"
                               << "EM210:SIM00009"
                               << reading({ { "current1", 1.5 }, { "total_energy_exported", 0.0 } },
                                      noQuality);
        QTest::newRow("EM540") << "modbus/1/12"
                               << "EM540:SIM0000000000012"
                               << reading({ { "power", 123.4 }, { "power_factor1", 65.535 } });
        QTest::newRow("EM511") << "modbus/1/13"
                               << "EM511:SIM00000000013"
                               << reading({ { "power_factor1", -0.87 } }, onePhase);
        QTest::newRow("EM580") << "modbus/1/14"
                               << "EM580:SIM00000000014"
                               << reading({ { "current3", -2.25 }, { "power", -7200.5 },
                                      { "power_factor2", -0.98 } });
        QTest::newRow("GM3D") << "modbus/1/15"
                              << "EM33_DIN_AV3:15"
                              << reading({ { "voltage1", 0.1 }, { "total_energy_exported", 0.0 } },
                                     noQuality);
        QTest::newRow("GM3T code 70, currents / 100")
            << "modbus/1/16"
            << "EM21_72R:SIM00000000016"
            << reading({ { "current1", 50.0 }, { "current2", 52.0 }, { "current3", 49.0 },
                           { "total_energy_exported", 0.0 } },
                   noQuality);
        QTest::newRow("GM3T code 57, currents / 1000")
            << "modbus/1/17"
            << "EM21_AV5:SIM00000000017" << reading(noExport, noQuality);
        QTest::newRow("EM26") << "modbus/1/18"
                              << "EM26_96_AV5:SIM00000000018" << reading(noExport, noQuality);
    }

    void readings()
    {
        QFETCH(QString, path);
        QFETCH(QString, info);
        QFETCH(QVariantMap, expected);
        QCOMPARE(_rig->busctl("info", "s", { path }), "s \"" + info + '"');
        const QVariantMap actual = values(path);
        QCOMPARE(actual.value("status").toString(), QStringLiteral("Connected"));
        QCOMPARE(actual.value("energymeter_status").toInt(), 0);
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QVERIFY2(near(actual.value(it.key()).toDouble(), it.value().toDouble()),
                qPrintable(it.key() + " = " + actual.value(it.key()).toString()));

        for (int phase = 1; phase <= 3; ++phase) {
            const QString n = QString::number(phase);
            QVERIFY(near(number(_rig->busctl("current", "si", { path, n })),
                expected.value("current" + n).toDouble()));
            QVERIFY(near(number(_rig->busctl("voltage", "si", { path, n })),
                expected.value("voltage" + n).toDouble()));
        }
        QVERIFY(
            near(number(_rig->busctl("power", "s", { path })), expected.value("power").toDouble()));
        QVERIFY(near(number(_rig->busctl("totalEnergy", "s", { path })),
            expected.value("total_energy").toDouble()));
        QVERIFY(number(_rig->busctl("getErrorRate", "s", { path })) < 5.0);
    }

    void silentAddress()
    {
        const QVariantMap absent = values("modbus/1/10");
        QCOMPARE(absent.value("status").toString(), QStringLiteral("NotFound"));
        QCOMPARE(absent.value("energymeter_status").toInt(), -1);
        QVERIFY(std::isnan(absent.value("current1").toDouble()));
        QCOMPARE(_rig->busctl("info", "s", { "modbus/1/10" }), QStringLiteral("s \":\""));
        // Never identified, so there is no driver whose reads could be counted.
        QCOMPARE(_rig->busctl("getErrorRate", "s", { "modbus/1/10" }), QStringLiteral("d nan"));
        QVERIFY(_rig->daemonLog().contains("<3>[modbus.meter] useContext No meter detected: 10"));
    }

    void registerAccess()
    {
        QCOMPARE(_rig->busctl("setModbusRegister", "qqq", { "7", "4356", "1234" }),
            QStringLiteral("b true"));
        QCOMPARE(
            _rig->busctl("readModbusRegister", "qq", { "7", "4356" }), QStringLiteral("q 1234"));
        QCOMPARE(_rig->busctl("readModbusRegister", "qq", { "8", "11" }), QStringLiteral("q 101"));
        // A dead slave, and addresses libmodbus refuses, answer as failures.
        QCOMPARE(_rig->busctl("readModbusRegister", "qq", { "10", "11" }), QStringLiteral("q 0"));
        QCOMPARE(_rig->busctl("setModbusRegister", "qqq", { "10", "1", "1" }),
            QStringLiteral("b false"));
        QCOMPARE(
            _rig->busctl("readModbusRegister", "qq", { "65535", "11" }), QStringLiteral("q 0"));
        QCOMPARE(_rig->busctl("setModbusRegister", "qqq", { "248", "1", "1" }),
            QStringLiteral("b false"));
        QVERIFY(_rig->waitConnected({ "modbus/1/7" }));
    }

    void readingsAnsweredWhileRegisterAccessWaits()
    {
        // A silent meter holds the channel for three response timeouts at every poll, so the
        // register read mostly waits for the reader to let go; readings are answered meanwhile.
        QVERIFY(_rig->simulator("fault 8 silent"));
        QDBusInterface &service = *_service;
        const QDBusPendingCall access = service.asyncCall("readModbusRegister", word(9), word(11));
        int answeredMeanwhile = 0;
        while (!access.isFinished()) {
            QVERIFY(
                near(QDBusReply<double>(service.call("current", "modbus/1/7", 1)).value(), 5.0));
            answeredMeanwhile += access.isFinished() ? 0 : 1;
        }
        QCOMPARE(QDBusReply<quint16>(access).value(), quint16(210));
        QVERIFY(answeredMeanwhile > 0);

        QVERIFY(_rig->simulator("fault 8 frozen"));
        QTRY_VERIFY_WITH_TIMEOUT(
            near(number(_rig->busctl("current", "si", { "modbus/1/8", "1" })), 9.876), 10000);
    }

    void registerCallsInTurnWhileMetersArePolled()
    {
        // Rounds of register calls sent together, as from several technicians at once, while
        // the reader polls the meters. Each call is served whole before the next (a read sees
        // the write sent before it), and no transfer shares the line with a poll: every answer
        // is right, and the frozen readings never show another slave's values or a failed poll.
        const int failuresBefore = _rig->daemonLog().count("could not");
        QDBusInterface &service = *_service;
        const auto write = [&](quint16 slave, quint16 value) {
            return service.asyncCall("setModbusRegister", word(slave), word(4356), word(value));
        };
        const auto read = [&](quint16 slave, quint16 address) {
            return service.asyncCall("readModbusRegister", word(slave), word(address));
        };
        const QList<std::pair<QString, double>> readings { { "modbus/1/7", 5.0 },
            { "modbus/1/8", 9.876 }, { "modbus/1/9", 1.5 } };
        // Only the answering meters are polled, so that the reader takes turns often.
        service.call("setDisabled", "modbus/1/10", true);
        for (int round = 0; round < 25; ++round) {
            const quint16 value = quint16(1000 + round);
            const QList<std::pair<QDBusPendingCall, QVariant>> calls { { write(7, value), true },
                { read(7, 4356), word(value) }, { read(8, 11), word(101) },
                { read(9, 11), word(210) }, { write(9, value + 1), true },
                { read(7, 11), word(341) }, { read(9, 4356), word(value + 1) },
                { read(8, 11), word(101) }, { read(7, 4356), word(value) },
                { read(9, 11), word(210) } };
            do {
                for (const auto &[path, current] : readings) {
                    const QDBusReply<double> reply = service.call("current", path, 1);
                    QVERIFY2(near(reply.value(), current),
                        qPrintable(path + " " + QString::number(reply.value())));
                }
            } while (!calls.last().first.isFinished());
            for (const auto &[call, expected] : calls) {
                QDBusPendingCall answer = call;
                answer.waitForFinished();
                QCOMPARE(answer.reply().arguments().value(0), expected);
            }
        }
        QCOMPARE(_rig->daemonLog().count("could not"), failuresBefore);
        service.call("setDisabled", "modbus/1/10", false);
    }

    // Paths and phases no meter has: normal replies with the neutral values, never an error.
    void malformedInputGetsNormalReplies()
    {
        for (const QString &path :
            QStringList { "", "//", "modbus/1/256", "modbus/1/99999999999999999999", "modbus/1/7/8",
                "modbus/::1", "modbus/999.1.1.1", "trafo/x", "pulse/1/2", QString(4096, 'm'),
                QString::fromUtf8("modbus/1/\xe2\x82\xac") }) {
            for (const char *method :
                { "totalEnergy", "power", "getErrorRate", "info", "meterExists", "metervalues" })
                QCOMPARE(_service->call(method, path).type(), QDBusMessage::ReplyMessage);
            QCOMPARE(_service->call("setDisabled", path, false).type(), QDBusMessage::ReplyMessage);
        }
        for (int phase : { 0, 4, -1, INT_MAX, INT_MIN })
            QVERIFY(std::isnan(QDBusReply<double>(_service->call("voltage", "modbus/1/7", phase))));
        QCOMPARE(QDBusReply<double>(_service->call("current", "modbus/1/99", 1)).value(), 0.0);
        QVERIFY(std::isnan(QDBusReply<double>(_service->call("getErrorRate", "modbus/1/99"))));
        QVERIFY(QDBusReply<QVariantMap>(_service->call("metervalues", "modbus/1/99"))
                    .value()
                    .isEmpty());
        QCOMPARE(
            QDBusReply<QString>(_service->call("info", "trafo/1")).value(), QStringLiteral("N/A"));
        QVERIFY(_rig->daemonLog().contains(
            "<3>[measurement.manager] current Incorrect path: \"modbus/1/99\""));
    }

    void disabledMeterIsNotPolled()
    {
        QCOMPARE(_rig->busctl("setDisabled", "sb", { "modbus/1/9", "true" }), QString());
        // A poll already under way when the meter was disabled finishes first.
        QTest::qWait(1500);
        QVERIFY(_rig->simulator("set 9 voltage1 240.0"));
        QTest::qWait(2500);
        QVERIFY(near(number(_rig->busctl("voltage", "si", { "modbus/1/9", "1" })), 230.0));
        QCOMPARE(_rig->busctl("setDisabled", "sb", { "modbus/1/9", "false" }), QString());
        for (const char *change : { "disabling", "enabling" })
            QVERIFY(_rig->daemonLog().contains(
                QStringLiteral("setDisabled %1 modbus communication for meter at address 9")
                    .arg(change)));
        QTRY_VERIFY_WITH_TIMEOUT(
            near(number(_rig->busctl("voltage", "si", { "modbus/1/9", "1" })), 240.0), 10000);
    }

    // Found by their device identification or model code after the second detection pass; a
    // fault on the network never holds up the RS-485 meters.
    void networkMetersBesideSerialOnes()
    {
        if (networkMeters().isEmpty())
            QSKIP("binding port 502 needs root (or run the suite inside unshare -rn)");
        QVERIFY(_rig->waitConnected({ "modbus/" + pacAddress, "modbus/" + em24Address }));
        QCOMPARE(_rig->busctl("info", "s", { "modbus/" + pacAddress }),
            QStringLiteral("s \"PAC3220:\""));
        QVERIFY(near(number(_rig->busctl("current", "si", { "modbus/" + em24Address, "2" })), 5.2));
        QCOMPARE(_rig->busctl("info", "s", { "modbus/" + em24Address }),
            QStringLiteral("s \"EM24DINAV23XE1PFB:SIM00000001001\""));
        for (const QString &path : { pacAddress, "modbus/" + pacAddress })
            QCOMPARE(_rig->busctl("meterExists", "s", { path }), QStringLiteral("b false"));

        QVERIFY(_rig->simulator("fault " + pacAddress + " silent"));
        QVERIFY(_rig->simulator("fault " + em24Address + " reset"));
        QTRY_COMPARE_WITH_TIMEOUT(_rig->busctl("voltage", "si", { "modbus/" + pacAddress, "1" }),
            QStringLiteral("d nan"), 10000);
        const double before = values("modbus/1/7").value("last_update").toDouble();
        QTRY_VERIFY_WITH_TIMEOUT(
            values("modbus/1/7").value("last_update").toDouble() >= before + 2, 10000);
        QVERIFY(_rig->simulator("back " + pacAddress));
        QTRY_VERIFY_WITH_TIMEOUT(
            near(number(_rig->busctl("voltage", "si", { "modbus/" + pacAddress, "1" })), 230.0),
            10000);
        QVERIFY(_rig->simulator("back " + em24Address));
    }

    // meterctl, the technicians' client: a meter's values with their units, and as JSON.
    void meterctlShow()
    {
        const Run result = runMeterctl(_rig->busAddress(), { "show", "modbus/01/007" });
        QVERIFY2(result.exitCode == 0, qPrintable(describe(result)));
        QMap<QString, QString> details;
        for (const QStringList &row : tableRows(result.out))
            details.insert(row.value(0), row.value(1));
        const QMap<QString, QString> shown { { "Path", "modbus/1/7" }, { "Status", "Connected" },
            { "Model:Serial", "EM340:SIM00000000007" }, { "Voltage L3", "229.5 V" },
            { "Current L2", "-6.250 A" }, { "Power", "-1500.5 W" }, { "Power factor L3", "-0.750" },
            { "Frequency", "50.00 Hz" }, { "Energy imported", "123456.70 kWh" },
            { "Energy exported", "12.30 kWh" }, { "Session energy imported", "-" } };
        for (auto it = shown.cbegin(); it != shown.cend(); ++it)
            QCOMPARE(details.value(it.key()), it.value());

        const QJsonObject meter = QJsonDocument::fromJson(
            runMeterctl(_rig->busAddress(), { "--json", "show", "modbus/1/7" }).out.toUtf8())
                                      .object();
        QCOMPARE(meter["serial"].toString(), QStringLiteral("SIM00000000007"));
        QCOMPARE(meter["current2"].toDouble(), -6.25);
        QCOMPARE(meter["total_energy"].toDouble(), double(float(123456.7)));
        QVERIFY(meter["session_energy"].isNull());
        // Printed in the station's local time, not in UTC; the meter is read every second.
        QDateTime time = QDateTime::fromString(details["Last update"], "yyyy-MM-dd HH:mm:ss");
        time.setOffsetFromUtc(stationOffsetSeconds);
        QVERIFY2(qAbs(time.toSecsSinceEpoch() - meter["last_update"].toInteger(-1)) <= 10,
            qPrintable(result.out));
    }

    // One line on standard error, nothing on standard output, and the exit code: 2 for usage,
    // 1 for a failed request, 3 when meterd cannot be reached.
    void meterctlFailures_data()
    {
        QTest::addColumn<QString>("bus"); // "rig", "empty" (no meterd) or none at all
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("reason");
        const auto row = [](const char *name, const char *bus, const QStringList &arguments,
                             int code, const char *reason) {
            QTest::newRow(name) << bus << arguments << code << reason;
        };
        row("unknown command", "rig", { "status" }, 2, "unknown command \"status\"");
        row("no daemon", "empty", { "watch", "--count", "1" }, 3, "meterd is not running");
        row("no bus", "", { "list" }, 3, "cannot reach the D-Bus system bus");
    }

    void meterctlFailures()
    {
        QFETCH(QString, bus);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, reason);
        const QString address = bus == "rig" ? _rig->busAddress()
            : bus == "empty"                 ? _emptyBus.address()
                                             : "unix:path=/nonexistent/meterctl-test-bus";
        const Run result = runMeterctl(address, arguments);
        QVERIFY2(result.exitCode == exitCode && result.out.isEmpty() && result.err.count('\n') == 1
                && result.err.startsWith("meterctl: ") && result.err.contains(reason),
            qPrintable(describe(result)));
    }
};

QTEST_GUILESS_MAIN(TestMeasurementService)
#include "tst_measurementservice.moc"
