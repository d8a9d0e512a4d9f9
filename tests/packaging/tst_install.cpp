#include "InstallLayout.h"
#include "RunProcess.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QXmlStreamReader>

// `cmake --install` into a throw-away prefix, as a user or the package build runs it, and
// the installed files checked with the freedesktop validators and the program itself.
class InstallTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void layoutIsComplete();
    void desktopEntryValidates();
    void metainfoValidates();
    void manPageDocumentsEveryVerb();
    void userUnitRunsTrack();
    void gnomeShellExtensionPacks_data();
    void gnomeShellExtensionPacks();

private:
    QString installed(const QString& relative) const { return m_prefix.filePath(relative); }
    // "v1.4.5 · 2026-05-30" from the installed program, split into number and date.
    QStringList versionAndDate();

    QTemporaryDir m_prefix;
};

namespace {

// The keys of a desktop entry's main group.
QHash<QString, QString> desktopEntry(const QString& path) {
    QFile f(path);
    QHash<QString, QString> keys;
    if (!f.open(QIODevice::ReadOnly))
        return keys;
    bool inMain = false;
    for (const QByteArray& raw : f.readAll().split('\n')) {
        const QString line = QString::fromUtf8(raw).trimmed();
        if (line.startsWith(u'['))
            inMain = line == QLatin1String("[Desktop Entry]");
        else if (inMain && line.contains(u'=') && !line.startsWith(u'#'))
            keys.insert(line.section(u'=', 0, 0), line.section(u'=', 1));
    }
    return keys;
}

// The text of the first element of this name in an XML file, or of one of its attributes.
QString xmlValue(const QString& path, const QString& element, const QString& attribute = {}) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    QXmlStreamReader xml(&f);
    while (!xml.atEnd()) {
        xml.readNext();
        if (xml.isStartElement() && xml.name() == element)
            return attribute.isEmpty() ? xml.readElementText()
                                       : xml.attributes().value(attribute).toString();
    }
    return {};
}

} // namespace

void InstallTest::initTestCase() {
    QVERIFY(m_prefix.isValid());
    const ProcessResult r =
        runProcess(CMAKE_COMMAND, {"--install", MINDMETER_BUILD_DIR, "--prefix", m_prefix.path()});
    QVERIFY2(r.exitCode == 0, r.err.constData());
}

QStringList InstallTest::versionAndDate() {
    const ProcessResult r = runProcess(installed("bin/mindmeter"), {"--version"});
    const QRegularExpressionMatch m =
        QRegularExpression("^v(\\S+) \u00b7 (\\d{4}-\\d\\d-\\d\\d)\n$")
            .match(QString::fromUtf8(r.out));
    return m.hasMatch() ? QStringList{m.captured(1), m.captured(2)} : QStringList();
}

void InstallTest::layoutIsComplete() {
    QStringList found;
    QDirIterator it(m_prefix.path(), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        found << QDir(m_prefix.path()).relativeFilePath(it.next());
    found.sort();
    QCOMPARE(found, InstallLayout::files());

    QVERIFY(QFileInfo(installed("bin/mindmeter")).isExecutable());
    QCOMPARE(versionAndDate().size(), 2); // the installed program runs

    for (int size : InstallLayout::iconSizes) {
        const QImage icon(installed(InstallLayout::iconPath(size)));
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

    QFile svg(installed("share/icons/hicolor/scalable/apps/" + InstallLayout::appId + ".svg"));
    QVERIFY(svg.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&svg);
    QVERIFY(xml.readNextStartElement() && xml.name() == QLatin1String("svg"));
    while (!xml.atEnd())
        xml.readNext();
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
}

void InstallTest::desktopEntryValidates() {
    const QString path = installed("share/applications/" + InstallLayout::appId + ".desktop");
    const ProcessResult r = runProcess("desktop-file-validate", {path});
    QVERIFY2(r.exitCode == 0 && r.out.isEmpty() && r.err.isEmpty(), r.out + r.err);

    const QHash<QString, QString> entry = desktopEntry(path);
    // It starts the installed program and shows the installed icon.
    QVERIFY(QFileInfo(installed("bin/" + entry.value("Exec").section(u' ', 0, 0))).isExecutable());
    QCOMPARE(entry.value("Icon"), InstallLayout::appId);
    // Docks match the tray app's windows to this entry by their WM_CLASS, which Qt takes from
    // the application name the program sets.
    QCOMPARE(entry.value("StartupWMClass"), QString("mindmeter"));
}

void InstallTest::metainfoValidates() {
    const QString path = installed("share/metainfo/" + InstallLayout::appId + ".metainfo.xml");
    const ProcessResult r = runProcess("appstreamcli", {"validate", "--no-net", path});
    QVERIFY2(r.exitCode == 0, r.out + r.err);
    QVERIFY2(!r.out.contains("E: ") && !r.out.contains("W: "), r.out.constData());

    QVERIFY(QFile::exists(installed("share/applications/" + xmlValue(path, "launchable"))));
    // The newest release is the program's own version.
    const QStringList version = versionAndDate();
    QCOMPARE(xmlValue(path, "release", "version"), version.value(0));
    QCOMPARE(xmlValue(path, "release", "date"), version.value(1));
}

void InstallTest::manPageDocumentsEveryVerb() {
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

void InstallTest::userUnitRunsTrack() {
    QFile unit(installed("lib/systemd/user/mindmeter-track.service"));
    QVERIFY(unit.open(QIODevice::ReadOnly));
    QString text = QString::fromUtf8(unit.readAll());
    const QRegularExpressionMatch exec =
        QRegularExpression("^ExecStart=(\\S+) track$", QRegularExpression::MultilineOption)
            .match(text);
    QVERIFY(exec.hasMatch());
    const QString program = installed("bin/" + exec.captured(1));
    QVERIFY(QFileInfo(program).isExecutable());

    // systemd checks the unit as it would load it, with the command pointed at the installed
    // program (it looks a bare name up in the system's folders only).
    QTemporaryDir dir;
    QFile copy(dir.filePath("mindmeter-track.service"));
    QVERIFY(copy.open(QIODevice::WriteOnly));
    copy.write(text.replace(exec.capturedStart(1), exec.capturedLength(1), program).toUtf8());
    copy.close();
    const ProcessResult r = runProcess("systemd-analyze", {"verify", "--man=no", copy.fileName()});
    QVERIFY2(r.exitCode == 0 && r.err.isEmpty(), r.err.constData());
}

void InstallTest::gnomeShellExtensionPacks_data() {
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("versions");
    const QString built = MINDMETER_BUILD_DIR "/packaging/gnome-shell-extension/";
    QTest::newRow("installed") << installed(InstallLayout::gnomeExtension) << QStringList{};
    QTest::newRow("GNOME 43-44") << built + "legacy" << QStringList{"43", "44"};
    QTest::newRow("GNOME 45 on") << built + "modules" << QStringList{"45", "46", "47", "48"};
}

void InstallTest::gnomeShellExtensionPacks() {
    QFETCH(QString, folder);
    QFETCH(QStringList, versions);
    QFile file(folder + "/metadata.json");
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonObject metadata = QJsonDocument::fromJson(file.readAll()).object();
    QCOMPARE(metadata["uuid"].toString(), InstallLayout::gnomeExtension.section('/', -1));
    QStringList declared;
    for (const QJsonValue& v : metadata["shell-version"].toArray())
        declared << v.toString();
    if (versions.isEmpty()) {
        // The installed form is the one this machine's GNOME Shell loads.
        const QByteArray shell = runProcess("gnome-shell", {"--version"}).out;
        versions << QString::fromLatin1(shell).section(' ', 2).section('.', 0, 0);
    }
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

    QTemporaryDir out;
    const ProcessResult r =
        runProcess("gnome-extensions",
                   {"pack", folder, "--extra-source=frontApplication.js", "--out-dir", out.path()});
    QVERIFY2(r.exitCode == 0, r.err.constData());
    QVERIFY(QFile::exists(out.filePath(metadata["uuid"].toString() + ".shell-extension.zip")));
}

QTEST_GUILESS_MAIN(InstallTest)
#include "tst_install.moc"
