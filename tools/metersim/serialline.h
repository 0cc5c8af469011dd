#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>
#include <memory>
#include <optional>

// The serial line the meters share: either the master side of a pseudo-terminal pair made here,
// whose slave side a symlink points at, or an existing serial device.
class SerialLine
{
public:
    static std::unique_ptr<SerialLine> createPty(const QString &link, QString *error);
    static std::unique_ptr<SerialLine> openDevice(const QString &path, QString *error);
    ~SerialLine();
    Q_DISABLE_COPY_MOVE(SerialLine)

    int fd() const { return _fd; }
    // What the master should open: the symlink or the device path.
    QString name() const { return _name; }

    // The bytes waiting, possibly none; nothing once the other side has gone for good.
    std::optional<QByteArray> read();
    void write(const QByteArray &bytes);

private:
    SerialLine(int fd, int peerFd, const QString &name);

    static bool makeRaw(int fd, QString *error);
    static bool makeNonBlocking(int fd, QString *error);
    static bool replaceLink(const QString &link, const QString &target, QString *error);
    void removeLink();

    int _fd;
    // The pty's slave side, held open so the master side never reads a hangup between two
    // masters using the line.
    int _peerFd;
    QString _name;
    QString _linkTarget;
};
