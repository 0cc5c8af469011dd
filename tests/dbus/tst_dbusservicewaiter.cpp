#include "clock.h"
#include "dbusservicewaiter.h"
#include "fakeservice.h"
#include "privatebus.h"

#include <QSignalSpy>
#include <QTest>

namespace {

const QString waitedService = QStringLiteral("com.ovra.test.waited");
constexpr int timeLimitMs = 5000;

} // namespace

class TestDBusServiceWaiter : public QObject
{
    Q_OBJECT

public:
    enum Appearance { BeforeStart, InTime, AfterTheLimit, Never };
    Q_ENUM(Appearance)

private:
    PrivateBus _bus;

private slots:
    void initTestCase()
    {
        QVERIFY(_bus.isReady());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", _bus.address().toLocal8Bit());
    }

    void oneOutcomePerWait_data()
    {
        QTest::addColumn<Appearance>("appearance");
        QTest::addColumn<bool>("finishes");
        QTest::newRow("already there at start") << BeforeStart << true;
        QTest::newRow("appears in time") << InTime << true;
        QTest::newRow("appears after the limit") << AfterTheLimit << false;
        QTest::newRow("never appears") << Never << false;
    }

    void oneOutcomePerWait()
    {
        QFETCH(Appearance, appearance);
        QFETCH(bool, finishes);
        const QDBusConnection bus = QDBusConnection::systemBus();
        FakeService service(_bus.address(), waitedService, QStringLiteral("/"));
        DBusServiceWaiter waiter(waitedService, bus, timeLimitMs);
        QSignalSpy finished(&waiter, &DBusServiceWaiter::finished);
        QSignalSpy timedOut(&waiter, &DBusServiceWaiter::timeout);
        // Sees the same registrations as the waiter, on the same connection.
        QDBusServiceWatcher watcher(waitedService, bus, QDBusServiceWatcher::WatchForRegistration);
        QSignalSpy registered(&watcher, &QDBusServiceWatcher::serviceRegistered);

        if (appearance == BeforeStart)
            QVERIFY(service.registerService());
        waiter.start();
        if (appearance == InTime) {
            QVERIFY(service.registerService());
            QVERIFY(registered.wait());
        }
        QTRY_COMPARE(finished.count(), finishes ? 1 : 0);

        Clock::advance(timeLimitMs);
        QTRY_COMPARE(timedOut.count(), finishes ? 0 : 1);
        if (appearance == AfterTheLimit) {
            QVERIFY(service.registerService());
            QVERIFY(registered.wait());
        }
        Clock::advance(timeLimitMs);
        QCoreApplication::processEvents();
        QCOMPARE(finished.count(), finishes ? 1 : 0);
        QCOMPARE(timedOut.count(), finishes ? 0 : 1);
    }
};

QTEST_GUILESS_MAIN(TestDBusServiceWaiter)
#include "tst_dbusservicewaiter.moc"
