#include "firmwareenvironmentutil.h"
#include "logcapture.h"
#include "testfiles.h"

#include <QTest>

class TestFirmwareEnvironmentUtil : public QObject
{
    Q_OBJECT

private slots:
    void parsing_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("later line wins")
            << QByteArray("serialno=123\nserialno=456\n") << QVariantMap { { "serialno", "456" } };
        QTest::newRow("second equals drops the rest")
            << QByteArray("model=X=Y\n") << QVariantMap { { "model", "X" } };
        QTest::newRow("line without equals ignored")
            << QByteArray("garbage\nhw_rev=B\n") << QVariantMap { { "hw_rev", "B" } };
        QTest::newRow("empty value") << QByteArray("vendor=\n") << QVariantMap { { "vendor", "" } };
        QTest::newRow("nothing trimmed")
            << QByteArray(" key = value \n") << QVariantMap { { " key ", " value " } };
        QTest::newRow("last line without newline")
            << QByteArray("a=1\nb=2") << QVariantMap { { "a", "1" }, { "b", "2" } };
        QTest::newRow("crlf") << QByteArray("a=1\r\n") << QVariantMap { { "a", "1" } };
        QTest::newRow("empty key") << QByteArray("=x\n") << QVariantMap { { "", "x" } };
        QTest::newRow("empty file") << QByteArray() << QVariantMap();
    }

    void parsing()
    {
        QFETCH(QByteArray, content);
        QFETCH(QVariantMap, expected);
        TestFiles files;
        ScopedEnvironment path("CM_PLATFORMCONFIG", files.write("platform.conf", content));
        QVariantMap actual;
        const QMap<QString, QString> map = FirmwareEnvironmentUtil::environmentMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            actual.insert(it.key(), it.value());
        QCOMPARE(actual, expected);
    }

    void binaryJunk()
    {
        QByteArray junk;
        for (int i = 0; i < 4096; ++i)
            junk.append(char((i * 7919) % 256));
        junk.append("\nserialno=OK\n");
        TestFiles files;
        ScopedEnvironment path("CM_PLATFORMCONFIG", files.write("platform.conf", junk));
        QCOMPARE(FirmwareEnvironmentUtil::environmentMap().value("serialno"), QStringLiteral("OK"));
    }

    void logsThePath()
    {
        TestFiles files;
        const QString file = files.write("platform.conf", "a=1\n");
        ScopedEnvironment path("CM_PLATFORMCONFIG", file);
        LogCapture log;
        FirmwareEnvironmentUtil::environmentMap();
        QCOMPARE(log.count("default", QtInfoMsg,
                     "static QMap<QString, QString> FirmwareEnvironmentUtil::environmentMap() \""
                         + file + "\""),
            1);
        QCOMPARE(log.count("Failed to read platform.conf file"), 0);
    }

    void unreadableFile()
    {
        TestFiles files;
        // A directory exists, so no regeneration is attempted, but it cannot be read as a file.
        ScopedEnvironment path("CM_PLATFORMCONFIG", files.path(""));
        LogCapture log;
        QVERIFY(FirmwareEnvironmentUtil::environmentMap().isEmpty());
        QCOMPARE(log.count("default", QtCriticalMsg, "Failed to read platform.conf file"), 1);
    }

    void version_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plain") << QByteArray("1.2.3\n") << "1.2.3";
        QTest::newRow("only first line") << QByteArray("1.2.3\n4.5.6\n") << "1.2.3";
        QTest::newRow("trimmed") << QByteArray("  v7 \t\n") << "v7";
        QTest::newRow("first 20 bytes")
            << QByteArray("0123456789abcdefghijKLMNOP\n") << "0123456789abcdefghij";
        QTest::newRow("cut then trimmed")
            << QByteArray("0123456789012345678 X\n") << "0123456789012345678";
        QTest::newRow("empty first line") << QByteArray("\n2.0\n") << "";
        QTest::newRow("utf-8") << QByteArray("r\xc3\xa9v 1\n") << QString::fromUtf8("r\xc3\xa9v 1");
    }

    void version()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        TestFiles files;
        ScopedEnvironment path("CM_VERSIONFILE", files.write("version", content));
        QCOMPARE(FirmwareEnvironmentUtil::firmwareVersion(), expected);
    }

    void missingVersion()
    {
        TestFiles files;
        ScopedEnvironment path("CM_VERSIONFILE", files.path("absent"));
        QCOMPARE(FirmwareEnvironmentUtil::firmwareVersion(), QStringLiteral("N/A"));
    }
};

QTEST_GUILESS_MAIN(TestFirmwareEnvironmentUtil)
#include "tst_firmwareenvironmentutil.moc"
