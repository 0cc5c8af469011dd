#include <QLoggingCategory>

// Categories of the station's outlet services that share this daemon's journal conventions;
// they are defined here so that rules naming them apply the same way in every process.
Q_LOGGING_CATEGORY(lcOutlet, "outlet", QtDebugMsg)
Q_LOGGING_CATEGORY(lcOutletSecc, "outlet.secc", QtDebugMsg)
Q_LOGGING_CATEGORY(lcOutletOcu, "outlet.ocu", QtDebugMsg)
Q_LOGGING_CATEGORY(lcOutletSchuko, "outlet.schuko", QtDebugMsg)
Q_LOGGING_CATEGORY(lcPlatformOcu, "platform.ocu", QtDebugMsg)
Q_LOGGING_CATEGORY(lcFirmwareOcu, "firmware.ocu", QtDebugMsg)
