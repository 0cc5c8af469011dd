#include "fakereaderparent.h"

#include <QMutexLocker>

QList<FakeReaderParent::StaticData> FakeReaderParent::staticUpdates() const
{
    const QMutexLocker lock(&_mutex);
    return _staticUpdates;
}

QList<MeterReading> FakeReaderParent::readings() const
{
    const QMutexLocker lock(&_mutex);
    return _readings;
}

QStringList FakeReaderParent::errorReasons() const
{
    const QMutexLocker lock(&_mutex);
    return _errorReasons;
}

void FakeReaderParent::errorRoutine(const QString &reason)
{
    const QMutexLocker lock(&_mutex);
    _errorReasons.append(reason);
}

void FakeReaderParent::updateStatic(
    const QString &model, quint32 idCode, const QString &serial, quint32 extra)
{
    const QMutexLocker lock(&_mutex);
    _staticUpdates.append({ model, idCode, serial, extra });
}

void FakeReaderParent::publishReading(const MeterReading &reading)
{
    const QMutexLocker lock(&_mutex);
    _readings.append(reading);
}
