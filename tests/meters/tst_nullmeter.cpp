#include "logcapture.h"
#include "nullmeter.h"

#include <QTest>

#include <cmath>

class TestNullMeter : public QObject
{
    Q_OBJECT

private slots:
    void oneNeverReadMeterPerProcess()
    {
        LogCapture log;
        NullMeter *meter = NullMeter::instance();
        QCOMPARE(NullMeter::instance(), meter);
        QCOMPARE(log.count("meter.null", QtWarningMsg, "NullMeter Null Meter initialized"), 1);
        QCOMPARE(log.lines().size(), 1);

        QCOMPARE(meter->info(), QStringLiteral("NULL:N/A"));
        QCOMPARE(meter->energyMeterType(), -1);
        QVERIFY(std::isnan(meter->getErrorRate()));
        const QVariantMap values = meter->metervalues();
        QCOMPARE(values.value("status").toString(), QStringLiteral("NotFound"));
        QCOMPARE(values.value("energymeter_status").toInt(), -1);
        for (auto it = values.cbegin(); it != values.cend(); ++it) {
            if (it.value().metaType() == QMetaType::fromType<double>())
                QVERIFY2(std::isnan(it.value().toDouble()), qPrintable(it.key()));
        }
        QVERIFY(std::isnan(meter->maxCurrent()));
    }
};

QTEST_GUILESS_MAIN(TestNullMeter)
#include "tst_nullmeter.moc"
