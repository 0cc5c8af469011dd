#include "meterregistry.h"

#include <atomic>

namespace {
std::atomic<MeterRegistry *> current { nullptr };
}

MeterRegistry::~MeterRegistry()
{
    MeterRegistry *self = this;
    current.compare_exchange_strong(self, nullptr);
}

MeterRegistry *MeterRegistry::instance()
{
    return current.load();
}

void MeterRegistry::registerInstance()
{
    current = this;
}
