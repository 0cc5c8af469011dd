#include "clock.h"
#include "logcapture.h"
#include "messagepattern.h"
#include "metermanager.h"
#include "notifysocket.h"
#include "testfiles.h"

#include <QTest>

class TestMeterManager : public QObject
{
    Q_OBJECT

private:
    // Moves the clock and lets the timers see it.
    static void advance(qint64 ms)
    {
        Clock::advance(ms);
        QCoreApplication::processEvents();
    }

private slots:
    void watchdogEvery45Seconds()
    {
        NotifySocket notify;
        ScopedEnvironment socket("NOTIFY_SOCKET", notify.path());
        MeterManager manager;
        manager.startWatchdog();

        advance(44999);
        QCOMPARE(notify.receive(50), QByteArray());
        advance(1);
        QCOMPARE(notify.receive(1000), QByteArray("WATCHDOG=1\n"));

        for (int tick = 0; tick < 3; ++tick) {
            advance(44000);
            QCOMPARE(notify.receive(50), QByteArray());
            advance(1000);
            QCOMPARE(notify.receive(1000), QByteArray("WATCHDOG=1\n"));
        }
    }

    void platformOption_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected");
        QTest::newRow("no arguments") << QStringList { "meterd" } << "inherited";
        QTest::newRow("one") << QStringList { "meterd", "--platform=/a.ini" } << "/a.ini";
        QTest::newRow("last wins")
            << QStringList { "meterd", "--platform=/a.ini", "--platform=/b.ini" } << "/b.ini";
        QTest::newRow("without equals")
            << QStringList { "meterd", "--platform", "/a.ini" } << "inherited";
        QTest::newRow("capitals") << QStringList { "meterd", "--PLATFORM=/a.ini" } << "inherited";
        QTest::newRow("empty value") << QStringList { "meterd", "--platform=" } << "";
        QTest::newRow("executable path counts")
            << QStringList { "--platform=/self.ini" } << "/self.ini";
    }

    void platformOption()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, expected);
        ScopedEnvironment platform("CM_PLATFORMINI", "inherited");
        MeterManager::applyPlatformOptions(arguments);
        QCOMPARE(qEnvironmentVariable("CM_PLATFORMINI"), expected);
    }

    void messagePatterns_data()
    {
        QTest::addColumn<int>("pattern");
        QTest::addColumn<int>("type");
        QTest::addColumn<QString>("expected");
        QTest::newRow("journal debug") << 0 << int(QtDebugMsg) << "<7>[modbus] text";
        QTest::newRow("journal info") << 0 << int(QtInfoMsg) << "<6>[modbus] text";
        QTest::newRow("journal warning") << 0 << int(QtWarningMsg) << "<4>[modbus] text";
        QTest::newRow("journal critical") << 0 << int(QtCriticalMsg) << "<3>[modbus] text";
        QTest::newRow("journal fatal") << 0 << int(QtFatalMsg) << "<2>[modbus] text";
        QTest::newRow("plain") << 2 << int(QtInfoMsg) << "modbus: text";
    }

    void messagePatterns()
    {
        QFETCH(int, pattern);
        QFETCH(int, type);
        QFETCH(QString, expected);
        const std::function<void()> installers[] = { MessagePattern::installJournalPattern,
            MessagePattern::installTerminalPattern, MessagePattern::installPlainPattern };
        installers[pattern]();
        const QMessageLogContext context(nullptr, 0, nullptr, "modbus");
        QCOMPARE(qFormatLogMessage(QtMsgType(type), context, "text"), expected);
        MessagePattern::installPlainPattern();
    }

    void terminalPatternColours()
    {
        MessagePattern::installTerminalPattern();
        const QMessageLogContext context(nullptr, 0, nullptr, "config");
        const QString warning = qFormatLogMessage(QtWarningMsg, context, "hot");
        const QString critical = qFormatLogMessage(QtCriticalMsg, context, "fire");
        const QString info = qFormatLogMessage(QtInfoMsg, context, "calm");
        MessagePattern::installPlainPattern();
        QVERIFY2(warning.endsWith("\033[1;33m[config] hot\033[0m"), qPrintable(warning));
        QVERIFY(critical.endsWith("\033[31m[config] fire\033[0m"));
        QVERIFY(info.endsWith(" [config] calm"));
        QVERIFY(info.startsWith(QCoreApplication::applicationName() + " "));
    }
};

QTEST_GUILESS_MAIN(TestMeterManager)
#include "tst_metermanager.moc"
