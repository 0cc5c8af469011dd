#include "derivedtemperature.h"

#include "clocktimer.h"
#include "energymeter.h"
#include "ichargecontroller.h"

#include <algorithm>
#include <cmath>
#include <cstring>

DerivedTemperature::DerivedTemperature(const QString &namePrefix, const Model &model,
    const std::vector<ITemperature *> &temperatureProbes,
    const std::vector<EnergyMeter *> &currentProbes,
    const std::vector<IChargeController *> &chargeControllers, QObject *parent)
    : QObject(parent)
    , _estimate(model.initialEstimate)
    , _timer(new ClockTimer(this))
    , _heating(model.heating)
    , _cooling(model.cooling)
    , _currents(currentProbes.size(), 0.0)
    , _temperatures(temperatureProbes.size(), 0.0)
    , _temperatureProbes(temperatureProbes)
    , _currentProbes(currentProbes)
    , _chargeControllers(chargeControllers)
    , _categoryName {}
    , _category(std::strncpy(_categoryName,
                    (namePrefix + QStringLiteral(".temperature")).toLatin1().constData(),
                    sizeof(_categoryName) - 1),
          QtDebugMsg)
{
    qCInfo(_category) << __func__ << "Number of temperature probes:" << _temperatureProbes.size();
    qCInfo(_category) << __func__ << "Number of current probes:" << _currentProbes.size();
    if (_currentProbes.size() != _chargeControllers.size()) {
        qCCritical(_category) << __func__ << "size of I_probes:" << _currentProbes.size()
                              << "and chargeController:" << _chargeControllers.size()
                              << "need to match";
        return;
    }
    if (_temperatureProbes.empty() || _currentProbes.empty()) {
        qCCritical(_category) << __func__ << "Not enough probes, estimate will not be updated!";
        return;
    }
    qCInfo(_category) << __func__ << "Temperature estimator instantiated, starting estimations";
    connect(_timer, &ClockTimer::timeout, this, &DerivedTemperature::_updateEstimate);
    _timer->start(_periodSeconds * 1000);
}

void DerivedTemperature::_readTemperatures()
{
    for (std::size_t i = 0; i < _temperatureProbes.size(); ++i) {
        const double value
            = _temperatureProbes[i] ? _temperatureProbes[i]->temperature() : std::nan("");
        if (!std::isnan(value))
            _temperatures[i] = value;
    }
}

void DerivedTemperature::_readCurrents()
{
    for (std::size_t j = 0; j < _currentProbes.size(); ++j) {
        const EnergyMeter *meter = _currentProbes[j];
        if (!meter)
            continue;
        double value = meter->maxCurrent();
        // A meter that is not reading properly is not trusted: the controller knows better.
        if (meter->status() != OK && _chargeControllers[j])
            value = double(_chargeControllers[j]->currentToUse(value));
        if (!std::isnan(value))
            _currents[j] = value;
    }
}

void DerivedTemperature::_updateEstimate()
{
    _readTemperatures();
    _readCurrents();
    const double hottest = *std::max_element(_temperatures.cbegin(), _temperatures.cend());
    // Every probe's current counts once per phase: the worst phase stands for all three.
    double heatingPower = 0.0;
    for (const double current : _currents)
        heatingPower += 3 * current * current;
    if (std::isnan(heatingPower) || std::isnan(hottest)) {
        qCDebug(_category) << __func__ << "Measurands are NaN, not updating estimate.";
        return;
    }
    _estimate += _periodSeconds * (_heating * heatingPower - _cooling * (_estimate - hottest));
}
