#pragma once

#include <QtGlobal>

namespace EvseManagerTypes {
enum ConnectorType { Schuko = 0, SAE1772 = 1, MennekesCable = 2, MennekesOutlet = 3 };
}

// Kind of energy meter configured for an outlet; only the numbers are shared with other services.
using EnergyMeterType = qint32;
namespace EnergyMeterTypes {
constexpr EnergyMeterType NoMeter = -1;
constexpr EnergyMeterType ModbusRtu = 2; // model found from its identification code
constexpr EnergyMeterType IskraWM3M6 = 4; // taken without identification
constexpr EnergyMeterType ModbusTcp = 5; // never configured; marks a meter reached over TCP
constexpr EnergyMeterType Lowest = -1;
constexpr EnergyMeterType Highest = 4;
}

using PlugLockEngine = qint32;
namespace PlugLockEngines {
constexpr PlugLockEngine Lowest = 0;
constexpr PlugLockEngine Highest = 3;
}

namespace CorvixTypes {
// Kind of local grid controller the station belongs to.
enum CorvixType { NoLocalGrid = 0, FeedbackConfiguration = 1, HomeMeter = 2 };
}
using CorvixType = CorvixTypes::CorvixType;
