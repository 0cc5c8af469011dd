#include "configurationmanager.h"
#include "messagepattern.h"
#include "metermanager.h"
#include "pts.h"

#include <QCoreApplication>
#include <QSharedPointer>

#include <systemd/sd-daemon.h>

#include <cerrno>
#include <cstring>
#include <unistd.h>

int main(int argc, char *argv[])
{
    MessagePattern::installJournalPattern();
    QCoreApplication app(argc, argv);

    auto configuration = QSharedPointer<ConfigurationManager>::create();
    if (configuration->isPtsMode()) {
        new Pts;
    } else {
        auto *meterManager = new MeterManager;
        switch (meterManager->start(QCoreApplication::arguments(), configuration)) {
        case MeterManager::SystemManagerFailed:
            return 0;
        case MeterManager::NameTaken:
            sd_notifyf(0, "STATUS=Failed to start up: %s\nERRNO=%i", strerror(EEXIST), -EEXIST);
            return -1;
        case MeterManager::PlatformIniMissing:
            sd_notifyf(0, "STATUS=Failed to start up:(platform.ini) %s.", strerror(ENOENT));
            return 0;
        default:
            break;
        }
    }

    sd_notifyf(0, "READY=1\nSTATUS=Processing requests...\nMAINPID=%lu", (unsigned long)getpid());
    const int status = QCoreApplication::exec();
    configuration.reset();
    return status;
}
