#include "clientprocess.h"

namespace {
constexpr int readyTimeoutMs = 10000;
}

ClientProcess::Figures ClientProcess::run(
    const QString &address, const Call &call, int calls, int processes)
{
    QProcess client;
    client.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    client.start(BENCH_CLIENT_BINARY,
        arguments(address, call) << "--calls" << QString::number(calls) << "--processes"
                                 << QString::number(processes));
    client.waitForFinished(-1);
    return parse(client.readAllStandardOutput());
}

ClientProcess::ClientProcess(const QString &address, const Call &call)
{
    _client.start(BENCH_CLIENT_BINARY, arguments(address, call) << "--until-signal");
    _ready = _client.waitForReadyRead(readyTimeoutMs) && _client.readLine().startsWith("ready");
}

ClientProcess::Figures ClientProcess::stop()
{
    _client.terminate();
    _client.waitForFinished(-1);
    _failures = QString::fromUtf8(_client.readAllStandardError()).trimmed();
    return parse(_client.readAllStandardOutput());
}

QStringList ClientProcess::arguments(const QString &address, const Call &call)
{
    QStringList arguments { "--address", address, "--service", call.target.service, "--path",
        call.target.path, "--interface", call.target.interface, "--method", call.method };
    if (call.spread)
        arguments << "--spread";
    if (!call.signature.isEmpty())
        arguments << "--signature" << call.signature << call.arguments;
    return arguments;
}

ClientProcess::Figures ClientProcess::parse(const QByteArray &output)
{
    Figures figures;
    for (const QByteArray &pair : output.trimmed().split(' ')) {
        const int equals = pair.indexOf('=');
        if (equals > 0)
            figures.insert(QString::fromLatin1(pair.left(equals)), pair.mid(equals + 1).toDouble());
    }
    return figures;
}
