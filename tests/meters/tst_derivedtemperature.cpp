#include "clock.h"
#include "derivedtemperature.h"
#include "energymeter.h"
#include "fakeenergymeter.h"
#include "ichargecontroller.h"
#include "logcapture.h"

#include <QTest>

#include <cmath>
#include <deque>
#include <limits>

namespace {

constexpr double nanValue = std::numeric_limits<double>::quiet_NaN();
constexpr int periodMs = 5000;

// A probe that answers its first value once, and then either the same again or NaN.
class Probe : public ITemperature
{
public:
    Probe(double first, bool thenNaN)
        : _first(first)
        , _thenNaN(thenNaN)
    {
    }

    double temperature() const override { return reads++ == 0 || !_thenNaN ? _first : nanValue; }

    mutable int reads = 0;

private:
    double _first;
    bool _thenNaN;
};

// An outlet meter whose worst phase carries the given current on phase 2.
class OutletMeter : public FakeEnergyMeter
{
public:
    explicit OutletMeter(double current)
        : FakeEnergyMeter(QStringLiteral("outlet"))
    {
        currents[1] = current;
    }
};

class Controller : public IChargeController
{
public:
    explicit Controller(quint16 assigned)
        : _assigned(assigned)
    {
    }

    quint16 currentToUse(double) const override { return _assigned; }

private:
    quint16 _assigned;
};

// The probes, meters and controllers of one outlet, in the containers the estimator takes.
struct Outlet
{
    Outlet(const QList<double> &temperatures, bool thenNaN, const QList<double> &currents,
        quint16 assigned)
    {
        for (double value : temperatures) {
            probes.emplace_back(value, thenNaN);
            temperatureProbes.push_back(&probes.back());
        }
        for (double value : currents) {
            meters.emplace_back(value);
            controllers.emplace_back(assigned);
            currentProbes.push_back(&meters.back());
            chargeControllers.push_back(&controllers.back());
        }
    }

    std::deque<Probe> probes;
    std::deque<OutletMeter> meters;
    std::deque<Controller> controllers;
    std::vector<ITemperature *> temperatureProbes;
    std::vector<EnergyMeter *> currentProbes;
    std::vector<IChargeController *> chargeControllers;
};

} // namespace

class TestDerivedTemperature : public QObject
{
    Q_OBJECT

private slots:
    void closedForm_data()
    {
        QTest::addColumn<double>("initial");
        QTest::addColumn<double>("a");
        QTest::addColumn<double>("b");
        QTest::addColumn<QList<double>>("temperatures");
        QTest::addColumn<bool>("thenNaN");
        QTest::addColumn<double>("hottest");
        QTest::addColumn<QList<double>>("currents");
        QTest::addColumn<bool>("metersReading");
        QTest::addColumn<int>("assigned");
        QTest::addColumn<double>("heating"); // the sum of 3 I² the estimate should heat with

        const QList<double> probe { 20.0 };
        const QList<double> tenAmperes { 10.0 };
        QTest::newRow("relaxes by 1 - 5b per step")
            << 80.0 << 0.0 << 0.1 << probe << false << 20.0 << tenAmperes << true << 0 << 300.0;
        QTest::newRow("overshoots when 5b > 1")
            << 80.0 << 0.0 << 0.3 << probe << false << 20.0 << tenAmperes << true << 0 << 300.0;
        QTest::newRow("towards the hottest probe")
            << 80.0 << 0.0 << 0.1 << QList<double> { 20.0, 35.0, 5.0 } << false << 35.0
            << tenAmperes << true << 0 << 300.0;
        QTest::newRow("NaN probe keeps its last good value")
            << 80.0 << 0.0 << 0.1 << QList<double> { 30.0 } << true << 30.0 << tenAmperes << true
            << 0 << 300.0;
        QTest::newRow("probe never answered counts as 0.0")
            << -40.0 << 0.0 << 0.1 << QList<double> { -10.0, nanValue } << false << 0.0
            << tenAmperes << true << 0 << 300.0;
        QTest::newRow("heats with 3 I² of each meter's worst phase")
            << 20.0 << 0.001 << 0.1 << probe << false << 20.0 << QList<double> { 10.0, -6.0 }
            << true << 0 << 408.0;
        QTest::newRow("meter not reading: the controller's current")
            << 20.0 << 0.001 << 0.1 << probe << false << 20.0 << tenAmperes << false << 32
            << 3072.0;
        QTest::newRow("no current measured heats nothing")
            << 20.0 << 0.001 << 0.1 << probe << false << 20.0 << QList<double> { nanValue } << true
            << 0 << 0.0;
    }

    void closedForm()
    {
        QFETCH(double, initial);
        QFETCH(double, a);
        QFETCH(double, b);
        QFETCH(QList<double>, temperatures);
        QFETCH(bool, thenNaN);
        QFETCH(double, hottest);
        QFETCH(QList<double>, currents);
        QFETCH(bool, metersReading);
        QFETCH(int, assigned);
        QFETCH(double, heating);

        Outlet outlet(temperatures, thenNaN, currents, quint16(assigned));
        DerivedTemperature estimator(QStringLiteral("outlet.1"), { initial, a, b },
            outlet.temperatureProbes, outlet.currentProbes, outlet.chargeControllers);
        QCOMPARE(estimator.temperature(), initial);

        // The explicit step converges geometrically towards the balance of heating and cooling.
        const double balance = hottest + a * heating / b;
        for (int step = 1; step <= 4; ++step) {
            if (metersReading) {
                for (OutletMeter &meter : outlet.meters)
                    meter.reading();
            }
            Clock::advance(periodMs);
            QTRY_COMPARE(outlet.probes.front().reads, step);
            const double expected = balance + (initial - balance) * std::pow(1 - 5 * b, step);
            QVERIFY2(std::fabs(estimator.temperature() - expected)
                    < 1e-9 * qMax(1.0, std::fabs(expected)),
                qPrintable(QStringLiteral("step %1: %2, expected %3")
                               .arg(step)
                               .arg(estimator.temperature())
                               .arg(expected)));
        }
    }

    void construction_data()
    {
        QTest::addColumn<int>("temperatureProbes");
        QTest::addColumn<int>("currentProbes");
        QTest::addColumn<int>("controllers");
        QTest::addColumn<bool>("estimates");
        QTest::addColumn<QString>("message");

        QTest::newRow("estimating")
            << 1 << 2 << 2 << true
            << "DerivedTemperature Temperature estimator instantiated, starting estimations";
        QTest::newRow("more meters than controllers")
            << 1 << 2 << 1 << false
            << "DerivedTemperature size of I_probes: 2 and chargeController: 1 need to match";
        QTest::newRow("no current probe")
            << 2 << 0 << 0 << false
            << "DerivedTemperature Not enough probes, estimate will not be updated!";
        QTest::newRow("no temperature probe")
            << 0 << 1 << 1 << false
            << "DerivedTemperature Not enough probes, estimate will not be updated!";
    }

    void construction()
    {
        QFETCH(int, temperatureProbes);
        QFETCH(int, currentProbes);
        QFETCH(int, controllers);
        QFETCH(bool, estimates);
        QFETCH(QString, message);

        Outlet outlet(
            QList<double>(temperatureProbes, 20.0), false, QList<double>(currentProbes, 0.0), 0);
        outlet.chargeControllers.resize(std::size_t(controllers));
        LogCapture log;
        DerivedTemperature estimator(QStringLiteral("outlet.2"), { 50.0, 0.0, 0.1 },
            outlet.temperatureProbes, outlet.currentProbes, outlet.chargeControllers);
        QCOMPARE(
            log.count("outlet.2.temperature", estimates ? QtInfoMsg : QtCriticalMsg, message), 1);
        QCOMPARE(log.count("outlet.2.temperature", QtInfoMsg,
                     QStringLiteral("DerivedTemperature Number of temperature probes: %1")
                         .arg(temperatureProbes)),
            1);

        Clock::advance(periodMs);
        if (estimates)
            QTRY_COMPARE(estimator.temperature(), 35.0);
        QCoreApplication::processEvents();
        QCOMPARE(estimator.temperature(), estimates ? 35.0 : 50.0);
    }
};

QTEST_GUILESS_MAIN(TestDerivedTemperature)
#include "tst_derivedtemperature.moc"
