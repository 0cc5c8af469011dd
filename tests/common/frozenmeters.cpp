#include "frozenmeters.h"

namespace FrozenMeters {

QByteArray scenario()
{
    return R"(
[7]
model=EM340
serial=EM340SERIAL007
voltage1=230.1
voltage2=231.2
voltage3=229.3
current1=5.2
current2=-6.25
current3=0.125
power=-1500.5
powerfactor1=0.98
powerfactor2=0.5
powerfactor3=-0.75
frequency=49.9
energy=123456.7
energyexported=12.3
fault=frozen

[8]
model=EM111
serial=EM111SERIAL0089
voltage1=228.4
current1=9.876
power=2254.6
energy=42.5
fault=frozen

[9]
model=EM210
serial=EM210SN9
voltage1=232.0
voltage2=233.0
voltage3=234.5
current1=1.5
current2=2.5
current3=3.5
power=1800.0
energy=777.7
fault=frozen

; Power from words 28-29 (apparent power of phase 3), not from the power at 40-41; power
; factors unsigned, so -0.001 (0xFFFF) reads 65.535.
[12]
model=EM540
serial=EM540SERIAL00012
voltage1=230.1
voltage2=231.2
voltage3=229.3
current1=5.2
current2=6.25
current3=0.125
power=567.8
apparentpower3=123.4
powerfactor1=-0.001
powerfactor2=0.5
powerfactor3=1.0
frequency=50.1
energy=2345.6
energyexported=7.8
fault=frozen
)";
}

QByteArray corvix()
{
    return R"(
[em340]
meter=modbus/1/7
[em111]
meter=modbus/1/8
[em210]
meter=modbus/1/9
[absent]
meter=modbus/1/10
[em540]
meter=modbus/1/12
)";
}

} // namespace FrozenMeters
