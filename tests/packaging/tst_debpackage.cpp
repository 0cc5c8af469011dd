#include "installtree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <unistd.h>

// The Debian package, built once with dpkg-buildpackage from a copy of the source tree (the
// build writes next to the tree and into debian/), then examined and installed into a
// throwaway root with its maintainer scripts, and purged again.
namespace {

const QString unitPath = QStringLiteral("/lib/systemd/system/meterd.service");
const QString enabledLink
    = QStringLiteral("/etc/systemd/system/multi-user.target.wants/meterd.service");

// Copies the files git tracks or would track: what belongs to the source tree.
bool copySourceTree(const QString &source, const QString &target, QString *log)
{
    const ToolResult listed = runTool(QStringLiteral("git"),
        { QStringLiteral("-c"), QStringLiteral("safe.directory=") + source, QStringLiteral("-C"),
            source, QStringLiteral("ls-files"), QStringLiteral("--cached"),
            QStringLiteral("--others"), QStringLiteral("--exclude-standard") });
    const QStringList files = listed.output.split('\n', Qt::SkipEmptyParts);
    for (const QString &file : files) {
        const QString from = source + '/' + file;
        const QString to = target + '/' + file;
        // A file deleted from the working tree but still tracked is not part of it.
        if (QFileInfo::exists(from)
            && !(QDir().mkpath(QFileInfo(to).path()) && QFile::copy(from, to))) {
            *log = QStringLiteral("cannot copy ") + file;
            return false;
        }
    }
    *log = listed.output;
    return listed.exitCode == 0 && !files.isEmpty();
}

// The package's paths and their modes, from dpkg-deb -c lines: mode, owner, size, date, time,
// path (and "-> target" for links).
QMap<QString, QString> packageEntries(const QString &package)
{
    QMap<QString, QString> modes;
    const ToolResult listed
        = runTool(QStringLiteral("dpkg-deb"), { QStringLiteral("-c"), package });
    for (const QString &line : listed.output.split('\n', Qt::SkipEmptyParts)) {
        const QStringList fields = line.split(' ', Qt::SkipEmptyParts);
        if (fields.size() >= 6)
            modes.insert(fields.at(5).mid(1), fields.at(0)); // "./usr/..." -> "/usr/..."
    }
    return modes;
}

} // namespace

class TestDebPackage : public QObject
{
    Q_OBJECT

    QTemporaryDir _work;
    QString _package;

private slots:
    void initTestCase()
    {
        QVERIFY(_work.isValid());
        const QString source = _work.filePath(QStringLiteral("meterd"));
        QString log;
        QVERIFY2(copySourceTree(QStringLiteral(METERD_SOURCE_DIR), source, &log), qPrintable(log));

        const ToolResult build = runTool(QStringLiteral("dpkg-buildpackage"),
            { QStringLiteral("-us"), QStringLiteral("-uc"), QStringLiteral("-b") },
            { QStringLiteral("DEB_BUILD_OPTIONS=nocheck parallel=%1")
                    .arg(QThread::idealThreadCount()) },
            25 * 60 * 1000, source);
        QVERIFY2(build.exitCode == 0, qPrintable(build.output.right(6000)));

        const QStringList packages
            = QDir(_work.path()).entryList({ QStringLiteral("meterd_*.deb") }, QDir::Files);
        QCOMPARE(packages.size(), 1);
        _package = _work.filePath(packages.constFirst());
    }

    void contents_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("mode");
        const QString data = QStringLiteral("-rw-r--r--");
        const QString interfaces = QStringLiteral("/usr/share/dbus-1/interfaces/");
        QTest::newRow("daemon") << QStringLiteral("/usr/sbin/meterd") << "-rwxr-xr-x";
        QTest::newRow("systemd unit") << unitPath << data;
        QTest::newRow("bus policy")
            << "/usr/share/dbus-1/system.d/com.ovra.slavecontroller.conf" << data;
        QTest::newRow("measurement interface")
            << interfaces + "com.ovra.slavecontroller.MeasurementManager.xml" << data;
        QTest::newRow("production test interface")
            << interfaces + "com.ovra.outletmanager.pts.xml" << data;
    }

    void contents()
    {
        QFETCH(QString, path);
        QFETCH(QString, mode);
        const QMap<QString, QString> entries = packageEntries(_package);
        QVERIFY2(entries.contains(path), qPrintable(entries.keys().join('\n')));
        QCOMPARE(entries.value(path), mode);
    }

    // Installed with its maintainer scripts into an empty root, the files land there and the
    // unit is enabled; purging takes all of it away again.
    void installAndPurge()
    {
        // The scripts run outside the root (dpkg --force-script-chrootless, with DPKG_ROOT set)
        // and would reload and start units of a systemd running here.
        if (QFileInfo::exists(QStringLiteral("/run/systemd/system")))
            QSKIP("systemd runs on this machine; the maintainer scripts would reach it");
        if (geteuid() != 0)
            QSKIP("dpkg installs as root");

        QTemporaryDir root;
        for (const char *directory :
            { "var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers", "var/log" })
            QVERIFY(QDir(root.path()).mkpath(QLatin1String(directory)));
        QVERIFY(
            QFile(root.filePath(QStringLiteral("var/lib/dpkg/status"))).open(QIODevice::WriteOnly));

        // The log stays in the throwaway root as well; dependencies are not installed there.
        const QStringList dpkg { QStringLiteral("--root=") + root.path(),
            QStringLiteral("--log=") + root.filePath(QStringLiteral("var/log/dpkg.log")),
            QStringLiteral("--force-script-chrootless"), QStringLiteral("--force-depends") };
        const ToolResult install = runTool(
            QStringLiteral("dpkg"), dpkg + QStringList { QStringLiteral("-i"), _package });
        QVERIFY2(install.exitCode == 0, qPrintable(install.output));
        const QStringList paths = packageEntries(_package).keys();
        for (const QString &path : paths)
            QVERIFY2(QFileInfo::exists(root.path() + path), qPrintable(path));
        QCOMPARE(QFileInfo(root.path() + enabledLink).symLinkTarget(), unitPath);

        const ToolResult purge = runTool(QStringLiteral("dpkg"),
            dpkg + QStringList { QStringLiteral("--purge"), QStringLiteral("meterd") });
        QVERIFY2(purge.exitCode == 0, qPrintable(purge.output));
        for (const QString &path : paths) {
            const QFileInfo left(root.path() + path);
            QVERIFY2(left.isDir() || !left.exists(), qPrintable(path));
        }
        QVERIFY(!QFileInfo(root.path() + enabledLink).isSymLink());
    }
};

QTEST_GUILESS_MAIN(TestDebPackage)
#include "tst_debpackage.moc"
