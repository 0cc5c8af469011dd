#include "meterdrig.h"
#include "privatebus.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
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

class TestMeterctl : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<MeterdRig> _rig;
    PrivateBus _emptyBus;

    Run run(const QStringList &arguments) const
    {
        return runMeterctl(_rig->busAddress(), arguments);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(_emptyBus.isReady());
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

    // One line on standard error, nothing on standard output, and the exit code: 2 for usage,
    // 1 for a failed request, 3 when meterd cannot be reached.
    void failures_data()
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
        row("malformed path", "rig", { "show", "modbus/3/7" }, 2, "malformed meter path");
        row("slave address out of range", "rig", { "read", "248", "1" }, 2,
            "ADDR must be a number");
        row("no such meter", "rig", { "show", "modbus/1/99" }, 1, "no such meter: modbus/1/99");
        row("write refused", "rig", { "write", "7", "0", "1" }, 1, "failed");
        row("loop test of a configured unit", "rig", { "test-rs485" }, 3, "production-test mode");
        row("no daemon", "empty", { "watch", "--count", "1" }, 3, "meterd is not running");
        row("no bus", "", { "list" }, 3, "cannot reach the D-Bus system bus");
    }

    void failures()
    {
        QFETCH(QString, bus);
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, reason);
        const QString address = bus == "rig" ? _rig->busAddress()
            : bus == "empty"                 ? _emptyBus.address()
                                             : "unix:path=/nonexistent/meterctl-test-bus";
        const Run result = runMeterctl(address, arguments);
        QVERIFY2(result.exitCode == exitCode && result.out.isEmpty()
                && result.err.count('\n') == 1 && result.err.startsWith("meterctl: ")
                && result.err.contains(reason),
            qPrintable(describe(result)));
    }
};

QTEST_GUILESS_MAIN(TestMeterctl)
#include "tst_meterctl.moc"
