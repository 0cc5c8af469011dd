#pragma once

#include "itemperature.h"

#include <QLoggingCategory>
#include <QObject>
#include <QString>

#include <vector>

class ClockTimer;
class EnergyMeter;
class IChargeController;

// A temperature that is not measured but estimated every 5 s with a first-order thermal model:
// the estimate heats with the square of the outlet currents and cools towards the hottest
// temperature probe. A probe that answers NaN keeps its last good value (0.0 before the first).
class DerivedTemperature : public QObject, public ITemperature
{
    Q_OBJECT

public:
    struct Model
    {
        double initialEstimate; // degrees Celsius
        double heating; // a, kelvin per (A² · s)
        double cooling; // b, 1/s
    };

    // Current probe j goes with charge controller j. The probes and controllers are not owned.
    DerivedTemperature(const QString &namePrefix, const Model &model,
        const std::vector<ITemperature *> &temperatureProbes,
        const std::vector<EnergyMeter *> &currentProbes,
        const std::vector<IChargeController *> &chargeControllers, QObject *parent = nullptr);

    double temperature() const override { return _estimate; }

private slots:
    void _updateEstimate();

private:
    void _readTemperatures();
    void _readCurrents();

    double _estimate;
    const int _periodSeconds = 5;
    ClockTimer *_timer;
    const double _heating;
    const double _cooling;
    std::vector<double> _currents;
    std::vector<double> _temperatures;
    const std::vector<ITemperature *> _temperatureProbes;
    const std::vector<EnergyMeter *> _currentProbes;
    const std::vector<IChargeController *> _chargeControllers;
    char _categoryName[64];
    QLoggingCategory _category;
};
