#include "runtool.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <unistd.h>

// The Debian package, built with dpkg-buildpackage from a copy of the files git tracks (the build
// writes next to the tree and into debian/), then installed into a throwaway root with its
// maintainer scripts, and purged again.
namespace {

const QString unitPath = QStringLiteral("/lib/systemd/system/meterd.service");
const QString enabledLink
    = QStringLiteral("/etc/systemd/system/multi-user.target.wants/meterd.service");

// The package's paths and their modes, from dpkg-deb -c lines: mode, owner, size, date, time,
// path (and "-> target" for links).
QMap<QString, QString> packageEntries(const QString &package)
{
    QMap<QString, QString> modes;
    const ToolResult listed = runTool("dpkg-deb", { "-c", package });
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
        const QString source = _work.filePath("meterd");
        const ToolResult listed = runTool("git",
            { "-c", "safe.directory=" METERD_SOURCE_DIR, "-C", METERD_SOURCE_DIR, "ls-files",
                "--cached", "--others", "--exclude-standard" });
        QVERIFY2(listed.exitCode == 0, qPrintable(listed.output));
        for (const QString &file : listed.output.split('\n', Qt::SkipEmptyParts)) {
            // A file deleted from the working tree but still tracked is not part of it.
            const QString from = QStringLiteral(METERD_SOURCE_DIR "/") + file;
            QVERIFY(!QFileInfo::exists(from)
                || (QDir().mkpath(QFileInfo(source + '/' + file).path())
                    && QFile::copy(from, source + '/' + file)));
        }
        const ToolResult build = runTool("dpkg-buildpackage", { "-us", "-uc", "-b" },
            { QStringLiteral("DEB_BUILD_OPTIONS=nocheck parallel=%1")
                    .arg(QThread::idealThreadCount()) },
            25 * 60 * 1000, source);
        QVERIFY2(build.exitCode == 0, qPrintable(build.output.right(6000)));
        const QStringList packages = QDir(_work.path()).entryList({ "meterd_*.deb" }, QDir::Files);
        QCOMPARE(packages.size(), 1);
        _package = _work.filePath(packages.constFirst());
    }

    void contents()
    {
        const QMap<QString, QString> entries = packageEntries(_package);
        const QString data = QStringLiteral("-rw-r--r--");
        const QString interfaces = QStringLiteral("/usr/share/dbus-1/interfaces/");
        const QMap<QString, QString> expected { { "/usr/sbin/meterd", "-rwxr-xr-x" },
            { unitPath, data }, { "/usr/share/dbus-1/system.d/com.ovra.slavecontroller.conf", data },
            { interfaces + "com.ovra.slavecontroller.MeasurementManager.xml", data },
            { interfaces + "com.ovra.outletmanager.pts.xml", data } };
        for (auto it = expected.cbegin(); it != expected.cend(); ++it)
            QVERIFY2(entries.value(it.key()) == it.value(), qPrintable(it.key()));
    }

    // Installed with its maintainer scripts into an empty root, the files land there and the
    // unit is enabled; purging takes all of it away again.
    void installAndPurge()
    {
        // The scripts run outside the root (dpkg --force-script-chrootless, with DPKG_ROOT set)
        // and would reload and start units of a systemd running here.
        if (QFileInfo::exists("/run/systemd/system") || geteuid() != 0)
            QSKIP("needs root, and no systemd running here for the maintainer scripts to reach");
        QTemporaryDir root;
        for (const char *directory :
            { "var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers", "var/log" })
            QVERIFY(QDir(root.path()).mkpath(QLatin1String(directory)));
        QVERIFY(QFile(root.filePath("var/lib/dpkg/status")).open(QIODevice::WriteOnly));
        // The log stays in the throwaway root as well; dependencies are not installed there.
        const QStringList dpkg { "--root=" + root.path(),
            "--log=" + root.filePath("var/log/dpkg.log"), "--force-script-chrootless",
            "--force-depends" };
        const ToolResult install = runTool("dpkg", dpkg + QStringList { "-i", _package });
        QVERIFY2(install.exitCode == 0, qPrintable(install.output));
        const QStringList paths = packageEntries(_package).keys();
        for (const QString &path : paths)
            QVERIFY2(QFileInfo::exists(root.path() + path), qPrintable(path));
        QCOMPARE(QFileInfo(root.path() + enabledLink).symLinkTarget(), unitPath);

        const ToolResult purge = runTool("dpkg", dpkg + QStringList { "--purge", "meterd" });
        QVERIFY2(purge.exitCode == 0, qPrintable(purge.output));
        for (const QString &path : paths)
            QVERIFY2(QFileInfo(root.path() + path).isDir()
                    || !QFileInfo::exists(root.path() + path),
                qPrintable(path));
        QVERIFY(!QFileInfo(root.path() + enabledLink).isSymLink());
    }
};

QTEST_GUILESS_MAIN(TestDebPackage)
#include "tst_debpackage.moc"
