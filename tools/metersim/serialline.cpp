#include "serialline.h"

#include "logging.h"

#include <QFile>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <pty.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace {

QString systemError(const QString &what)
{
    return QStringLiteral("%1: %2").arg(what, qt_error_string(errno));
}

void closeIfOpen(int fd)
{
    if (fd >= 0)
        ::close(fd);
}

}

SerialLine::SerialLine(int fd, int peerFd, const QString &name)
    : _fd(fd)
    , _peerFd(peerFd)
    , _name(name)
{
}

SerialLine::~SerialLine()
{
    removeLink();
    closeIfOpen(_fd);
    closeIfOpen(_peerFd);
}

std::unique_ptr<SerialLine> SerialLine::createPty(const QString &link, QString *error)
{
    int master = -1;
    int slave = -1;
    if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) {
        *error = systemError(QStringLiteral("openpty"));
        return nullptr;
    }
    std::unique_ptr<SerialLine> line(new SerialLine(master, slave, link));
    char target[PATH_MAX];
    if (::ttyname_r(slave, target, sizeof target) != 0) {
        *error = systemError(QStringLiteral("ttyname"));
        return nullptr;
    }
    // The line settings of a pty pair are those of its slave side, whichever end sets them.
    if (!makeRaw(slave, error) || !makeNonBlocking(master, error)
        || !replaceLink(link, QFile::decodeName(target), error))
        return nullptr;
    line->_linkTarget = QFile::decodeName(target);
    return line;
}

std::unique_ptr<SerialLine> SerialLine::openDevice(const QString &path, QString *error)
{
    const int fd
        = ::open(QFile::encodeName(path).constData(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        *error = systemError(path);
        return nullptr;
    }
    std::unique_ptr<SerialLine> line(new SerialLine(fd, -1, path));
    if (!::isatty(fd)) {
        *error = QStringLiteral("%1 is not a serial device").arg(path);
        return nullptr;
    }
    if (!makeRaw(fd, error))
        return nullptr;
    return line;
}

std::optional<QByteArray> SerialLine::read()
{
    char buffer[512];
    const ssize_t count = ::read(_fd, buffer, sizeof buffer);
    if (count > 0)
        return QByteArray(buffer, count);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return QByteArray();
    return std::nullopt;
}

// Replies are short and the master waits for them, so a full line means nobody listens any more:
// the rest of the reply is dropped rather than blocking every other meter.
void SerialLine::write(const QByteArray &bytes)
{
    qsizetype written = 0;
    while (written < bytes.size()) {
        const ssize_t count = ::write(_fd, bytes.constData() + written, bytes.size() - written);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0) {
            qCWarning(lcMeterSim).noquote() << systemError(QStringLiteral("reply dropped"));
            return;
        }
        written += count;
    }
}

// 9600 8N1 without any byte processing; a pty ignores the speed but masters may check it.
bool SerialLine::makeRaw(int fd, QString *error)
{
    termios settings {};
    if (::tcgetattr(fd, &settings) != 0) {
        *error = systemError(QStringLiteral("tcgetattr"));
        return false;
    }
    ::cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    settings.c_cflag &= ~(CSTOPB | PARENB | CRTSCTS);
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
    if (::cfsetspeed(&settings, B9600) != 0 || ::tcsetattr(fd, TCSANOW, &settings) != 0) {
        *error = systemError(QStringLiteral("tcsetattr"));
        return false;
    }
    return true;
}

bool SerialLine::makeNonBlocking(int fd, QString *error)
{
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0) {
        *error = systemError(QStringLiteral("fcntl"));
        return false;
    }
    return true;
}

// A symlink left behind by an earlier run is replaced; anything else at that path is not ours.
bool SerialLine::replaceLink(const QString &link, const QString &target, QString *error)
{
    const QByteArray path = QFile::encodeName(link);
    struct stat info
    {
    };
    if (::lstat(path.constData(), &info) == 0) {
        if (!S_ISLNK(info.st_mode)) {
            *error = QStringLiteral("%1 exists and is not a symbolic link").arg(link);
            return false;
        }
        if (::unlink(path.constData()) != 0) {
            *error = systemError(link);
            return false;
        }
    }
    if (::symlink(QFile::encodeName(target).constData(), path.constData()) != 0) {
        *error = systemError(link);
        return false;
    }
    return true;
}

// Only our own link goes: another instance may have taken the name over meanwhile.
void SerialLine::removeLink()
{
    if (_linkTarget.isEmpty())
        return;
    const QByteArray path = QFile::encodeName(_name);
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.constData(), target, sizeof target);
    if (length > 0 && QFile::decodeName(QByteArray(target, length)) == _linkTarget)
        ::unlink(path.constData());
}
