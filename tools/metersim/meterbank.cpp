#include "meterbank.h"

#include "logging.h"
#include "meter.h"

namespace {
constexpr int DriftIntervalMilliseconds = 1000;
}

MeterBank::MeterBank(QObject *parent)
    : QObject(parent)
{
    connect(&_driftTimer, &QTimer::timeout, this, &MeterBank::drift);
    _driftTimer.start(DriftIntervalMilliseconds);
}

MeterBank::~MeterBank() = default;

bool MeterBank::add(std::unique_ptr<Meter> meter)
{
    const int id = meter->id();
    if (_meters.count(id) != 0)
        return false;
    qCInfo(lcMeterSim).noquote() << QStringLiteral("slave %1: %2, serial %3")
                                        .arg(id)
                                        .arg(MeterModel::name(meter->model()),
                                            QString::fromLatin1(meter->values().serial()));
    _meters.emplace(id, std::move(meter));
    return true;
}

Meter *MeterBank::find(int id) const
{
    const auto found = _meters.find(id);
    return found == _meters.end() ? nullptr : found->second.get();
}

void MeterBank::drift()
{
    for (const auto &[id, meter] : _meters)
        meter->drift(DriftIntervalMilliseconds / 1000.0);
}
