#include "firmwareenvironmentutil.h"
#include "logcapture.h"
#include "testfiles.h"

#include <QTest>

class TestFirmwareEnvironmentUtil : public QObject
{
    Q_OBJECT

private slots:
    void environmentMap_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<QVariantMap>("expected");
        QTest::newRow("later line wins, second equals cuts")
            << QByteArray("serialno=123\nserialno=456\nmodel=X=Y\n")
            << QVariantMap { { "serialno", "456" }, { "model", "X" } };
        QTest::newRow("no equals ignored, nothing trimmed")
            << QByteArray("garbage\n key = value \nvendor=\n=x\n")
            << QVariantMap { { " key ", " value " }, { "vendor", "" }, { "", "x" } };
        QTest::newRow("crlf, last line without newline")
            << QByteArray("a=1\r\nb=2") << QVariantMap { { "a", "1" }, { "b", "2" } };
    }

    void environmentMap()
    {
        QFETCH(QByteArray, content);
        QFETCH(QVariantMap, expected);
        TestFiles files;
        const QString file = files.write("platform.conf", content);
        ScopedEnvironment path("CM_PLATFORMCONFIG", file);
        LogCapture log;
        QVariantMap actual;
        const QMap<QString, QString> map = FirmwareEnvironmentUtil::environmentMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            actual.insert(it.key(), it.value());
        QCOMPARE(actual, expected);
        QCOMPARE(log.count("default", QtInfoMsg,
                     "static QMap<QString, QString> FirmwareEnvironmentUtil::environmentMap() \""
                         + file + "\""),
            1);
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
        QTest::newRow("first line, trimmed") << QByteArray("  v7 \t\n4.5.6\n") << "v7";
        QTest::newRow("first 20 bytes")
            << QByteArray("0123456789abcdefghijKLMNOP\n") << "0123456789abcdefghij";
        QTest::newRow("cut then trimmed")
            << QByteArray("0123456789012345678 X\n") << "0123456789012345678";
        QTest::newRow("empty first line") << QByteArray("\n2.0\n") << "";
        QTest::newRow("utf-8") << QByteArray("r\xc3\xa9v 1\n") << QString::fromUtf8("r\xc3\xa9v 1");
        QTest::newRow("missing") << QByteArray() << "N/A";
    }

    void version()
    {
        QFETCH(QByteArray, content);
        QFETCH(QString, expected);
        TestFiles files;
        ScopedEnvironment path("CM_VERSIONFILE",
            content.isNull() ? files.path("absent") : files.write("version", content));
        QCOMPARE(FirmwareEnvironmentUtil::firmwareVersion(), expected);
    }
};

QTEST_GUILESS_MAIN(TestFirmwareEnvironmentUtil)
#include "tst_firmwareenvironmentutil.moc"
