#pragma once

#include <QtGlobal>

// The outlet's charge controller as the temperature estimator sees it: when the outlet's meter
// cannot be trusted, the controller says which current to reckon with instead.
class IChargeController
{
public:
    virtual ~IChargeController() = default;

    // The current in whole amperes to use in place of the measured one (NaN when nothing was
    // measured).
    virtual quint16 currentToUse(double measuredCurrent) const = 0;
};
