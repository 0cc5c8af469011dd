#include "fakeunit.h"

#include <QThread>

FakeUnit::FakeUnit(int address)
    : EnergyMeter(QStringLiteral("fake.") + QString::number(address))
    , address(address)
{
}

void FakeUnit::useContext(modbus_t *context)
{
    ++uses;
    contextWasNull = context == nullptr;
    if (context)
        modbus_set_slave(context, address);
    if (blockMs > 0)
        QThread::msleep(ulong(blockMs.load()));
}
