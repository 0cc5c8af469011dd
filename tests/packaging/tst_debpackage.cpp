#include "installtree.h"
#include "systembus.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <unistd.h>

// The Debian package, built once with dpkg-buildpackage from a copy of the source tree (the
// build writes next to the tree and into debian/), then examined and installed into a
// throwaway root with its maintainer scripts, and purged again.
namespace {

const QString unitPath = QStringLiteral("/lib/systemd/system/meterd.service");
const QString policyDirectory = QStringLiteral("/usr/share/dbus-1/system.d");
const QString enabledLink
    = QStringLiteral("/etc/systemd/system/multi-user.target.wants/meterd.service");

QString readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

bool copyFile(const QString &source, const QString &target)
{
    return QDir().mkpath(QFileInfo(target).path()) && QFile::copy(source, target);
}

// Copies what belongs to the source tree: with git, the files it tracks or would track;
// without, everything but build directories and the repository itself.
bool copySourceTree(const QString &source, const QString &target, QString *log)
{
    const ToolResult listed = runTool(QStringLiteral("git"),
        { QStringLiteral("-c"), QStringLiteral("safe.directory=") + source, QStringLiteral("-C"),
            source, QStringLiteral("ls-files"), QStringLiteral("--cached"),
            QStringLiteral("--others"), QStringLiteral("--exclude-standard") });
    QStringList files;
    if (listed.exitCode == 0) {
        files = listed.output.split('\n', Qt::SkipEmptyParts);
    } else {
        QDirIterator it(source, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
        while (it.hasNext()) {
            const QString relative = QDir(source).relativeFilePath(it.next());
            if (!relative.startsWith(QLatin1String("build"))
                && !relative.startsWith(QLatin1String(".git/")))
                files << relative;
        }
    }
    for (const QString &file : std::as_const(files)) {
        // A file deleted from the working tree but still tracked is not part of it.
        if (QFileInfo::exists(source + '/' + file)
            && !copyFile(source + '/' + file, target + '/' + file)) {
            *log = QStringLiteral("cannot copy ") + file;
            return false;
        }
    }
    *log = QStringLiteral("%1 files").arg(files.size());
    return !files.isEmpty();
}

// dpkg-deb -c lines: mode, owner, size, date, time, path (and "-> target" for links).
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

QStringList dependencyNames(const QString &depends)
{
    // "libc6 (>= 2.34), libqt6core6 (>= 6.2.0), dbus | x" -> names of every alternative
    QStringList names;
    for (const QString &alternative : depends.split(QRegularExpression(QStringLiteral("[,|]"))))
        names << alternative.trimmed().section(' ', 0, 0).section(':', 0, 0);
    return names;
}

} // namespace

class TestDebPackage : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir _work;
    QString _package;

    QString field(const QString &name) const
    {
        return runTool(QStringLiteral("dpkg-deb"), { QStringLiteral("-f"), _package, name })
            .output.trimmed();
    }

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

    // The package's version is the project's, so that the changelog keeps up with CMake.
    void version() { QCOMPARE(field(QStringLiteral("Version")), QStringLiteral(METERD_VERSION)); }

    void contents_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("mode");
        QTest::newRow("daemon") << "/usr/sbin/meterd"
                                << "-rwxr-xr-x";
        QTest::newRow("systemd unit") << unitPath << "-rw-r--r--";
        QTest::newRow("bus policy") << policyDirectory + "/com.ovra.slavecontroller.conf"
                                    << "-rw-r--r--";
        QTest::newRow("measurement interface")
            << "/usr/share/dbus-1/interfaces/com.ovra.slavecontroller.MeasurementManager.xml"
            << "-rw-r--r--";
        QTest::newRow("production test interface")
            << "/usr/share/dbus-1/interfaces/com.ovra.outletmanager.pts.xml"
            << "-rw-r--r--";
    }

    void contents()
    {
        QFETCH(QString, path);
        QFETCH(QString, mode);
        const QMap<QString, QString> entries = packageEntries(_package);
        QVERIFY2(entries.contains(path), qPrintable(entries.keys().join('\n')));
        QCOMPARE(entries.value(path), mode);
    }

    // What only serves development stays out of the package.
    void notShipped_data()
    {
        QTest::addColumn<QString>("pattern");
        QTest::newRow("meter simulator") << "/metersim$";
        QTest::newRow("test suites") << "/tst_[^/]*$";
        QTest::newRow("benchmarks") << "/bench_[^/]*$";
        QTest::newRow("static libraries") << "\\.a$";
        QTest::newRow("headers") << "/include/";
    }

    void notShipped()
    {
        QFETCH(QString, pattern);
        const QRegularExpression expression(pattern);
        const QStringList paths = packageEntries(_package).keys();
        QVERIFY(!paths.isEmpty());
        for (const QString &path : paths)
            QVERIFY2(!expression.match(path).hasMatch(), qPrintable(path));
    }

    // The libraries the daemon links (found by dpkg-shlibdeps) and the bus it runs on.
    void depends_data()
    {
        QTest::addColumn<QString>("package");
        for (const char *name :
            { "dbus", "libqt6core6", "libqt6dbus6", "libmodbus5", "libsystemd0" })
            QTest::newRow(name) << name;
    }

    void depends()
    {
        QFETCH(QString, package);
        const QString depends = field(QStringLiteral("Depends"));
        QVERIFY2(dependencyNames(depends).contains(package), qPrintable(depends));
    }

    // The package's dependencies can be met on this machine (simulated, nothing is installed).
    void installableHere()
    {
        const ToolResult simulation = runTool(QStringLiteral("apt-get"),
            { QStringLiteral("install"), QStringLiteral("--simulate"),
                QStringLiteral("--no-install-recommends"), _package });
        QVERIFY2(simulation.exitCode == 0, qPrintable(simulation.output));
        QVERIFY2(simulation.output.contains(QLatin1String("Inst meterd ")),
            qPrintable(simulation.output));
    }

    // Installed with its maintainer scripts into an empty root: the files land where systemd
    // and the system bus read them, the unit is enabled, the installed unit and policy pass
    // their checks; purging takes all of it away again.
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
        QFile status(root.filePath(QStringLiteral("var/lib/dpkg/status")));
        QVERIFY(status.open(QIODevice::WriteOnly));
        status.close();

        // The log stays in the throwaway root as well; dependencies are not installed there.
        const QStringList dpkg { QStringLiteral("--root=") + root.path(),
            QStringLiteral("--log=") + root.filePath(QStringLiteral("var/log/dpkg.log")),
            QStringLiteral("--force-script-chrootless"), QStringLiteral("--force-depends") };
        const ToolResult install = runTool(
            QStringLiteral("dpkg"), dpkg + QStringList { QStringLiteral("-i"), _package });
        QVERIFY2(install.exitCode == 0, qPrintable(install.output));

        const QString installedUnit = readFile(root.path() + unitPath);
        QVERIFY(!installedUnit.isEmpty());
        QCOMPARE(QFileInfo(root.path() + enabledLink).symLinkTarget(), unitPath);
        const ToolResult verified
            = verifyUnit(QStringLiteral("meterd.service"), installedUnit, root.path());
        QVERIFY2(verified.exitCode == 0 && verified.output.trimmed().isEmpty(),
            qPrintable(verified.output));
        {
            const SystemBus bus(root.path() + policyDirectory);
            QVERIFY2(bus.isReady(), qPrintable(bus.startupLog()));
            QVERIFY2(!bus.startupLog().contains(QLatin1String("Encountered error")),
                qPrintable(bus.startupLog()));
            const BusCallResult owner = callAs(QStringLiteral("root"), bus.address(),
                QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
                QStringLiteral("org.freedesktop.DBus.RequestName"),
                { QStringLiteral("string:com.ovra.slavecontroller"), QStringLiteral("uint32:0") });
            QVERIFY2(owner.reply.contains(QLatin1String("uint32 1")), qPrintable(owner.error));
        }

        const ToolResult purge = runTool(QStringLiteral("dpkg"),
            dpkg + QStringList { QStringLiteral("--purge"), QStringLiteral("meterd") });
        QVERIFY2(purge.exitCode == 0, qPrintable(purge.output));
        for (const QString &path : packageEntries(_package).keys()) {
            const QFileInfo left(root.path() + path);
            QVERIFY2(left.isDir() || !left.exists(), qPrintable(path));
        }
        QVERIFY(!QFileInfo(root.path() + enabledLink).isSymLink());
    }
};

QTEST_GUILESS_MAIN(TestDebPackage)
#include "tst_debpackage.moc"
