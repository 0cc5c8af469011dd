#include "clock.h"
#include "configurationmanager.h"
#include "fakeenergymeter.h"
#include "logcapture.h"
#include "modbuscontextqueue.h"
#include "modbusmanager.h"
#include "modbusunit.h"
#include "ptypair.h"
#include "registerslave.h"
#include "testfiles.h"

#include <QRegularExpression>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <future>
#include <memory>
#include <vector>

namespace {

// A unit that selects its slave address on the context like a meter does, and whose health the
// test sets. It is also an energy meter (with no values) so that lookups can hand it out.
class FakeUnit : public ModbusUnit, public FakeEnergyMeter
{
public:
    explicit FakeUnit(int address)
        : FakeEnergyMeter(QStringLiteral("fake.") + QString::number(address))
        , address(address)
    {
    }

    void useContext(modbus_t *context) override
    {
        ++uses;
        contextWasNull = context == nullptr;
        if (context)
            modbus_set_slave(context, address);
        if (blockMs > 0)
            QThread::msleep(ulong(blockMs.load()));
    }
    bool isStale() const override { return stale; }
    bool isFaulty() const override { return faulty; }
    int unitType() const override { return type; }
    void setDisabled(bool value) override { disabled = value; }
    bool isDisabled() const override { return disabled; }
    void resetStaleValues() override { ++staleResets; }

    const int address;
    std::atomic<bool> stale { false };
    std::atomic<bool> faulty { false };
    std::atomic<bool> disabled { false };
    std::atomic<int> type { 0 };
    std::atomic<int> blockMs { 0 };
    std::atomic<int> uses { 0 };
    std::atomic<int> staleResets { 0 };
    std::atomic<bool> contextWasNull { false };
};

QString transition(int address, const char *from, const char *to)
{
    return QStringLiteral(
        "_useContext Modbus device on address %1 changed context state from '%2' to '%3'")
        .arg(address)
        .arg(QLatin1String(from), QLatin1String(to));
}

// Register access answers in the channel's register thread; these wait for the answer.
template <typename Result, typename Access> Result answerOf(Access access)
{
    auto answer = std::make_shared<std::promise<Result>>();
    std::future<Result> result = answer->get_future();
    access([answer](Result value) { answer->set_value(value); });
    return result.get();
}

bool writeRegister(ModbusManager &manager, Channel channel, int slave, int address, quint16 value)
{
    return answerOf<bool>(
        [&](auto done) { manager.writeRegister(channel, slave, address, value, done); });
}

quint16 readRegister(ModbusManager &manager, Channel channel, int slave, int address)
{
    return answerOf<quint16>(
        [&](auto done) { manager.readRegister(channel, slave, address, done); });
}

} // namespace

// The Modbus transport: a channel's context queue in a thread of its own, and the manager that sets
// the channel up and borrows its context for single registers. The line is a pty pair with a
// libmodbus slave (id 7) on the far end.
class TestModbus : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<TestFiles> _files;
    std::unique_ptr<ConfigurationManager> _configuration;
    std::unique_ptr<PtyPair> _pty;
    std::unique_ptr<RegisterSlave> _slave;
    std::unique_ptr<ModbusContextQueue> _queue;
    std::unique_ptr<QThread> _thread;
    std::vector<std::unique_ptr<FakeUnit>> _ownUnits;
    QList<FakeUnit *> _units;

    // Units outlive the queue's thread: cleanup() stops it first.
    FakeUnit &makeUnit(int address)
    {
        _ownUnits.push_back(std::make_unique<FakeUnit>(address));
        return *_ownUnits.back();
    }

    void startQueue(const QList<FakeUnit *> &units, const QString &device)
    {
        _queue = std::make_unique<ModbusContextQueue>(Channel::External, device, *_configuration);
        for (FakeUnit *unit : units)
            _queue->enqueue(unit);
        _thread = std::make_unique<QThread>();
        _queue->moveToThread(_thread.get());
        connect(_thread.get(), &QThread::started, _queue.get(), &ModbusContextQueue::process);
        _thread->start();
    }

    // A manager whose meters are fake units. The sources log when asked, so tests can see when
    // each list is fetched.
    std::unique_ptr<ModbusManager> makeManager(
        const QList<RequiredModbusMeter> &meters, const QList<QString> &tcp = {})
    {
        ModbusUnitFactory factory;
        factory.rtuMeter = [this](const RequiredModbusMeter &meter) {
            auto *unit = new FakeUnit(meter.path.address);
            _units.append(unit);
            return unit;
        };
        const RequiredMeterSources sources {
            [tcp] {
                qInfo("TCP meters asked");
                return tcp;
            },
            [meters] {
                qInfo("RTU meters asked");
                return meters;
            },
        };
        return std::make_unique<ModbusManager>(*_configuration, sources, factory);
    }

    static RequiredModbusMeter external(quint8 address)
    {
        return { { Channel::External, address }, 2 };
    }

private slots:
    void initTestCase()
    {
        _files = std::make_unique<TestFiles>();
        _files->useAsConfiguration("[modbus]\nbaudrate=19200\n", "");
        _configuration = std::make_unique<ConfigurationManager>();
    }

    void init()
    {
        _units.clear();
        _pty = std::make_unique<PtyPair>();
        QVERIFY(_pty->isReady());
        qputenv("CM_MODBUS_EXT_DEVICE", _pty->first().toLocal8Bit());
        _slave = std::make_unique<RegisterSlave>(_pty->second(), 7);
        QVERIFY(_slave->isReady());
    }

    void cleanup()
    {
        if (_thread) {
            _thread->requestInterruption();
            Clock::wakeSleepers();
            _thread->quit();
            _thread->wait();
        }
        _queue.reset();
        _thread.reset();
        _ownUnits.clear();
        _slave.reset();
        _pty.reset();
    }

    void missingPortIsReportedOnce()
    {
        LogCapture log;
        FakeUnit &unit = makeUnit(5);
        startQueue({ &unit }, "/nonexistent/ttyModbusExt");
        QVERIFY(!_queue->hasContext());
        QVERIFY(!_queue->context());
        QTRY_VERIFY(unit.uses >= 2);
        QVERIFY(unit.contextWasNull);
        QCOMPARE(log.count("modbus", QtCriticalMsg,
                     "_createContext modbus_connect failed:  No such file or directory"),
            1);
        QCOMPARE(log.count("Failed to get context device address"), 0);
    }

    void stateTransitions()
    {
        LogCapture log;
        FakeUnit &unit = makeUnit(5);
        startQueue({ &unit }, _pty->first());
        QTRY_COMPARE(log.count("modbus", QtInfoMsg, transition(5, "unknown", "running")), 1);

        unit.faulty = true;
        QTRY_COMPARE(log.count("modbus", QtCriticalMsg, transition(5, "running", "faulty")), 1);
        unit.faulty = false;
        QTRY_COMPARE(log.count("modbus", QtInfoMsg, transition(5, "faulty", "running")), 1);

        unit.stale = true;
        QTRY_COMPARE(log.count("modbus", QtCriticalMsg, transition(5, "running", "stale")), 1);
        QVERIFY(unit.staleResets >= 1);
        unit.stale = false;
        // A stale unit costs the channel a 5 s pause; the clock ends it.
        Clock::advance(5000);
        QTRY_COMPARE(log.count("modbus", QtInfoMsg, transition(5, "stale", "running")), 1);

        // One line per change, none while it stays the same.
        QCOMPARE(log.count("changed context state"), 5);
    }

    // Units in turn, a disabled one skipped; a pause holds the loop off the context once it
    // shows idle, until resumed.
    void servesInTurnAndPauses()
    {
        LogCapture log;
        FakeUnit &first = makeUnit(1);
        FakeUnit &second = makeUnit(2);
        FakeUnit &disabled = makeUnit(3);
        disabled.disabled = true;
        startQueue({ &first, &disabled, &second }, _pty->first());
        QVERIFY(_queue->hasContext());
        QVERIFY(log.contains("modbus", QtDebugMsg, "_createContext Baud rate:  19200"));
        QTRY_VERIFY(first.uses >= 20 && second.uses >= 20);
        QVERIFY(qAbs(first.uses - second.uses) <= 1);
        QCOMPARE(disabled.uses.load(), 0);
        QCOMPARE(log.count("on address 3"), 0);

        _queue->pause();
        QTRY_VERIFY(!_queue->isBusy());
        const int usesWhilePaused = first.uses;
        QTest::qWait(100);
        QCOMPARE(first.uses.load(), usesWhilePaused);
        _queue->resume();
        QTRY_VERIFY(first.uses > usesWhilePaused);
    }

    void stateReportEveryFifteenMinutes()
    {
        LogCapture log;
        FakeUnit &running = makeUnit(6);
        FakeUnit &faulty = makeUnit(9);
        faulty.faulty = true;
        startQueue({ &running, &faulty }, _pty->first());
        QTRY_VERIFY(log.count("changed context state") == 2);
        QCOMPARE(log.count("has context state"), 0);

        Clock::advance(900001);
        QTRY_COMPARE(log.count("has context state"), 2);
        // In ascending address order, and not again before another 15 minutes.
        QTest::qWait(100);
        QStringList reports;
        for (const LogCapture::Line &line : log.lines()) {
            if (line.type == QtDebugMsg && line.text.contains("has context state"))
                reports << line.text;
        }
        QCOMPARE(reports,
            QStringList({ "_useContext Modbus device on address 6 has context state \"running\"",
                "_useContext Modbus device on address 9 has context state \"faulty\"" }));
    }

    void devicePaths()
    {
        const QList<std::tuple<Channel, const char *, QString>> channels {
            { Channel::External, "CM_MODBUS_EXT_DEVICE", "/dev/ttyModbusExt" },
            { Channel::Internal, "CM_MODBUS_OCU_DEVICE", "/dev/ttyModbusOcu" },
        };
        for (const auto &[channel, variable, builtIn] : channels) {
            ScopedEnvironment empty(variable, QString());
            QCOMPARE(ModbusManager::devicePath(channel), builtIn);
            ScopedEnvironment overridden(variable, "/dev/pts/9");
            QCOMPARE(ModbusManager::devicePath(channel), QStringLiteral("/dev/pts/9"));
        }
        LogCapture log;
        QVERIFY(ModbusManager::devicePath(Channel::Invalid).isEmpty());
        QCOMPARE(log.count("modbus", QtCriticalMsg,
                     "devicePath Incorrect configuration detected. Expect trouble ahead!"),
            1);
    }

    void setsUpTheExternalChannelOnly()
    {
        LogCapture log;
        auto manager = makeManager({ external(7), { { Channel::Internal, 1 }, 2 }, external(9) });
        QCOMPARE(_units.size(), 2);
        QVERIFY(log.contains(
            "modbus", QtInfoMsg, "_setupModbusChannel Setting up modbus channel: \"External\""));
        QVERIFY(log.contains("modbus", QtDebugMsg,
            "_setupModbusChannel Ignoring meter on different channel: \"modbus/2/1\""));
        QVERIFY(log.contains(
            "modbus", QtInfoMsg, "_setupModbusChannel Adding meter for path \"modbus/1/9\""));
        QVERIFY(log.contains("modbus", QtDebugMsg,
            "Starting reader thread for modbus channel \"External\" with 2 configured units."));
        QVERIFY(manager->queue(Channel::External));
        QVERIFY(!manager->queue(Channel::Internal));
        QCOMPARE(ModbusManager::instance(), manager.get());
        QTRY_VERIFY(_units.first()->uses > 0);
        // The TCP list is asked for first, the RTU list as the channel is set up.
        QStringList order;
        for (const LogCapture::Line &line : log.lines()) {
            if (line.text.contains(QRegularExpression("asked|Setting up|Adding")))
                order << line.text.section(' ', 0, 2);
        }
        order.removeDuplicates();
        QCOMPARE(order.mid(0, 4),
            QStringList({ "TCP meters asked", "_setupModbusChannel Setting up", "RTU meters asked",
                "_setupModbusChannel Adding meter" }));
    }

    void lookups()
    {
        auto manager = makeManager({ external(7), external(9) });
        _units.last()->type = 1;
        LogCapture log;
        QCOMPARE(manager->getMeter(ModbusPath { Channel::External, 7 }),
            static_cast<EnergyMeter *>(_units.first()));
        QCOMPARE(MeterRegistry::instance()->meterAt({ Channel::External, 7 }),
            manager->getMeter({ Channel::External, 7 }));
        // A meter found is not warned about.
        QCOMPARE(log.count("modbus", QtWarningMsg, QString()), 0);

        QVERIFY(!manager->getMeter(ModbusPath { Channel::External, 9 })); // not an energy meter
        QVERIFY(!manager->getMeter(ModbusPath { Channel::External, 8 }));
        QCOMPARE(
            log.count("modbus", QtWarningMsg,
                "getMeter Failed to get requested Modbus meter at:  8 @ \"" + _pty->first() + "\""),
            1);
        QVERIFY(
            !manager->getMeter(quint8(7))); // the address-only form looks on the Internal channel
        QVERIFY(log.contains("modbus", QtWarningMsg, "at:  7 @ \"/dev/ttyModbusOcu\""));
        QVERIFY(!manager->tcpMeter("192.168.0.10"));
    }

    void registerFailures_data()
    {
        QTest::addColumn<int>("channel");
        QTest::addColumn<int>("slave");
        QTest::addColumn<QString>("readMessage");
        QTest::addColumn<QString>("writeMessage");
        QTest::addColumn<bool>("traffic");
        QTest::newRow("absent slave")
            << int(Channel::External) << 9
            << "could not read register for slave id 9  :  300 errno  Connection timed out"
            << "could not set register, errno  Connection timed out" << true;
        QTest::newRow("address libmodbus refuses")
            << int(Channel::External) << 300 << "could not read register for slave id 300"
            << "could not set register," << false;
        QTest::newRow("channel not set up") << int(Channel::Internal) << 7 << "invalid channel!"
                                            << "invalid channel!" << false;
    }

    void registerFailures()
    {
        QFETCH(int, channel);
        QFETCH(int, slave);
        QFETCH(QString, readMessage);
        QFETCH(QString, writeMessage);
        QFETCH(bool, traffic);
        auto manager = makeManager({});
        _slave->setRegister(300, 55);
        LogCapture log;
        const int requestsBefore = _slave->requestCount();
        QCOMPARE(readRegister(*manager, Channel(channel), slave, 300), quint16(0));
        QCOMPARE(log.count("modbus", QtWarningMsg, readMessage), 1);
        log.clear();
        QVERIFY(!writeRegister(*manager, Channel(channel), slave, 300, 1));
        QCOMPARE(log.count("modbus", QtWarningMsg, writeMessage), 1);
        QCOMPARE(_slave->registerValue(300), quint16(55));
        if (!traffic)
            QCOMPARE(_slave->requestCount(), requestsBefore);
    }

    void busyQueueGivesUpSilentlyAndClosingAnswersTheRest()
    {
        auto manager = makeManager({ external(7) });
        QTRY_VERIFY(_units.first()->uses > 0);
        _units.first()->blockMs = 6000;
        QTRY_VERIFY(manager->queue(Channel::External)->isBusy());
        QTest::qWait(50);
        LogCapture log;
        _slave->setRegister(300, 1);
        // The write waits for the busy reader; the read behind it has not started when the
        // manager goes, and is answered all the same.
        std::atomic<int> answers { 0 };
        std::atomic<bool> written { true };
        std::atomic<int> read { -1 };
        manager->writeRegister(Channel::External, 7, 300, 99, [&](bool value) {
            written = value;
            ++answers;
        });
        manager->readRegister(Channel::External, 7, 300, [&](quint16 value) {
            read = value;
            ++answers;
        });
        QTest::qWait(100);
        QCOMPARE(answers.load(), 0);
        _units.first()->blockMs = 0;
        manager.reset();
        QCOMPARE(answers.load(), 2);
        QVERIFY(!written);
        QCOMPARE(read.load(), 0);
        QCOMPARE(_slave->registerValue(300), quint16(1));
        QCOMPARE(_slave->requestCount(), 0);
        QCOMPARE(log.lines().size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestModbus)
#include "tst_modbus.moc"
