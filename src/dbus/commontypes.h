#pragma once

#include <QObject>

// An outlet's number: 1 for the first outlet.
using EvseNumber_t = quint8;

// Types the station's services share on the bus.
namespace CommonTypes {
Q_NAMESPACE

// How an outlet drives its control pilot: plain PWM, high-level communication with the
// vehicle, or state E. On the bus a mode is its number, D-Bus type "i".
enum CpStateMode : int { MODE_NORMAL, MODE_HLC, MODE_E };
Q_ENUM_NS(CpStateMode)

// Makes CpStateMode usable in queued signals and known by its name. Safe to call more than
// once.
void registerTypes();

} // namespace CommonTypes
