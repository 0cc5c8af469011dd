#include "logging.h"

Q_LOGGING_CATEGORY(lcMeterSim, "metersim")
