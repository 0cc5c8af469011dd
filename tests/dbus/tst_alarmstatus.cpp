#include "alarmstatus.h"
#include "logcapture.h"

#include <QDBusMetaType>
#include <QSignalSpy>
#include <QTest>

// An outlet's alarm set: raised in order, each change told once, cleared from the middle.
class TestAlarmStatus : public QObject
{
    Q_OBJECT

private slots:
    void alarms()
    {
        AlarmStatus status;
        QCOMPARE(QDBusMetaType::typeToSignature(QMetaType::fromType<QList<Alarms::AlarmType>>()),
            QByteArray("ai"));
        QSignalSpy updated(&status, &AlarmStatus::alarmsUpdated);
        LogCapture log;
        const auto alarm = [](int number) { return Alarms::AlarmType(number); };
        QVERIFY(status.raise(alarm(42)) && status.raise(alarm(0)) && status.raise(alarm(39)));
        QVERIFY(!status.raise(alarm(42)));
        QVERIFY(status.clear(alarm(0)));
        QVERIFY(!status.clear(alarm(0)) && !status.clear(alarm(5)));
        QCOMPARE(updated.count(), 4);
        QVERIFY(
            status.hasActiveAlarms() && status.contains(alarm(39)) && !status.contains(alarm(0)));
        status.printActiveAlarms();
        QStringList lines;
        for (const LogCapture::Line &line : log.lines())
            lines << QString::number(line.type) + ' ' + line.text;
        QCOMPARE(lines,
            QStringList({ "2 raise Alarm raised: 42", "2 raise Alarm raised: 0",
                "2 raise Alarm raised: 39", "4 clear Alarm cleared: 0", "2 printActiveAlarms 42",
                "2 printActiveAlarms 39" }));
        QVERIFY(status.clear(alarm(42)) && status.clear(alarm(39)));
        QVERIFY(!status.hasActiveAlarms());
    }
};

QTEST_GUILESS_MAIN(TestAlarmStatus)
#include "tst_alarmstatus.moc"
