#include "clock.h"
#include "configurationmanager.h"
#include "fakeunit.h"
#include "logcapture.h"
#include "modbuscontextqueue.h"
#include "ptypair.h"
#include "testfiles.h"

#include <QTest>
#include <QThread>

#include <memory>
#include <vector>

namespace {

QString transition(int address, const char *from, const char *to)
{
    return QStringLiteral(
        "_useContext Modbus device on address %1 changed context state from '%2' to '%3'")
        .arg(address)
        .arg(QLatin1String(from), QLatin1String(to));
}

} // namespace

// The queue runs in a thread of its own, as in the daemon, on one end of a pty pair.
class TestModbusContextQueue : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<PtyPair> _pty;
    std::unique_ptr<TestFiles> _files;
    std::unique_ptr<ConfigurationManager> _configuration;
    std::unique_ptr<ModbusContextQueue> _queue;
    std::unique_ptr<QThread> _thread;
    std::vector<std::unique_ptr<FakeUnit>> _units;

    // Units outlive the queue's thread: cleanup() stops it first.
    FakeUnit &makeUnit(int address)
    {
        _units.push_back(std::make_unique<FakeUnit>(address));
        return *_units.back();
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

private slots:
    void initTestCase()
    {
        _files = std::make_unique<TestFiles>();
        _files->useAsConfiguration("[modbus]\nbaudrate=19200\n", "");
        _configuration = std::make_unique<ConfigurationManager>();
    }

    void init()
    {
        _pty = std::make_unique<PtyPair>();
        QVERIFY(_pty->isReady());
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
        _units.clear();
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

    void unitsServedInTurnAndDisabledSkipped()
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
    }

    void pauseHandshake()
    {
        FakeUnit &unit = makeUnit(4);
        startQueue({ &unit }, _pty->first());
        QTRY_VERIFY(unit.uses > 0);
        _queue->pause();
        QTRY_VERIFY(!_queue->isBusy());
        const int usesWhilePaused = unit.uses;
        QTest::qWait(100);
        QCOMPARE(unit.uses.load(), usesWhilePaused);
        _queue->resume();
        QTRY_VERIFY(unit.uses > usesWhilePaused);
    }

    void stateReportEveryFifteenMinutes()
    {
        LogCapture log;
        FakeUnit &running = makeUnit(6);
        FakeUnit &faulty = makeUnit(9);
        faulty.faulty = true;
        startQueue({ &running, &faulty }, _pty->first());
        QTRY_VERIFY(log.count("changed context state") == 2);
        const QString report
            = QStringLiteral("_useContext Modbus device on address %1 has context state \"%2\"");
        QCOMPARE(log.count("has context state"), 0);

        Clock::advance(900001);
        QTRY_COMPARE(log.count("modbus", QtDebugMsg, report.arg(6).arg("running")), 1);
        QTRY_COMPARE(log.count("modbus", QtDebugMsg, report.arg(9).arg("faulty")), 1);
        // Ascending address order, and not again before another 15 minutes.
        QTest::qWait(100);
        QCOMPARE(log.count("has context state"), 2);
        const QList<LogCapture::Line> lines = log.lines();
        const auto position = [&](int address) {
            return std::find_if(lines.cbegin(), lines.cend(), [&](const LogCapture::Line &line) {
                return line.text.contains(QStringLiteral("address %1 has").arg(address));
            }) - lines.cbegin();
        };
        QVERIFY(position(6) < position(9));
    }

    void emptyQueueIdles()
    {
        LogCapture log;
        startQueue({}, _pty->first());
        QTRY_VERIFY(log.contains("modbus", QtDebugMsg, "process 0"));
        QTRY_VERIFY(!_queue->isBusy());
        QCOMPARE(log.count("changed context state"), 0);
    }
};

QTEST_GUILESS_MAIN(TestModbusContextQueue)
#include "tst_modbuscontextqueue.moc"
