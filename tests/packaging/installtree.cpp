#include "installtree.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>

bool InstallTree::install(const QString &buildDirectory, QString *log)
{
    const ToolResult result = runTool(QStringLiteral(METERD_CMAKE),
        { QStringLiteral("--install"), buildDirectory }, { QStringLiteral("DESTDIR=") + root() });
    *log = result.output;
    return _dir.isValid() && result.exitCode == 0;
}

ToolResult runTool(const QString &program, const QStringList &arguments,
    const QStringList &environment, int timeoutMs, const QString &workingDirectory)
{
    ToolResult result;
    QProcess process;
    process.setWorkingDirectory(workingDirectory);
    QProcessEnvironment processEnvironment = QProcessEnvironment::systemEnvironment();
    for (const QString &setting : environment)
        processEnvironment.insert(setting.section('=', 0, 0), setting.section('=', 1));
    process.setProcessEnvironment(processEnvironment);
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted()) {
        result.output = program + QStringLiteral(": ") + process.errorString();
        return result;
    }
    if (!process.waitForFinished(timeoutMs)) {
        process.kill();
        process.waitForFinished();
        result.output = QString::fromUtf8(process.readAll()) + program
            + QStringLiteral(": did not finish in time");
        return result;
    }
    result.output = QString::fromUtf8(process.readAll());
    if (process.exitStatus() == QProcess::NormalExit)
        result.exitCode = process.exitCode();
    return result;
}

ToolResult verifyUnit(const QString &unitName, const QString &unitText, const QString &root)
{
    // Exec lines may start with special prefixes ("-", "@", "+", "!", ":") before the path.
    static const QRegularExpression execLine(
        QStringLiteral("^(Exec[A-Za-z]*=[-@+!:]*)/"), QRegularExpression::MultilineOption);
    QString text = unitText;
    text.replace(execLine, QStringLiteral("\\1") + root + QStringLiteral("/"));

    QTemporaryDir directory;
    QFile copy(directory.filePath(unitName));
    if (!copy.open(QIODevice::WriteOnly) || copy.write(text.toUtf8()) != text.toUtf8().size())
        return { -1, QStringLiteral("cannot write ") + copy.fileName() };
    copy.close();
    return runTool(QStringLiteral("systemd-analyze"),
        { QStringLiteral("verify"), QStringLiteral("--man=no"), copy.fileName() });
}

QStringList unitValues(const QString &unitText, const QString &key)
{
    QStringList values;
    const QStringList lines = unitText.split('\n');
    for (const QString &line : lines) {
        const QString trimmed = line.trimmed();
        if (trimmed.startsWith('#') || trimmed.startsWith(';'))
            continue;
        const qsizetype equals = trimmed.indexOf('=');
        if (equals > 0 && trimmed.left(equals).trimmed() == key)
            values << trimmed.mid(equals + 1).trimmed();
    }
    return values;
}
