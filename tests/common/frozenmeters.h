#pragma once

#include <QByteArray>

// Simulated meters whose values do not drift, so that readings can be compared exactly: an
// EM340 at 7, an EM111 at 8, an EM210 at 9 and an EM540 at 12 on the External channel;
// corvix.ini also names address 10, where nobody answers.
namespace FrozenMeters {
QByteArray scenario();
QByteArray corvix();
}
