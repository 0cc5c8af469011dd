#include "fakeservice.h"
#include "privatebus.h"
#include "secccontrollerinterface.h"
#include "seccmanager.h"

#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString seccService = QStringLiteral("com.ovra.secc.ev2");
const QString seccPath = QStringLiteral("/com/ovra/secc");
const QString setupInterface = QStringLiteral("com.ovra.secc.setup");

// A call as "member(signature) arguments", the arguments read in the order they travelled.
QString describe(const QDBusMessage &call)
{
    QStringList arguments;
    if (call.signature() == QLatin1String("a{sv}")) {
        const QDBusArgument map = call.arguments().value(0).value<QDBusArgument>();
        map.beginMap();
        while (!map.atEnd()) {
            QString key;
            QDBusVariant value;
            map.beginMapEntry();
            map >> key >> value;
            map.endMapEntry();
            arguments << QStringLiteral("%1=%2:%3")
                             .arg(key,
                                 QString::fromLatin1(
                                     QDBusMetaType::typeToSignature(value.variant().metaType())),
                                 value.variant().toString());
        }
        map.endMap();
    } else if (call.signature() == QLatin1String("ai")) {
        for (int mode : qdbus_cast<QList<int>>(call.arguments().value(0)))
            arguments << QString::number(mode);
    }
    const QString interface = call.interface() == setupInterface
        ? QString()
        : call.interface() + QLatin1Char('.');
    return QStringLiteral("%1%2(%3) %4")
        .arg(interface, call.member(), call.signature(), arguments.join(QLatin1Char(' ')));
}

QStringList describe(const QList<QDBusMessage> &calls)
{
    QStringList described;
    for (const QDBusMessage &call : calls)
        described << describe(call);
    return described;
}

} // namespace

class TestSeccManager : public QObject
{
    Q_OBJECT

private:
    PrivateBus _bus;

private slots:
    void initTestCase()
    {
        QVERIFY(_bus.isReady());
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", _bus.address().toLocal8Bit());
    }

    void setupOncePerRegistration_data()
    {
        QTest::addColumn<bool>("alreadyOnTheBus");
        QTest::newRow("registers after the manager starts") << false;
        QTest::newRow("already on the bus") << true;
    }

    void setupOncePerRegistration()
    {
        QFETCH(bool, alreadyOnTheBus);
        FakeService secc(_bus.address(), seccService, seccPath);
        QVERIFY(secc.isConnected());
        if (alreadyOnTheBus)
            QVERIFY(secc.registerService());

        SeccManager manager(QStringLiteral("DE*OVR*E000201"), 230, 32, 50, 6, 2);
        if (!alreadyOnTheBus)
            QVERIFY(secc.registerService());

        // a{sv} travels sorted by key.
        const QStringList setup {
            "SetProperties(a{sv}) EVSE ID=s:DE*OVR*E000201 EVSE MAX SUPPORTED CURRENT=i:32 "
            "EVSE MAX SUPPORTED DISCHARGE CURRENT=i:0 EVSE MIN SUPPORTED CURRENT=i:6 "
            "EVSE MIN SUPPORTED DISCHARGE CURRENT=i:0 EVSE NOMINAL FREQUENCY=i:50 "
            "EVSE NOMINAL VOLTAGE=i:230",
            "SetSupportedEnergyTransferModes(ai) 0 1",
        };
        const QString ping = QStringLiteral("org.example.Test.Ping() ");
        QTRY_VERIFY(secc.calls().size() >= 2);
        QVERIFY(secc.pingFrom(QDBusConnection::systemBus()));
        QCOMPARE(describe(secc.calls()), setup + QStringList { ping });

        QVERIFY(secc.unregisterService());
        QVERIFY(secc.registerService());
        QTRY_VERIFY(secc.calls().size() >= 5);
        QVERIFY(secc.pingFrom(QDBusConnection::systemBus()));
        QCOMPARE(
            describe(secc.calls()), setup + QStringList { ping } + setup + QStringList { ping });
    }

    void schedulesTravel()
    {
        SeccTypes::registerTypes();
        FakeService secc(_bus.address(), seccService, seccPath);
        QVERIFY(secc.registerService());
        ComOvraSeccControllerInterface controller(
            seccService, seccPath, QDBusConnection::systemBus());

        const SeccTypes::ChargingSchedules_t charging {
            { 1, { { { "start", 0 }, { "maxPower", 11000.0 } }, { { "start", 3600 } } } },
            { 2, {} },
        };
        QDBusPendingCallWatcher call(controller.SetSaSchedules(charging, {}));
        QSignalSpy answered(&call, &QDBusPendingCallWatcher::finished);
        QVERIFY(answered.wait());
        QVERIFY(!call.isError());
        const QDBusMessage received = secc.calls().value(0);
        QCOMPARE(received.signature(), QStringLiteral("a{yaa{sv}}a{yaa{sv}}"));
        QCOMPARE(
            qdbus_cast<SeccTypes::ChargingSchedules_t>(received.arguments().value(0)), charging);
        QVERIFY(
            qdbus_cast<SeccTypes::ChargingSchedules_t>(received.arguments().value(1)).isEmpty());

        QSignalSpy started(&controller, &ComOvraSeccControllerInterface::PowerDeliveryStart);
        const SeccTypes::PowerSchedules_t profile { { { "start", 0 }, { "power", 7400.0 } } };
        QVERIFY(secc.emitSignal(QStringLiteral("com.ovra.secc.controller"),
            QStringLiteral("PowerDeliveryStart"),
            { QVariant::fromValue(uchar(1)), QVariant::fromValue(profile) }));
        QVERIFY(started.wait());
        QCOMPARE(started.first().at(0).value<uchar>(), uchar(1));
        QCOMPARE(started.first().at(1).value<SeccTypes::PowerSchedules_t>(), profile);
    }
};

QTEST_GUILESS_MAIN(TestSeccManager)
#include "tst_seccmanager.moc"
