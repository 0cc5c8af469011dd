#include "configurationmanager.h"
#include "cxutil.h"
#include "logcapture.h"
#include "testfiles.h"

#include <QTest>

namespace {
const char *const rtuSignature
    = "static QList<ModbusPath> CxUtil::_requiredFeedbackMeters(const QString&)";
const char *const tcpSignature
    = "static QList<QString> CxUtil::_requiredTCPFeedbackMeters(const QString&)";
}

class TestCxUtil : public QObject
{
    Q_OBJECT

private slots:
    void feedbackMeters_data()
    {
        QTest::addColumn<QByteArray>("corvix");
        QTest::addColumn<QStringList>("rtu");
        QTest::addColumn<QStringList>("tcp");
        QTest::addColumn<int>("deprecationWarnings");
        QTest::newRow("rtu and tcp")
            << QByteArray("[grid]\nmeter=modbus/1/7\n[pv]\nmeter=modbus/192.168.0.10\n")
            << QStringList { "modbus/1/7" } << QStringList { "192.168.0.10" } << 0;
        QTest::newRow("file order, duplicates kept")
            << QByteArray("[a]\nmeter=modbus/1/9\n[b]\nmeter=modbus/2/3\n[c]\nmeter=modbus/1/9\n")
            << QStringList { "modbus/1/9", "modbus/2/3", "modbus/1/9" } << QStringList() << 0;
        QTest::newRow("deprecated keys")
            << QByteArray("[old]\ngcumeter=modbus/1/4\nmeterpath=modbus/1/5\n")
            << QStringList { "modbus/1/4", "modbus/1/5" } << QStringList() << 2;
        QTest::newRow("deprecated tcp is not tcp")
            << QByteArray("[old]\ngcumeter=modbus/10.0.0.1\n") << QStringList() << QStringList()
            << 1;
        QTest::newRow("three parts is no tcp") << QByteArray("[a]\nmeter=modbus/192.168.0.10/5\n")
                                               << QStringList() << QStringList() << 0;
        QTest::newRow("capitals are no tcp") << QByteArray("[a]\nmeter=MODBUS/192.168.0.10\n")
                                             << QStringList() << QStringList() << 0;
        QTest::newRow("not an address") << QByteArray("[a]\nmeter=modbus/not-an-address\n")
                                        << QStringList() << QStringList() << 0;
        QTest::newRow("ipv6") << QByteArray("[a]\nmeter=\"modbus/::1\"\n") << QStringList()
                              << QStringList { "::1" } << 0;
        QTest::newRow("bad rtu entries skipped")
            << QByteArray("[a]\nmeter=modbus/3/7\n[b]\nmeter=modbus/1/0\n[c]\nmeter=modbus/1/8\n")
            << QStringList { "modbus/1/8" } << QStringList() << 0;
        QTest::newRow("other keys ignored")
            << QByteArray("[a]\nname=grid\n[b]\nmeters=modbus/1/3\n") << QStringList()
            << QStringList() << 0;
        QTest::newRow("comma makes a list") << QByteArray("[a]\nmeter=modbus/1/7,modbus/1/8\n")
                                            << QStringList() << QStringList() << 0;
    }

    void feedbackMeters()
    {
        QFETCH(QByteArray, corvix);
        QFETCH(QStringList, rtu);
        QFETCH(QStringList, tcp);
        QFETCH(int, deprecationWarnings);
        TestFiles files;
        ScopedEnvironment path("CM_CORVIXINI", files.write("corvix.ini", corvix));
        LogCapture log;
        QStringList actual;
        for (const ModbusPath &meter : CxUtil::requiredFeedbackMeters())
            actual.append(meter.toString());
        QCOMPARE(actual, rtu);
        QCOMPARE(CxUtil::requiredTCPFeedbackMeters(), tcp);
        QCOMPARE(log.count("default", QtWarningMsg,
                     QString(rtuSignature) + " Deprecated configuration format detected!"),
            deprecationWarnings);
    }

    void malformedFile_data()
    {
        QTest::addColumn<QByteArray>("corvix");
        QTest::newRow("unterminated section") << QByteArray("[grid\nmeter=modbus/1/7\n");
        QTest::newRow("binary junk")
            << QByteArray("\x01\xff[\x02\n\xfe=\xfd\n[a]\nmeter=modbus/1/6\n");
    }

    void malformedFile()
    {
        QFETCH(QByteArray, corvix);
        TestFiles files;
        ScopedEnvironment path("CM_CORVIXINI", files.write("corvix.ini", corvix));
        LogCapture log;
        QVERIFY(CxUtil::requiredFeedbackMeters().isEmpty());
        QVERIFY(CxUtil::requiredTCPFeedbackMeters().isEmpty());
        QCOMPARE(log.count("default", QtCriticalMsg,
                     QString(rtuSignature) + " Could not open corvix configuration!"),
            1);
        QCOMPARE(log.count("default", QtCriticalMsg,
                     QString(tcpSignature) + " Could not open CORVIX configuration: \""
                         + CxUtil::configurationPath() + "\""),
            1);
    }

    void activeAndHomeMeter_data()
    {
        QTest::addColumn<QByteArray>("chargemanager");
        QTest::addColumn<bool>("fileExists");
        QTest::addColumn<bool>("active");
        QTest::addColumn<bool>("homeMeter");
        QTest::newRow("feedback with file")
            << QByteArray("localcontroller=1\n") << true << true << false;
        QTest::newRow("feedback without file")
            << QByteArray("localcontroller=1\n") << false << false << false;
        QTest::newRow("none") << QByteArray("localcontroller=0\n") << true << false << false;
        QTest::newRow("home meter") << QByteArray("localcontroller=2\n") << true << false << true;
        QTest::newRow("home meter cxair any case")
            << QByteArray("localcontroller=2\nCXHomeMeterType=CxAir\n") << true << false << false;
        QTest::newRow("out of range")
            << QByteArray("localcontroller=7\n") << true << false << false;
    }

    void activeAndHomeMeter()
    {
        QFETCH(QByteArray, chargemanager);
        QFETCH(bool, fileExists);
        QFETCH(bool, active);
        QFETCH(bool, homeMeter);
        TestFiles files;
        ScopedEnvironment platform(
            "CM_PLATFORMINI", files.write("platform.ini", "[outlet]\nsize=1\n"));
        ScopedEnvironment charge(
            "CM_CHARGEMANAGERCONFIG", files.write("chargemanager.ini", chargemanager));
        ScopedEnvironment environment("CM_PLATFORMCONFIG", files.write("platform.conf", ""));
        ScopedEnvironment corvix("CM_CORVIXINI",
            fileExists ? files.write("corvix.ini", "[a]\nmeter=modbus/1/1\n")
                       : files.path("corvix.ini"));
        const ConfigurationManager configuration;
        QCOMPARE(CxUtil::feedbackConfigurationActive(configuration), active);
        QCOMPARE(CxUtil::homeMeterRequired(configuration), homeMeter);
    }
};

QTEST_GUILESS_MAIN(TestCxUtil)
#include "tst_cxutil.moc"
