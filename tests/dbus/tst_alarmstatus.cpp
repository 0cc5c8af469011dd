#include "alarmstatus.h"
#include "logcapture.h"

#include <QDBusMetaType>
#include <QSignalSpy>
#include <QTest>

namespace {

// The lines of the outlet category, as "C text" (critical) or "I text" (info).
QStringList outletLines(const LogCapture &log)
{
    QStringList lines;
    for (const LogCapture::Line &line : log.lines()) {
        if (line.category == QLatin1String("outlet"))
            lines << (line.type == QtCriticalMsg      ? "C "
                             : line.type == QtInfoMsg ? "I "
                                                      : "? ")
                    + line.text;
    }
    return lines;
}

} // namespace

class TestAlarmStatus : public QObject
{
    Q_OBJECT

private slots:
    void registeredForSignalsAndBus()
    {
        const AlarmStatus status;
        QCOMPARE(
            QMetaType::fromName("Alarms::AlarmType"), QMetaType::fromType<Alarms::AlarmType>());
        QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::fromType<QList<Alarms::AlarmType>>()),
            QByteArray("ai"));
    }

    void raiseAndClear_data()
    {
        QTest::addColumn<QStringList>("operations");
        QTest::addColumn<QList<bool>>("results");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QList<int>>("active");

        QTest::newRow("raising twice")
            << QStringList { "+2", "+2" } << QList<bool> { true, false }
            << QStringList { "C raise Alarm raised: 2" } << QList<int> { 2 };
        QTest::newRow("clearing an inactive alarm")
            << QStringList { "+4", "-2" } << QList<bool> { true, false }
            << QStringList { "C raise Alarm raised: 4" } << QList<int> { 4 };
        QTest::newRow("raised order kept")
            << QStringList { "+3", "+27", "+3", "-3" } << QList<bool> { true, true, false, true }
            << QStringList { "C raise Alarm raised: 3", "C raise Alarm raised: 27",
                   "I clear Alarm cleared: 3" }
            << QList<int> { 27 };
        QTest::newRow("clearing from the middle")
            << QStringList { "+42", "+0", "+9", "-0", "-0" }
            << QList<bool> { true, true, true, true, false }
            << QStringList { "C raise Alarm raised: 42", "C raise Alarm raised: 0",
                   "C raise Alarm raised: 9", "I clear Alarm cleared: 0" }
            << QList<int> { 42, 9 };
        QTest::newRow("unassigned numbers held")
            << QStringList { "+39", "+1" } << QList<bool> { true, true }
            << QStringList { "C raise Alarm raised: 39", "C raise Alarm raised: 1" }
            << QList<int> { 39, 1 };
        QTest::newRow("all cleared")
            << QStringList { "+5", "-5" } << QList<bool> { true, true }
            << QStringList { "C raise Alarm raised: 5", "I clear Alarm cleared: 5" }
            << QList<int>();
    }

    void raiseAndClear()
    {
        QFETCH(QStringList, operations);
        QFETCH(QList<bool>, results);
        QFETCH(QStringList, log);
        QFETCH(QList<int>, active);

        AlarmStatus status;
        LogCapture capture;
        Alarms::AlarmType alarm {};
        // What a listener finds when told of a change: whether the alarm changed is active.
        QList<bool> heldWhenTold;
        connect(&status, &AlarmStatus::alarmsUpdated, this,
            [&] { heldWhenTold << status.contains(alarm); });
        QList<bool> actual;
        QList<bool> expectedHeld;
        for (const QString &operation : std::as_const(operations)) {
            alarm = Alarms::AlarmType(operation.mid(1).toInt());
            const bool raising = operation.startsWith(QLatin1Char('+'));
            actual << (raising ? status.raise(alarm) : status.clear(alarm));
            if (actual.last())
                expectedHeld << raising;
        }
        QCOMPARE(actual, results);
        QCOMPARE(heldWhenTold, expectedHeld);
        QCOMPARE(outletLines(capture), log);

        QCOMPARE(status.hasActiveAlarms(), !active.isEmpty());
        for (int number : std::as_const(active))
            QVERIFY(status.contains(Alarms::AlarmType(number)));
        capture.clear();
        status.printActiveAlarms();
        QStringList printed;
        for (int number : std::as_const(active))
            printed << QStringLiteral("C printActiveAlarms %1").arg(number);
        QCOMPARE(outletLines(capture), printed);
    }
};

QTEST_GUILESS_MAIN(TestAlarmStatus)
#include "tst_alarmstatus.moc"
