#pragma once

#include "modbuspath.h"

#include <QList>
#include <QString>

class ConfigurationManager;

// Reads the local grid controller's file, which names the feedback meters (grid connection,
// household) whose readings the controller needs.
class CxUtil
{
public:
    static QString configurationPath();
    static bool feedbackConfigurationActive(const ConfigurationManager &configuration);
    static bool homeMeterRequired(const ConfigurationManager &configuration);
    static QList<QString> requiredTCPFeedbackMeters();
    static QList<ModbusPath> requiredFeedbackMeters();

private:
    static QList<QString> _requiredTCPFeedbackMeters(const QString &path);
    static QList<ModbusPath> _requiredFeedbackMeters(const QString &path);
};
