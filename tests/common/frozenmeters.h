#pragma once

#include <QByteArray>

// Simulated meters whose values do not drift, so that readings can be compared exactly: an
// EM340 at 7, an EM111 at 8 and an EM210 at 9 on the External channel; corvix.ini also names
// address 10, where nobody answers.
namespace FrozenMeters {
QByteArray scenario();
QByteArray corvix();
}
