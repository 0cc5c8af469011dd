#include "configlogging.h"

Q_LOGGING_CATEGORY(lcConfig, "config", QtDebugMsg)
