#include "runtool.h"

#include <QProcess>

ToolResult runTool(const QString &program, const QStringList &arguments,
    const QStringList &environment, int timeoutMs, const QString &workingDirectory)
{
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    QProcessEnvironment processEnvironment = QProcessEnvironment::systemEnvironment();
    for (const QString &setting : environment)
        processEnvironment.insert(setting.section('=', 0, 0), setting.section('=', 1));
    process.setProcessEnvironment(processEnvironment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted())
        return { -1, program + ": " + process.errorString() };
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        return { -1, QString::fromUtf8(process.readAll()) + program + ": did not finish in time" };
    }
    const QString output = QString::fromUtf8(process.readAll());
    return { process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1, output };
}
