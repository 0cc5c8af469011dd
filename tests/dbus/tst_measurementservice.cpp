#include "frozenmeters.h"
#include "meterdrig.h"

#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusPendingCall>
#include <QDBusReply>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

#include <climits>
#include <cmath>

namespace {

// Frozen meters of every model the daemon detects on a line (values do not drift, so they can
// be compared exactly), one meter that answers its identification but no measurement, and one
// address where nothing answers. The values of the newer models are chosen to show how each
// reads its registers.
QByteArray scenario()
{
    return FrozenMeters::scenario() + R"(
[11]
model=EM111
idcode=1762
fault=frozen

[13]
model=EM511
serial=EM511SERIAL013
voltage1=231.5
current1=7.25
power=1678.4
powerfactor1=-0.87
frequency=49.9
energy=555.5
energyexported=1.2
fault=frozen

[14]
model=EM580
serial=EM580SERIAL014
voltage1=229.9
voltage2=230.4
voltage3=231.0
current1=16.0
current2=15.5
current3=-2.25
power=-7200.5
powerfactor1=0.99
powerfactor2=-0.98
powerfactor3=0.97
frequency=50.0
energy=98765.4
energyexported=321.0
fault=frozen

; Voltage 1 is the pair 0x0001, 0x0000; the other word of current 3's pair is register 11, the
; identification code, and changes nothing.
[15]
model=GM3D
serial=123456
voltage1=0.1
voltage2=230.0
voltage3=229.0
current1=5.5
current2=0.0
current3=4.9
power=3000.0
energy=100.5
fault=frozen

; Current 1 is 1234 in the register: 12.34 A for the EM21 retrofit code 70, 1.234 A for 57.
[16]
model=GM3T
idcode=70
serial=GM3TRETROFIT16
voltage1=230.0
voltage2=231.0
voltage3=232.0
current1=1.234
current2=2.5
current3=0.05
power=1500.0
energy=42.0
fault=frozen

[17]
model=GM3T
idcode=57
serial=GM3TREGULAR017
voltage1=230.0
voltage2=231.0
voltage3=232.0
current1=1.234
current2=2.5
current3=0.05
power=1500.0
energy=42.0
fault=frozen
)";
}

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
    QByteArray text = FrozenMeters::corvix() + R"(
[mismatch]
meter=modbus/1/11
[em511]
meter=modbus/1/13
[em580]
meter=modbus/1/14
[gm3d]
meter=modbus/1/15
[gm3tretrofit]
meter=modbus/1/16
[gm3tregular]
meter=modbus/1/17
)";
    if (!networkMeters().isEmpty())
        text += "[tcp1]\nmeter=modbus/" + pacAddress.toLatin1() + "\n[tcp2]\nmeter=modbus/"
            + em24Address.toLatin1() + "\n";
    return text;
}

const QList<int> connectedAddresses { 7, 8, 9, 12, 13, 14, 15, 16, 17 };

double number(const QString &reply)
{
    // busctl prints "d 230.1", "d nan", "q 1234" or "b true".
    return reply.section(' ', 1).toDouble();
}

// Parses busctl's a{sv} output: a{sv} N "key" TYPE value ...
QVariantMap parseMap(const QString &reply)
{
    static const QRegularExpression token(QStringLiteral("\"((?:[^\"\\\\]|\\\\.)*)\"|(\\S+)"));
    QStringList tokens;
    for (auto it = token.globalMatch(reply); it.hasNext();) {
        const QRegularExpressionMatch match = it.next();
        tokens << (match.capturedStart(1) >= 0 ? match.captured(1) : match.captured(2));
    }
    QVariantMap map;
    for (int i = 2; i + 2 < tokens.size() + 1 && i + 2 <= tokens.size() - 1; i += 3) {
        const QString &type = tokens.at(i + 1);
        const QString &value = tokens.at(i + 2);
        map.insert(tokens.at(i), type == "s" ? QVariant(value) : QVariant(value.toDouble()));
    }
    return map;
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

} // namespace

class TestMeasurementService : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MeterdRig> _rig;

    QVariantMap values(const QString &path) const
    {
        return parseMap(_rig->busctl("metervalues", "s", { path }));
    }

    void waitConnected(const QString &path)
    {
        QTRY_COMPARE_WITH_TIMEOUT(
            values(path).value("status").toString(), QStringLiteral("Connected"), 20000);
    }

private slots:
    void initTestCase()
    {
        _rig = std::make_unique<MeterdRig>(scenario(), corvix(), networkMeters());
        QVERIFY(_rig->start());
        if (!networkMeters().isEmpty()) {
            for (const QString &address : { pacAddress, em24Address })
                QVERIFY(_rig->simulator("fault " + address + " frozen"));
        }
        for (int address : connectedAddresses)
            waitConnected("modbus/1/" + QString::number(address));
    }

    void cleanupTestCase() { _rig.reset(); }

    void meterListAndExists()
    {
        // Configuration order: corvix.ini's groups come sorted by name.
        const QString network = networkMeters().isEmpty()
            ? QString()
            : QStringLiteral(" \"modbus/127.0.0.31\" \"modbus/127.0.0.32\"");
        QCOMPARE(_rig->busctl("meterList"),
            QStringLiteral("as %1 \"modbus/1/10\" \"modbus/1/8\" \"modbus/1/9\" \"modbus/1/7\" "
                           "\"modbus/1/13\" \"modbus/1/12\" \"modbus/1/14\" \"modbus/1/15\" "
                           "\"modbus/1/17\" \"modbus/1/16\" \"modbus/1/11\"%2")
                .arg(network.isEmpty() ? 11 : 13)
                .arg(network));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/1/7" }), QStringLiteral("b true"));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/1/10" }), QStringLiteral("b true"));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/1/18" }), QStringLiteral("b false"));
        QCOMPARE(_rig->busctl("meterExists", "s", { "modbus/01/7" }), QStringLiteral("b false"));
    }

    void readings_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QVariantMap>("expected");
        const double nan = std::nan("");
        QTest::newRow("EM340") << "modbus/1/7"
                               << QVariantMap { { "voltage1", 230.1 }, { "voltage2", 231.2 },
                                      { "voltage3", 229.3 }, { "current1", 5.2 },
                                      { "current2", -6.25 }, { "current3", 0.125 },
                                      { "power", -1500.5 }, { "power_factor1", 0.98 },
                                      { "power_factor2", 0.5 }, { "power_factor3", -0.75 },
                                      { "frequency", 49.9 }, { "total_energy", 123456.7 },
                                      { "total_energy_exported", 12.3 } };
        QTest::newRow("EM111") << "modbus/1/8"
                               << QVariantMap { { "voltage1", 228.4 }, { "voltage2", nan },
                                      { "voltage3", nan }, { "current1", 9.876 },
                                      { "current2", nan }, { "current3", nan }, { "power", 2254.6 },
                                      { "power_factor1", nan }, { "frequency", nan },
                                      { "total_energy", 42.5 }, { "total_energy_exported", 0.0 } };
        QTest::newRow("EM210") << "modbus/1/9"
                               << QVariantMap { { "voltage1", 232.0 }, { "voltage2", 233.0 },
                                      { "voltage3", 234.5 }, { "current1", 1.5 },
                                      { "current2", 2.5 }, { "current3", 3.5 }, { "power", 1800.0 },
                                      { "power_factor2", nan }, { "frequency", nan },
                                      { "total_energy", 777.7 }, { "total_energy_exported", 0.0 } };
        QTest::newRow("EM540 power from words 28-29, unsigned power factor")
            << "modbus/1/12"
            << QVariantMap { { "voltage1", 230.1 }, { "voltage2", 231.2 }, { "voltage3", 229.3 },
                   { "current1", 5.2 }, { "current2", 6.25 }, { "current3", 0.125 },
                   { "power", 123.4 }, { "power_factor1", 65.535 }, { "power_factor2", 0.5 },
                   { "power_factor3", 1.0 }, { "frequency", 50.1 }, { "total_energy", 2345.6 },
                   { "total_energy_exported", 7.8 } };
        QTest::newRow("EM511") << "modbus/1/13"
                               << QVariantMap { { "voltage1", 231.5 }, { "voltage2", nan },
                                      { "voltage3", nan }, { "current1", 7.25 },
                                      { "current2", nan }, { "current3", nan }, { "power", 1678.4 },
                                      { "power_factor1", -0.87 }, { "power_factor2", nan },
                                      { "frequency", 49.9 }, { "total_energy", 555.5 },
                                      { "total_energy_exported", 1.2 } };
        QTest::newRow("EM580") << "modbus/1/14"
                               << QVariantMap { { "voltage1", 229.9 }, { "voltage2", 230.4 },
                                      { "voltage3", 231.0 }, { "current1", 16.0 },
                                      { "current2", 15.5 }, { "current3", -2.25 },
                                      { "power", -7200.5 }, { "power_factor1", 0.99 },
                                      { "power_factor2", -0.98 }, { "power_factor3", 0.97 },
                                      { "frequency", 50.0 }, { "total_energy", 98765.4 },
                                      { "total_energy_exported", 321.0 } };
        QTest::newRow("GM3D low words of the pairs")
            << "modbus/1/15"
            << QVariantMap { { "voltage1", 0.1 }, { "voltage2", 230.0 }, { "voltage3", 229.0 },
                   { "current1", 5.5 }, { "current2", 0.0 }, { "current3", 4.9 },
                   { "power", 3000.0 }, { "power_factor1", nan }, { "frequency", nan },
                   { "total_energy", 100.5 }, { "total_energy_exported", 0.0 } };
        const auto gm3t = [nan](double current1, double current2, double current3) {
            return QVariantMap { { "voltage1", 230.0 }, { "voltage2", 231.0 },
                { "voltage3", 232.0 }, { "current1", current1 }, { "current2", current2 },
                { "current3", current3 }, { "power", 1500.0 }, { "power_factor1", nan },
                { "frequency", nan }, { "total_energy", 42.0 }, { "total_energy_exported", 0.0 } };
        };
        QTest::newRow("GM3T code 70, currents / 100") << "modbus/1/16" << gm3t(12.34, 25.0, 0.5);
        QTest::newRow("GM3T code 57, currents / 1000") << "modbus/1/17" << gm3t(1.234, 2.5, 0.05);
    }

    void readings()
    {
        QFETCH(QString, path);
        QFETCH(QVariantMap, expected);
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

    void info_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        QTest::newRow("EM340") << "modbus/1/7"
                               << "s \"EM340:EM340SERIAL007\"";
        QTest::newRow("EM111 keeps 13 serial bytes") << "modbus/1/8"
                                                     << "s \"EM111_AV7:EM111SERIAL00\"";
        QTest::newRow("EM210") << "modbus/1/9"
                               << "s \"EM210:EM210SN9\"";
        QTest::newRow("EM540") << "modbus/1/12"
                               << "s \"EM540:EM540SERIAL00012\"";
        QTest::newRow("EM511") << "modbus/1/13"
                               << "s \"EM511:EM511SERIAL013\"";
        QTest::newRow("EM580") << "modbus/1/14"
                               << "s \"EM580:EM580SERIAL014\"";
        QTest::newRow("GM3D") << "modbus/1/15"
                              << "s \"EM33_DIN_AV3:123456\"";
        QTest::newRow("GM3T EM21 retrofit") << "modbus/1/16"
                                            << "s \"EM21_72R:GM3TRETROFIT16\"";
        QTest::newRow("GM3T EM21") << "modbus/1/17"
                                   << "s \"EM21_AV5:GM3TREGULAR017\"";
        QTest::newRow("absent meter") << "modbus/1/10"
                                      << "s \":\"";
        QTest::newRow("unknown path") << "modbus/1/99"
                                      << "s \"N/A\"";
        QTest::newRow("trafo") << "trafo/1"
                               << "s \"N/A\"";
    }

    void info()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QCOMPARE(_rig->busctl("info", "s", { path }), expected);
    }

    // What each model asks for, as the simulator saw it: the identification code, the static
    // read, then the measurement read at every poll.
    void requestsOnTheWire_data()
    {
        QTest::addColumn<int>("slave");
        QTest::addColumn<QStringList>("staticRead");
        QTest::addColumn<QStringList>("measurement");
        QTest::newRow("EM540") << 12
                               << QStringList { "0x03 770 1", "0x03 771 1", "0x03 11 1",
                                      "0x03 20480 8", "0x03 4356 1", "0x03 50 1" }
                               << QStringList { "0x03 0 80" };
        QTest::newRow("EM511") << 13 << QStringList { "0x03 770 1", "0x03 11 1", "0x03 20480 7" }
                               << QStringList { "0x03 0 6", "0x03 14 4", "0x03 32 2" };
        QTest::newRow("EM580") << 14 << QStringList { "0x03 770 2", "0x03 11 1", "0x03 20480 8" }
                               << QStringList { "0x03 0 80" };
        QTest::newRow("GM3D") << 15
                              << QStringList { "0x03 770 2", "0x03 11 1", "0x03 16 1",
                                     "0x03 4355 1", "0x03 4356 2" }
                              << QStringList { "0x03 0 16" };
        QTest::newRow("GM3T") << 16
                              << QStringList { "0x03 770 1", "0x03 771 1", "0x03 11 1", "0x03 50 1",
                                     "0x03 20480 7" }
                              << QStringList { "0x03 0 6", "0x03 12 6", "0x03 40 2", "0x03 52 2" };
    }

    void requestsOnTheWire()
    {
        QFETCH(int, slave);
        QFETCH(QStringList, staticRead);
        QFETCH(QStringList, measurement);
        const QStringList expected
            = QStringList { "0x03 11 1" } + staticRead + measurement + measurement;
        QTRY_VERIFY_WITH_TIMEOUT(_rig->simulatorRequests(slave).size() >= expected.size(), 10000);
        QCOMPARE(_rig->simulatorRequests(slave).mid(0, expected.size()), expected);
    }

    void silentAddress()
    {
        const QVariantMap absent = values("modbus/1/10");
        QCOMPARE(absent.value("status").toString(), QStringLiteral("NotFound"));
        QCOMPARE(absent.value("energymeter_status").toInt(), -1);
        QVERIFY(std::isnan(absent.value("current1").toDouble()));
        // Never identified, so there is no driver whose reads could be counted.
        QCOMPARE(_rig->busctl("getErrorRate", "s", { "modbus/1/10" }), QStringLiteral("d nan"));
        QVERIFY(_rig->daemonLog().contains("<3>[modbus.meter] useContext No meter detected: 10"));
    }

    void everyReadFailing()
    {
        // Identified as an EM540, but the registers of that model are missing: every poll makes
        // three attempts, each ending in a failure the driver catches, and counts one error.
        QTRY_VERIFY_WITH_TIMEOUT(
            !_rig->busctl("getErrorRate", "s", { "modbus/1/11" }).contains("nan"), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(_rig->busctl("getErrorRate", "s", { "modbus/1/11" }).left(9),
            QStringLiteral("d 33.3333"), 10000);
        QCOMPARE(values("modbus/1/11").value("status").toString(), QStringLiteral("NotFound"));
    }

    void registerRoundTrip()
    {
        QCOMPARE(_rig->busctl("setModbusRegister", "qqq", { "7", "4356", "1234" }),
            QStringLiteral("b true"));
        QCOMPARE(
            _rig->busctl("readModbusRegister", "qq", { "7", "4356" }), QStringLiteral("q 1234"));
        QCOMPARE(_rig->busctl("readModbusRegister", "qq", { "8", "11" }), QStringLiteral("q 101"));
    }

    void registerCallsToAbsentSlaves()
    {
        QCOMPARE(_rig->busctl("readModbusRegister", "qq", { "10", "11" }), QStringLiteral("q 0"));
        QCOMPARE(_rig->busctl("setModbusRegister", "qqq", { "10", "1", "1" }),
            QStringLiteral("b false"));
        QCOMPARE(
            _rig->busctl("readModbusRegister", "qq", { "65535", "11" }), QStringLiteral("q 0"));
        QCOMPARE(_rig->busctl("setModbusRegister", "qqq", { "248", "1", "1" }),
            QStringLiteral("b false"));
        waitConnected("modbus/1/7");
    }

    void readingsAnsweredWhileRegisterAccessWaits()
    {
        // A silent meter holds the channel for three response timeouts at every poll, so the
        // register read mostly waits for the reader to let go; readings are answered meanwhile.
        QVERIFY(_rig->simulator("fault 8 silent"));
        QDBusConnection bus = QDBusConnection::connectToBus(_rig->busAddress(), "waiting");
        QDBusInterface service("com.ovra.slavecontroller", "/MeasurementManager",
            "com.ovra.slavecontroller.MeasurementManager", bus);
        const QDBusPendingCall access = service.asyncCall("readModbusRegister", word(9), word(11));
        int answeredMeanwhile = 0;
        while (!access.isFinished()) {
            QVERIFY(
                near(QDBusReply<double>(service.call("current", "modbus/1/7", 1)).value(), 5.2));
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
        QDBusConnection bus = QDBusConnection::connectToBus(_rig->busAddress(), "rounds");
        QDBusInterface service("com.ovra.slavecontroller", "/MeasurementManager",
            "com.ovra.slavecontroller.MeasurementManager", bus);
        const auto write = [&](quint16 slave, quint16 value) {
            return service.asyncCall("setModbusRegister", word(slave), word(4356), word(value));
        };
        const auto read = [&](quint16 slave, quint16 address) {
            return service.asyncCall("readModbusRegister", word(slave), word(address));
        };
        const QList<std::pair<QString, double>> readings { { "modbus/1/7", 5.2 },
            { "modbus/1/8", 9.876 }, { "modbus/1/9", 1.5 } };
        // Only the answering meters are polled, so that the reader takes turns often.
        for (const char *path : { "modbus/1/10", "modbus/1/11" })
            service.call("setDisabled", path, true);
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
        for (const char *path : { "modbus/1/10", "modbus/1/11" })
            service.call("setDisabled", path, false);
    }

    void malformedInputGetsNormalReplies()
    {
        QDBusConnection bus = QDBusConnection::connectToBus(_rig->busAddress(), "flood");
        QDBusInterface service("com.ovra.slavecontroller", "/MeasurementManager",
            "com.ovra.slavecontroller.MeasurementManager", bus);
        QVERIFY(service.isValid());

        QStringList paths { "", "/", "//", "modbus", "modbus/", "modbus//", "modbus/1/",
            "modbus/1/0", "modbus/1/256", "modbus/1/-1", "modbus/1/99999999999999999999",
            "modbus/3/7", "modbus/-1/7", "modbus/1/7/", "modbus/1/7/8", "modbus/::1",
            "modbus/999.1.1.1", "trafo", "trafo/x", "pulse/1/2", "NULL:N/A", QString(4096, 'm'),
            QString::fromUtf8("modbus/1/\xe2\x82\xac"), "modbus/1/7\n", "modbus\0/1/7" };
        QRandomGenerator random(20261121);
        const QString alphabet = QStringLiteral("modbus/0123456789.:-trafopulse ");
        while (paths.size() < 300) {
            QString path;
            for (int i = int(random.bounded(24)); i > 0; --i)
                path += alphabet.at(int(random.bounded(alphabet.size())));
            paths << path;
        }

        for (const QString &path : std::as_const(paths)) {
            for (const char *method :
                { "totalEnergy", "power", "getErrorRate", "info", "meterExists", "metervalues" }) {
                const QDBusMessage reply = service.call(method, path);
                QVERIFY2(
                    reply.type() == QDBusMessage::ReplyMessage, qPrintable(method + (" " + path)));
            }
            QCOMPARE(service.call("current", path, 1).type(), QDBusMessage::ReplyMessage);
            QCOMPARE(service.call("setDisabled", path, false).type(), QDBusMessage::ReplyMessage);
        }
        for (int phase : { 0, 4, -1, INT_MAX, INT_MIN }) {
            for (const char *method : { "current", "voltage" }) {
                const QDBusReply<double> reply = service.call(method, "modbus/1/7", phase);
                QVERIFY(reply.isValid());
                QVERIFY2(std::isnan(reply.value()), qPrintable(QString::number(phase)));
            }
        }
        QCOMPARE(QDBusReply<double>(service.call("current", "modbus/1/99", 1)).value(), 0.0);
        QVERIFY(
            std::isnan(QDBusReply<double>(service.call("getErrorRate", "modbus/1/99")).value()));
        QVERIFY(
            QDBusReply<QVariantMap>(service.call("metervalues", "modbus/1/99")).value().isEmpty());

        // Still serving the right values.
        QVERIFY(near(number(_rig->busctl("voltage", "si", { "modbus/1/7", "1" })), 230.1));
        QVERIFY(_rig->daemonLog().contains(
            "<3>[measurement.manager] current Incorrect path: \"modbus/1/99\""));
    }

    void disabledMeterIsNotPolled()
    {
        QCOMPARE(_rig->busctl("setDisabled", "sb", { "modbus/1/9", "true" }), QString());
        QVERIFY(_rig->daemonLog().contains(
            "setDisabled disabling modbus communication for meter at address 9"));
        // A poll already under way when the meter was disabled finishes first.
        QTest::qWait(1500);
        QVERIFY(_rig->simulator("set 9 voltage1 240.0"));
        QTest::qWait(2500);
        QVERIFY(near(number(_rig->busctl("voltage", "si", { "modbus/1/9", "1" })), 232.0));
        QCOMPARE(_rig->busctl("setDisabled", "sb", { "modbus/1/9", "false" }), QString());
        QTRY_VERIFY_WITH_TIMEOUT(
            near(number(_rig->busctl("voltage", "si", { "modbus/1/9", "1" })), 240.0), 10000);
    }

    // Found by their device identification or model code after the second detection pass; a
    // fault on the network never holds up the RS-485 meters.
    void networkMetersBesideSerialOnes()
    {
        if (networkMeters().isEmpty())
            QSKIP("binding port 502 needs root (or run the suite inside unshare -rn)");
        QVERIFY(_rig->simulator("set " + pacAddress + " energy 1000.5"));
        QVERIFY(_rig->simulator("set " + pacAddress + " energy2 2.5"));
        for (const QString &address : { pacAddress, em24Address })
            waitConnected("modbus/" + address);

        // The meter may be read long since; the counters set above show from its next poll.
        QTRY_COMPARE(values("modbus/" + pacAddress).value("total_energy").toDouble(), 1003.0);
        const QVariantMap pac = values("modbus/" + pacAddress);
        QCOMPARE(pac.value("voltage2").toDouble(), 231.0);
        QCOMPARE(pac.value("total_energy_exported").toDouble(), 0.0);
        QVERIFY(std::isnan(pac.value("power_factor1").toDouble()));
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
        QVERIFY(near(number(_rig->busctl("voltage", "si", { "modbus/1/7", "1" })), 230.1));

        QVERIFY(_rig->simulator("back " + pacAddress));
        QTRY_VERIFY_WITH_TIMEOUT(
            near(number(_rig->busctl("voltage", "si", { "modbus/" + pacAddress, "1" })), 230.0),
            10000);
        QVERIFY(_rig->simulator("back " + em24Address));
    }

    void silentMeterTurnsFaultyAndBack()
    {
        QVERIFY(_rig->simulator("gone 8"));
        QElapsedTimer silence;
        silence.start();
        QTRY_COMPARE_WITH_TIMEOUT(
            values("modbus/1/8").value("status").toString(), QStringLiteral("Faulty"), 40000);
        // The last answer came at most a turn of the line (about two seconds) before the silence
        // began.
        QVERIFY2(silence.elapsed() > 17000 && silence.elapsed() < 26000,
            qPrintable(QString::number(silence.elapsed())));
        QVERIFY(std::isnan(number(_rig->busctl("current", "si", { "modbus/1/8", "1" }))));

        QVERIFY(_rig->simulator("back 8"));
        waitConnected("modbus/1/8");
        QVERIFY(near(number(_rig->busctl("current", "si", { "modbus/1/8", "1" })), 9.876));
        QVERIFY(_rig->daemonLog().contains(
            "<4>[meter.modbus.8] _updateStatus Status changed to \"ERROR_CONNECTION\""));
    }
};

QTEST_GUILESS_MAIN(TestMeasurementService)
#include "tst_measurementservice.moc"
