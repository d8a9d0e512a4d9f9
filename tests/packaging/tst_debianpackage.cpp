#include "InstallLayout.h"
#include "RunProcess.h"

#include "model/AppVersion.h"
#include "services/UpdateChecker.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>

// The Debian package as `cpack -G DEB` builds it: its name (the one the update check
// downloads), its control fields, its files, whether its Depends cover everything the
// program loads, and an install into a throw-away root.
class DebianPackageTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void controlFields();
    void filesAreTheInstall();
    void dependsCoverWhatTheProgramLoads();
    void dependenciesResolveOnThisSystem();
    void installsIntoThrowAwayRoot();

private:
    QString field(const QString& name);
    // Every package name that satisfies a Depends entry, alternatives included.
    QSet<QString> dependedOn();
    void verifyDependedOn(const QString& path, const QString& why);

    QTemporaryDir m_work;
    QString m_deb;
    QString m_extracted;
};

namespace {

// The package that owns a file, as dpkg knows it; folders merged into /usr are tried under
// both names.
QString owner(const QString& path) {
    QStringList candidates = {path, QFileInfo(path).canonicalFilePath()};
    if (!path.startsWith(QLatin1String("/usr/")))
        candidates << QStringLiteral("/usr") + path;
    for (const QString& candidate : candidates) {
        if (candidate.isEmpty())
            continue;
        const ProcessResult r = runProcess("dpkg", {"-S", candidate});
        if (r.exitCode != 0)
            continue;
        const QString line = QString::fromUtf8(r.out).section(u'\n', 0, 0);
        return line.section(QStringLiteral(": "), 0, 0).section(u':', 0, 0);
    }
    return {};
}

// The modules a QML module pulls in: its imports and dependencies, not the optional ones.
QStringList qmldirImports(const QString& qmldir) {
    QFile f(qmldir);
    QStringList modules;
    if (!f.open(QIODevice::ReadOnly))
        return modules;
    for (const QByteArray& raw : f.readAll().split('\n')) {
        const QStringList words = QString::fromUtf8(raw).simplified().split(u' ');
        if (words.size() >= 2 &&
            (words[0] == QLatin1String("import") || words[0] == QLatin1String("depends")))
            modules << words[1];
        else if (words.size() >= 3 && words[0] == QLatin1String("default") &&
                 words[1] == QLatin1String("import"))
            modules << words[2];
    }
    return modules;
}

} // namespace

void DebianPackageTest::initTestCase() {
    QVERIFY(m_work.isValid());
    const ProcessResult r =
        runProcess(CPACK_COMMAND, {"--config", MINDMETER_BUILD_DIR "/CPackConfig.cmake", "-G",
                                   "DEB", "-B", m_work.path()});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    // The file the update check downloads for this version.
    m_deb = m_work.filePath(UpdateChecker::packageFileName(AppVersion::number));
    QVERIFY2(QFile::exists(m_deb), qPrintable(m_deb));
    m_extracted = m_work.filePath("extracted");
    QCOMPARE(runProcess("dpkg-deb", {"-x", m_deb, m_extracted}).exitCode, 0);
}

QString DebianPackageTest::field(const QString& name) {
    return QString::fromUtf8(runProcess("dpkg-deb", {"-f", m_deb, name}).out).trimmed();
}

QSet<QString> DebianPackageTest::dependedOn() {
    QSet<QString> names;
    for (const QString& entry : field("Depends").split(u',', Qt::SkipEmptyParts))
        for (const QString& alternative : entry.split(u'|'))
            names.insert(alternative.section(u'(', 0, 0).trimmed());
    return names;
}

void DebianPackageTest::verifyDependedOn(const QString& path, const QString& why) {
    const QString package = owner(path);
    QVERIFY2(!package.isEmpty(), qPrintable(why + ": no package owns " + path));
    QVERIFY2(dependedOn().contains(package),
             qPrintable(why + ": " + path + " comes from " + package + ", not in Depends"));
}

void DebianPackageTest::controlFields() {
    QCOMPARE(field("Package"), QString("mindmeter"));
    QCOMPARE(field("Version"), QString(AppVersion::number));
    const ProcessResult arch = runProcess("dpkg", {"--print-architecture"});
    QCOMPARE(field("Architecture"), QString::fromUtf8(arch.out).trimmed());
    QVERIFY(field("Maintainer").contains(QRegularExpression("^.+ <[^@ ]+@[^@ ]+>$")));
}

void DebianPackageTest::filesAreTheInstall() {
    const ProcessResult r = runProcess("dpkg-deb", {"-c", m_deb});
    QCOMPARE(r.exitCode, 0);
    QStringList files;
    for (const QString& line : QString::fromUtf8(r.out).split(u'\n', Qt::SkipEmptyParts)) {
        const QStringList columns = line.simplified().split(u' ');
        QCOMPARE(columns.value(1), QString("root/root"));
        if (!columns[0].startsWith(u'-'))
            continue;
        const QString path = columns.last();
        QVERIFY2(path.startsWith("./usr/"), qPrintable(path));
        files << path.mid(6);
        QCOMPARE(columns[0], QString(path.startsWith("./usr/bin/") ? "-rwxr-xr-x" : "-rw-r--r--"));
    }
    files.sort();
    QCOMPARE(files, InstallLayout::files());

    // Installed to /usr, the program looks beside itself only in its private library folder.
    const ProcessResult dynamic = runProcess("readelf", {"-d", m_extracted + "/usr/bin/mindmeter"});
    QCOMPARE(dynamic.exitCode, 0);
    QVERIFY(dynamic.out.contains("(NEEDED)"));
    QVERIFY(!dynamic.out.contains("(RPATH)"));
    QVERIFY2(dynamic.out.contains("Library runpath: [$ORIGIN/../lib/mindmeter/core]\n"),
             dynamic.out);
}

void DebianPackageTest::dependsCoverWhatTheProgramLoads() {
    const QString program = m_extracted + "/usr/bin/mindmeter";

    // The libraries it and its core link directly, found where the loader finds them.
    int libraries = 0;
    for (const QString& binary : {program, m_extracted + "/usr/" + InstallLayout::coreLibrary}) {
        const ProcessResult dynamic = runProcess("readelf", {"-d", binary});
        const ProcessResult ldd = runProcess("ldd", {binary});
        QCOMPARE(ldd.exitCode, 0);
        QHash<QString, QString> resolved;
        for (const QString& line : QString::fromUtf8(ldd.out).split(u'\n')) {
            const QRegularExpressionMatch m =
                QRegularExpression("^\\s*(\\S+) => (/\\S+) \\(").match(line);
            if (m.hasMatch())
                resolved.insert(m.captured(1), m.captured(2));
        }
        const QRegularExpression needed("\\(NEEDED\\)\\s+Shared library: \\[([^\\]]+)\\]");
        for (auto it = needed.globalMatch(QString::fromUtf8(dynamic.out)); it.hasNext();) {
            const QString soname = it.next().captured(1);
            ++libraries;
            QVERIFY2(resolved.contains(soname), qPrintable(soname + " is not found"));
            if (!resolved.value(soname).startsWith(m_extracted)) // the core comes with it
                verifyDependedOn(resolved.value(soname), "linked " + soname);
        }
    }
    QVERIFY(libraries >= 10);

    // The QML modules its views import, with what they import in turn, and the Fusion style
    // the program selects. QtQml itself is built into the QML library.
    const QString qmlRoot = QLibraryInfo::path(QLibraryInfo::QmlImportsPath);
    QStringList queue = {"QtQuick.Controls.Fusion"};
    QDirIterator views(MINDMETER_SOURCE_DIR "/src/views", {"*.qml"}, QDir::Files,
                       QDirIterator::Subdirectories);
    const QRegularExpression import("^import\\s+([A-Za-z][\\w.]*)",
                                    QRegularExpression::MultilineOption);
    while (views.hasNext()) {
        QFile f(views.next());
        QVERIFY(f.open(QIODevice::ReadOnly));
        for (auto it = import.globalMatch(QString::fromUtf8(f.readAll())); it.hasNext();)
            queue << it.next().captured(1);
    }
    QSet<QString> seen = {"Mindmeter", "QtQml"}; // this program's own module, built in
    QVERIFY(queue.contains("QtQuick.Layouts"));
    while (!queue.isEmpty()) {
        const QString module = queue.takeFirst();
        if (seen.contains(module))
            continue;
        seen.insert(module);
        const QString qmldir = qmlRoot + u'/' + QString(module).replace(u'.', u'/') + "/qmldir";
        QVERIFY2(QFile::exists(qmldir), qPrintable("QML module " + module + " is not installed"));
        verifyDependedOn(qmldir, "QML module " + module);
        queue << qmldirImports(qmldir);
    }

    // Loaded or run by path: the X11 platform plugin, the icon font, pgrep.
    verifyDependedOn(QLibraryInfo::path(QLibraryInfo::PluginsPath) + "/platforms/libqxcb.so",
                     "platform plugin");
    verifyDependedOn(
        "/usr/share/fonts/truetype/material-design-icons-iconfont/MaterialIcons-Regular.ttf",
        "icon font");
    verifyDependedOn("/usr/bin/pgrep", "process check");
}

void DebianPackageTest::dependenciesResolveOnThisSystem() {
    // apt's own resolver, as `apt install ./mindmeter_*.deb` would run it, without changing
    // anything.
    const ProcessResult r = runProcess(
        "apt-get", {"install", "--simulate", "--no-install-recommends", "--quiet", m_deb});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    QVERIFY2(r.out.contains("Inst mindmeter (" + QByteArray(AppVersion::number)), r.out);
}

void DebianPackageTest::installsIntoThrowAwayRoot() {
    // An empty root with a dpkg database of its own: dpkg unpacks and configures the package
    // there as it would on a system, without the dependencies (they are checked above).
    QTemporaryDir root;
    const QString admin = root.filePath("var/lib/dpkg");
    for (const char* folder : {"info", "updates", "triggers"})
        QVERIFY(QDir().mkpath(admin + u'/' + folder));
    for (const char* file : {"status", "available"}) {
        QFile f(admin + u'/' + file);
        QVERIFY(f.open(QIODevice::WriteOnly));
    }
    const QStringList dpkg = {"--root=" + root.path(), "--log=" + root.filePath("dpkg.log"),
                              "--force-not-root"};
    ProcessResult r = runProcess("dpkg", dpkg + QStringList{"--force-depends", "--install", m_deb});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    r = runProcess("dpkg", dpkg + QStringList{"--status", "mindmeter"});
    QVERIFY2(r.out.contains("Status: install ok installed"), r.out);

    // The packaged (stripped) program works.
    const QString program = root.filePath("usr/bin/mindmeter");
    r = runProcess(program, {"--version"});
    QCOMPARE(r.out, QByteArray(AppVersion::displayString) + '\n');
    QTemporaryDir data;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("XDG_DATA_HOME", data.path());
    r = runProcess(program, {"status", "--format", "waybar"}, env);
    QCOMPARE(r.exitCode, 0);
    QCOMPARE(QJsonDocument::fromJson(r.out).object()["class"].toString(), QString("normal"));

    // Removing it leaves none of its files behind.
    r = runProcess("dpkg", dpkg + QStringList{"--purge", "mindmeter"});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    QDirIterator left(root.filePath("usr"), QDir::Files, QDirIterator::Subdirectories);
    QVERIFY2(!left.hasNext(), qPrintable(left.hasNext() ? left.next() : QString()));
}

QTEST_GUILESS_MAIN(DebianPackageTest)
#include "tst_debianpackage.moc"
