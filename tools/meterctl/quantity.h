#pragma once

#include <QString>

#include <span>

// One measured value of a meter as meterctl presents it: the key in the service's value map,
// how a person reads it, and its unit.
struct Quantity
{
    const char *key;
    const char *label;
    // Column title in the live table; null for values left out there to keep it narrow.
    const char *liveTitle;
    const char *unit;
    // Digits after the point: the resolution of the meters' registers, so no noise of the
    // float conversion shows (230.1 V, not 230.100006).
    int decimals;

    // "-" for a value the meter has not delivered (NaN).
    QString format(double value) const;
    QString formatWithUnit(double value) const;

    static std::span<const Quantity> all();
};
