#include "model/TokenType.h"
#include "sensing/SessionContextEngine.h"
#include "views/Symbols.h"

#include <QDirIterator>
#include <QGuiApplication>
#include <QQmlExtensionPlugin>
#include <QRawFont>
#include <QRegularExpression>
#include <QTest>

Q_IMPORT_QML_PLUGIN(MindmeterPlugin)

// Every symbol the program names must draw a real glyph: a name missing from the table, or a
// code point missing from the font, would show an empty box.
class SymbolsTest : public QObject {
    Q_OBJECT
private slots:
    void everyNameInUseIsAGlyphOfTheFont();
};

void SymbolsTest::everyNameInUseIsAGlyphOfTheFont() {
    QVERIFY2(Symbols::loadFont(), "the icon font is not installed");
    const QRawFont font = QRawFont::fromFont(QFont(Symbols().fontFamily(), 16));
    QCOMPARE(font.familyName(), Symbols().fontFamily());
    for (auto it = Symbols::table().cbegin(); it != Symbols::table().cend(); ++it)
        QVERIFY2(font.supportsCharacter(QChar(it.value())), qPrintable(it.key()));

    QStringList used;
    for (TokenType t : TokenTypes::allCases)
        used << TokenTypes::symbol(t);
    for (int m = 0; m <= int(SessionContextEngine::Mode::idle); ++m)
        used << SessionContextEngine::symbol(SessionContextEngine::Mode(m));
    // Symbol names written in the views, as `name: "…"`, `icon: "…"` or string literals
    // passed where a symbol is expected.
    static const QRegularExpression literal(
        QStringLiteral(R"(\b(?:name|icon|symbol)\s*:\s*[^\n]*)"));
    static const QRegularExpression quoted(
        QStringLiteral(R"("([a-z][a-z0-9]*(?:\.[a-z0-9]+)+)\")"));
    int files = 0;
    QDirIterator it(QStringLiteral(":/qt-project.org/imports/Mindmeter"), {QStringLiteral("*.qml")},
                    QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        QFile file(it.next());
        QVERIFY(file.open(QIODevice::ReadOnly));
        ++files;
        const QString source = QString::fromUtf8(file.readAll());
        for (const QRegularExpressionMatch& line : literal.globalMatch(source))
            for (const QRegularExpressionMatch& name : quoted.globalMatch(line.captured(0)))
                used << name.captured(1);
    }
    QVERIFY(files >= 20);
    QVERIFY(used.contains("doc.on.clipboard.fill")); // the scan sees the views' own names
    for (const QString& name : used)
        QVERIFY2(Symbols::table().contains(name), qPrintable("no glyph for " + name));
}

QTEST_MAIN(SymbolsTest)
#include "tst_symbols.moc"
