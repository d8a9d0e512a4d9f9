#include "RunProcess.h"

#include "model/AppVersion.h"
#include "services/UpdateChecker.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLibraryInfo>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

namespace {

const QString appId = QStringLiteral("com.mindmeter.Mindmeter");
const QString gnomeExtension =
    QStringLiteral("share/gnome-shell/extensions/mindmeter@mindmeter.app");
const QString coreLibrary = QStringLiteral("lib/mindmeter/core/libmindmeter-core.so");
const QString networkModule = QStringLiteral("lib/mindmeter/network/mindmeter-network.so");
const QList<int> iconSizes = {16, 22, 24, 32, 48, 64, 128, 256};

QString iconPath(int size) {
    return QStringLiteral("share/icons/hicolor/%1x%1/apps/%2.png").arg(size).arg(appId);
}

// Every file the package puts under /usr, as the README's install section puts them under
// its prefix: the same install rules make both.
QStringList installedFiles() {
    QStringList f = {"bin/mindmeter", coreLibrary,
                     // The windows and views, loaded by the program when first wanted.
                     "lib/mindmeter/ui/mindmeter-ui.so", "lib/systemd/user/mindmeter-track.service",
                     // The network, loaded by the update check and its download.
                     networkModule, "share/applications/" + appId + ".desktop",
                     "share/doc/mindmeter/changelog.gz", "share/doc/mindmeter/copyright",
                     // The GNOME Shell extension that shows the front application on Wayland.
                     gnomeExtension + "/extension.js", gnomeExtension + "/frontApplication.js",
                     gnomeExtension + "/metadata.json",
                     "share/icons/hicolor/scalable/apps/" + appId + ".svg",
                     "share/man/man1/mindmeter.1.gz", "share/metainfo/" + appId + ".metainfo.xml"};
    for (int size : iconSizes)
        f << iconPath(size);
    f.sort();
    return f;
}

// The package that owns a file, as dpkg knows it; folders merged into /usr are tried under
// both names.
QString owner(const QString& path) {
    QStringList candidates = {path, QFileInfo(path).canonicalFilePath()};
    if (!path.startsWith(QLatin1String("/usr/")))
        candidates << QStringLiteral("/usr") + path;
    for (const QString& candidate : candidates) {
        const ProcessResult r = runProcess("dpkg", {"-S", candidate});
        if (!candidate.isEmpty() && r.exitCode == 0)
            return QString::fromUtf8(r.out)
                .section(u'\n', 0, 0)
                .section(": ", 0, 0)
                .section(u':', 0, 0);
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
        if (words.size() >= 2 && (words[0] == "import" || words[0] == "depends"))
            modules << words[1];
        else if (words.size() >= 3 && words[0] == "default" && words[1] == "import")
            modules << words[2];
    }
    return modules;
}

// A key's first value in a file of KEY=VALUE lines (a desktop entry's main group comes first).
QString firstValue(const QString& path, const QString& key) {
    QFile f(path);
    return QRegularExpression("^" + key + "=(.*)$", QRegularExpression::MultilineOption)
        .match(f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString())
        .captured(1);
}

// The text of the first element of this name in an XML file, or of one of its attributes.
QString xmlValue(const QString& path, const QString& element, const QString& attribute = {}) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QXmlStreamReader xml(&f);
    while (xml.readNext() != QXmlStreamReader::EndDocument && !xml.hasError())
        if (xml.isStartElement() && xml.name() == element)
            return attribute.isEmpty() ? xml.readElementText()
                                       : xml.attributes().value(attribute).toString();
    return {};
}

} // namespace

// The Debian package as `cpack -G DEB` builds it: its name (the one the update check
// downloads), its control fields, whether its Depends cover everything the program loads and
// resolve, and its files checked with the freedesktop validators and the program itself.
class DebianPackageTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void controlFieldsAndFiles();
    void dependsCoverWhatTheProgramLoads();
    void dependenciesResolveOnThisSystem();
    void iconsDraw();
    void desktopEntryAndUserUnitValidate();
    void metainfoValidates();
    void manPageDocumentsEveryVerb();
    void gnomeShellExtensionPacks_data();
    void gnomeShellExtensionPacks();

private:
    QString field(const QString& name) {
        return QString::fromUtf8(runProcess("dpkg-deb", {"-f", m_deb, name}).out).trimmed();
    }
    void verifyDependedOn(const QString& path, const QString& why);
    QString installed(const QString& relative) const { return m_extracted + "/usr/" + relative; }
    // "v1.4.5 · 2026-05-30" from the packaged program, split into number and date.
    QStringList versionAndDate();

    QTemporaryDir m_work;
    QString m_deb;
    QString m_extracted;
};

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

QStringList DebianPackageTest::versionAndDate() {
    const ProcessResult r = runProcess(installed("bin/mindmeter"), {"--version"});
    const QRegularExpressionMatch m =
        QRegularExpression("^v(\\S+) \u00b7 (\\d{4}-\\d\\d-\\d\\d)\n$")
            .match(QString::fromUtf8(r.out));
    return m.hasMatch() ? QStringList{m.captured(1), m.captured(2)} : QStringList();
}

void DebianPackageTest::verifyDependedOn(const QString& path, const QString& why) {
    const QString package = owner(path);
    QVERIFY2(!package.isEmpty(), qPrintable(why + ": no package owns " + path));
    QSet<QString> dependedOn; // every name that satisfies a Depends entry, alternatives too
    for (const QString& entry : field("Depends").split(u',', Qt::SkipEmptyParts))
        for (const QString& alternative : entry.split(u'|'))
            dependedOn.insert(alternative.section(u'(', 0, 0).trimmed());
    QVERIFY2(dependedOn.contains(package),
             qPrintable(why + ": " + path + " comes from " + package + ", not in Depends"));
}

void DebianPackageTest::controlFieldsAndFiles() {
    QCOMPARE(field("Package"), QString("mindmeter"));
    QCOMPARE(field("Version"), QString(AppVersion::number));
    const ProcessResult arch = runProcess("dpkg", {"--print-architecture"});
    QCOMPARE(field("Architecture"), QString::fromUtf8(arch.out).trimmed());
    QVERIFY(field("Maintainer").contains(QRegularExpression("^.+ <[^@ ]+@[^@ ]+>$")));

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
    QCOMPARE(files, installedFiles());

    // Installed to /usr, the program looks beside itself only in its private library folder.
    const ProcessResult dynamic = runProcess("readelf", {"-d", installed("bin/mindmeter")});
    QVERIFY(dynamic.out.contains("(NEEDED)"));
    QVERIFY(!dynamic.out.contains("(RPATH)"));
    QVERIFY2(dynamic.out.contains("Library runpath: [$ORIGIN/../lib/mindmeter/core]\n"),
             dynamic.out);
}

void DebianPackageTest::dependsCoverWhatTheProgramLoads() {
    // The libraries it and its core link directly, found where the loader finds them.
    int libraries = 0;
    for (const QString& binary :
         {installed("bin/mindmeter"), installed(coreLibrary), installed(networkModule)}) {
        const ProcessResult dynamic = runProcess("readelf", {"-d", binary});
        const ProcessResult ldd = runProcess("ldd", {binary});
        QCOMPARE(ldd.exitCode, 0);
        QHash<QString, QString> resolved;
        const QRegularExpression found("^\\s*(\\S+) => (/\\S+) \\(",
                                       QRegularExpression::MultilineOption);
        for (auto it = found.globalMatch(QString::fromUtf8(ldd.out)); it.hasNext();) {
            const QRegularExpressionMatch m = it.next();
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
    // Installed, the update check finds its module: it fails on the closed port, not earlier.
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("MINDMETER_VENDOR_URL", "http://127.0.0.1:9");
    const ProcessResult check = runProcess(installed("bin/mindmeter"), {"update", "--check"}, env);
    QCOMPARE(check.exitCode, 1);
    QVERIFY2(check.err.contains("update check failed: Connection refused"), check.err);

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
    // apt's own resolver, as `apt install ./mindmeter_*.deb` would run it, changing nothing.
    const ProcessResult r = runProcess(
        "apt-get", {"install", "--simulate", "--no-install-recommends", "--quiet", m_deb});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    QVERIFY2(r.out.contains("Inst mindmeter (" + QByteArray(AppVersion::number)), r.out);
}

void DebianPackageTest::iconsDraw() {
    for (int size : iconSizes) {
        const QImage icon(installed(iconPath(size)));
        QCOMPARE(icon.size(), QSize(size, size));
        QCOMPARE(qAlpha(icon.pixel(0, 0)), 0); // a transparent corner
        // The head covers a good part of the square, neither nothing nor all of it.
        int opaque = 0;
        for (int y = 0; y < size; ++y)
            for (int x = 0; x < size; ++x)
                opaque += qAlpha(icon.pixel(x, y)) > 128 ? 1 : 0;
        QVERIFY2(opaque > size * size / 4 && opaque < size * size * 3 / 4,
                 qPrintable(QString::number(opaque)));
    }
    QFile svg(installed("share/icons/hicolor/scalable/apps/" + appId + ".svg"));
    QVERIFY(svg.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&svg);
    QVERIFY(xml.readNextStartElement() && xml.name() == QLatin1String("svg"));
    xml.skipCurrentElement();
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
}

void DebianPackageTest::desktopEntryAndUserUnitValidate() {
    const QString path = installed("share/applications/" + appId + ".desktop");
    ProcessResult r = runProcess("desktop-file-validate", {path});
    QVERIFY2(r.exitCode == 0 && r.out.isEmpty() && r.err.isEmpty(), r.out + r.err);
    // It starts the installed program and shows the installed icon.
    QVERIFY(
        QFileInfo(installed("bin/" + firstValue(path, "Exec").section(u' ', 0, 0))).isExecutable());
    QCOMPARE(firstValue(path, "Icon"), appId);
    // Docks match the tray app's windows to this entry by their WM_CLASS, which Qt takes from
    // the application name the program sets.
    QCOMPARE(firstValue(path, "StartupWMClass"), QString("mindmeter"));

    const QString unit = installed("lib/systemd/user/mindmeter-track.service");
    const QString exec = firstValue(unit, "ExecStart");
    QCOMPARE(exec.section(u' ', 1), QString("track"));
    const QString program = installed("bin/" + exec.section(u' ', 0, 0));
    QVERIFY(QFileInfo(program).isExecutable());
    // systemd checks the unit as it would load it, with the command pointed at the installed
    // program (it looks a bare name up in the system's folders only).
    QTemporaryDir dir;
    QFile copy(dir.filePath("mindmeter-track.service"));
    QFile original(unit);
    QVERIFY(original.open(QIODevice::ReadOnly) && copy.open(QIODevice::WriteOnly));
    copy.write(original.readAll().replace("ExecStart=" + exec.toUtf8(),
                                          "ExecStart=" + program.toUtf8() + " track"));
    copy.close();
    r = runProcess("systemd-analyze", {"verify", "--man=no", copy.fileName()});
    QVERIFY2(r.exitCode == 0 && r.err.isEmpty(), r.err.constData());
}

void DebianPackageTest::metainfoValidates() {
    const QString path = installed("share/metainfo/" + appId + ".metainfo.xml");
    const ProcessResult r = runProcess("appstreamcli", {"validate", "--no-net", path});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    QVERIFY2(!r.out.contains("E: ") && !r.out.contains("W: "), r.out.constData());
    QVERIFY(QFile::exists(installed("share/applications/" + xmlValue(path, "launchable"))));
    // The newest release is the program's own version.
    const QStringList version = versionAndDate();
    QCOMPARE(xmlValue(path, "release", "version"), version.value(0));
    QCOMPARE(xmlValue(path, "release", "date"), version.value(1));
}

void DebianPackageTest::manPageDocumentsEveryVerb() {
    const ProcessResult roff =
        runProcess("gzip", {"-dc", installed("share/man/man1/mindmeter.1.gz")});
    QCOMPARE(roff.exitCode, 0);
    QVERIFY(roff.out.startsWith(".TH MINDMETER 1 "));
    QVERIFY(roff.out.contains(versionAndDate().value(0).toUtf8()));

    // Rendered as man would, with every warning on: none may appear. Plain text, so the
    // verbs can be found in it.
    const ProcessResult page = runProcess("groff", {"-man", "-Tutf8", "-ww", "-P-cbou"},
                                          QProcessEnvironment::systemEnvironment(), roff.out);
    QVERIFY2(page.exitCode == 0 && page.err.isEmpty(), page.err.constData());
    QString text = QString::fromUtf8(page.out);
    text.replace(QChar(0x2212), u'-').replace(QChar(0x2010), u'-');

    // Each entry of `mindmeter --help` is a paragraph of the page.
    const ProcessResult help = runProcess(installed("bin/mindmeter"), {"--help"});
    QCOMPARE(help.exitCode, 0);
    int entries = 0;
    for (const QByteArray& line : help.out.split('\n')) {
        if (!line.startsWith("  "))
            continue;
        QString verb = QString::fromUtf8(line.mid(2)).section(u' ', 0, 0).remove(u',');
        if (verb == QLatin1String("defaults"))
            verb = QString::fromUtf8(line.mid(2)).section(u' ', 0, 1);
        const QRegularExpression tag("^ {7}" + QRegularExpression::escape(verb) + "\\b",
                                     QRegularExpression::MultilineOption);
        QVERIFY2(text.contains(tag), qPrintable(verb));
        ++entries;
    }
    QVERIFY(entries >= 10);
}

void DebianPackageTest::gnomeShellExtensionPacks_data() {
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("versions");
    // The form for GNOME 43 and 44 runs in a real GNOME Shell in the tracking tests.
    QTest::newRow("installed") << installed(gnomeExtension) << QStringList{};
    QTest::newRow("GNOME 45 on") << MINDMETER_BUILD_DIR "/packaging/gnome-shell-extension/modules"
                                 << QStringList{"45", "46", "47", "48"};
}

void DebianPackageTest::gnomeShellExtensionPacks() {
    QFETCH(QString, folder);
    QFETCH(QStringList, versions);
    QFile file(folder + "/metadata.json");
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonObject metadata = QJsonDocument::fromJson(file.readAll()).object();
    QCOMPARE(metadata["uuid"].toString(), gnomeExtension.section('/', -1));
    QStringList declared;
    for (const QJsonValue& v : metadata["shell-version"].toArray())
        declared << v.toString();
    if (versions.isEmpty()) // the installed form is the one this machine's GNOME Shell loads
        versions << QString::fromLatin1(runProcess("gnome-shell", {"--version"}).out)
                        .section(' ', 2)
                        .section('.', 0, 0);
    for (const QString& version : versions)
        QVERIFY2(declared.contains(version), qPrintable(declared.join(',')));

    if (versions.contains("45")) {
        // The module form's core exports what its extension.js imports.
        QTemporaryDir dir;
        QFile check(dir.filePath("check.js"));
        QVERIFY(check.open(QIODevice::WriteOnly));
        check.write("import {FrontApplicationExporter} from 'file://" + folder.toUtf8() +
                    "/frontApplication.js';\n"
                    "if (typeof FrontApplicationExporter !== 'function')\n"
                    "    throw new Error('no exporter');\n");
        check.close();
        const ProcessResult gjs = runProcess("gjs", {"-m", check.fileName()});
        QVERIFY2(gjs.exitCode == 0, gjs.err.constData());
    }
}

QTEST_GUILESS_MAIN(DebianPackageTest)
#include "tst_debianpackage.moc"
