#include "fuzzapplication.h"

#include <QCoreApplication>

namespace {

void dropMessage(QtMsgType, const QMessageLogContext &, const QString &) { }

} // namespace

namespace FuzzApplication {

void start(const char *program)
{
    qInstallMessageHandler(dropMessage);
    // libFuzzer keeps its own arguments; the application sees only the program name. Both live
    // as long as the process, which libFuzzer ends without returning here.
    static int argc = 1;
    static char *argv[] = { const_cast<char *>(program), nullptr };
    new QCoreApplication(argc, argv);
}

void settle()
{
    QCoreApplication::sendPostedEvents();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
}

} // namespace FuzzApplication
