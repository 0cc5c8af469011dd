#include "console.h"

#include <unistd.h>

void Console::print(const QString &text)
{
    _write(stdout, text);
}

void Console::printError(const QString &message)
{
    _write(stderr, QStringLiteral("meterctl: %1\n").arg(message.simplified()));
}

bool Console::isTerminal() const
{
    return isatty(STDOUT_FILENO) == 1;
}

void Console::clearScreen()
{
    print(QStringLiteral("\x1b[H\x1b[2J"));
}

void Console::_write(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}
