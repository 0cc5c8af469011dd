#include "configurationmanager.h"
#include "modbuspath.h"
#include "testfiles.h"

#include <QTest>

#include <memory>

// Cost of answering a setting per storage class, and of parsing a meter path, which every
// D-Bus call pays.
class BenchConfig : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        _files.useAsConfiguration("[outlet]\nsize=2\n[modbus]\nbaudrate=19200\n",
            "localcontroller=1\n[ocpp]\nAuthCacheLifeTime=77\n", "serialno=B1\n");
        _configuration = std::make_unique<ConfigurationManager>();
    }

    void valueChargemanager()
    {
        qint64 sum = 0;
        QBENCHMARK
        {
            sum += _configuration->intValue(Settings::AuthCacheLifeTime);
        }
        QVERIFY(sum > 0);
    }

    void valuePlatform()
    {
        qint64 sum = 0;
        QBENCHMARK
        {
            sum += _configuration->intValue(Settings::ModbusBaudrate);
        }
        QVERIFY(sum > 0);
    }

    void valueVirtual()
    {
        qint64 sum = 0;
        QBENCHMARK
        {
            sum += _configuration->intValue(Settings::GetConfigurationMaxKeys);
        }
        QVERIFY(sum > 0);
    }

    void fromPathString()
    {
        const QString text = QStringLiteral("modbus/1/247");
        qint64 sum = 0;
        QBENCHMARK
        {
            sum += ModbusPath::fromPathString(text).address;
        }
        QVERIFY(sum > 0);
    }

private:
    TestFiles _files;
    std::unique_ptr<ConfigurationManager> _configuration;
};

QTEST_GUILESS_MAIN(BenchConfig)
#include "bench_config.moc"
