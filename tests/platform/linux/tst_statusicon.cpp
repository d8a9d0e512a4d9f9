#include "platform/linux/StatusIconPainter.h"
#include "platform/linux/StatusLabel.h"
#include "platform/linux/TrayIconStatusItem.h"
#include "views/Symbols.h"

#include <QFontDatabase>
#include <QMenu>
#include <QRawFont>
#include <QSignalSpy>
#include <QTest>

namespace {

// How many pixels are (nearly) this opaque colour.
int pixelsOf(const QImage& picture, const QColor& colour) {
    const QImage image = picture.convertToFormat(QImage::Format_ARGB32);
    int count = 0;
    for (int i = 0; i < image.width() * image.height(); ++i) {
        const QRgb p = image.pixel(i % image.width(), i / image.width());
        count += qAlpha(p) == 255 && std::abs(qRed(p) - colour.red()) < 8 &&
                 std::abs(qGreen(p) - colour.green()) < 8 && std::abs(qBlue(p) - colour.blue()) < 8;
    }
    return count;
}

} // namespace

// The label characters, the icon drawing and the tray-icon fallback under the offscreen
// platform (which has no system tray).
class StatusIconTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void labelCharactersAreInThePanelFonts();
    void trayIconShowsTheCountInTheStateColour();
    void trayMenuFollowsTheItems();

private:
    StatusIconGlyph m_glyph;
};

void StatusIconTest::initTestCase() {
    QVERIFY2(Symbols::loadFont(), "the icon font is needed (fonts-material-design-icons-iconfont)");
    m_glyph = {Symbols().fontFamily(),
               Symbols::table().value(QStringLiteral("brain.head.profile"))};
}

void StatusIconTest::labelCharactersAreInThePanelFonts() {
    QVERIFY2(QFontDatabase::hasFamily("DejaVu Sans"), "DejaVu Sans is needed (fonts-dejavu-core)");
    const QList<QRawFont> fonts = {QRawFont::fromFont(QFont(QStringLiteral("DejaVu Sans"))),
                                   QRawFont::fromFont(QGuiApplication::font())};
    QCOMPARE(fonts[0].familyName(), QStringLiteral("DejaVu Sans"));
    QSet<QString> characters;
    for (const QString symbol : {"bolt.fill", "keyboard", "book", "sparkles", "circle.dotted"}) {
        const QList<uint> codePoints = StatusLabel::character(symbol).toUcs4();
        QVERIFY2(!codePoints.isEmpty(), qPrintable(symbol));
        for (const QRawFont& font : fonts)
            QVERIFY2(font.supportsCharacter(codePoints[0]),
                     qPrintable(symbol + " in " + font.familyName()));
        // Anything after it only asks for the plain text form.
        QVERIFY(codePoints.size() == 1 || codePoints.mid(1) == QList<uint>{0xFE0E});
        characters.insert(StatusLabel::character(symbol));
    }
    QCOMPARE(characters.size(), 5); // each kind of work is told apart
}

void StatusIconTest::trayIconShowsTheCountInTheStateColour() {
    TrayIconStatusItem item(m_glyph);
    QVERIFY(!item.isVisible()); // no system tray offscreen
    item.setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill"));
    QList<QImage> seen;
    for (StatusItem::Icon icon :
         {StatusItem::Icon::normal, StatusItem::Icon::orange, StatusItem::Icon::red}) {
        item.setIcon(icon);
        for (int size : TrayIconStatusItem::iconSizes) {
            const QImage image = item.iconImage(size);
            QCOMPARE(image.size(), QSize(size, size));
            QVERIFY(pixelsOf(image, StatusIconPainter::colour(icon)) > size); // the glyph
            QVERIFY(pixelsOf(image, Qt::white) > size / 2);                   // the count
        }
        QVERIFY(!seen.contains(item.iconImage(22)));
        seen << item.iconImage(22);
    }
    item.setTitle(QStringLiteral(" 950 "), QStringLiteral("bolt.fill"));
    QVERIFY(!seen.contains(item.iconImage(22)));
    // Count only: the count without the glyph; no count either: nothing.
    item.setIcon(StatusItem::Icon::none);
    QVERIFY(pixelsOf(item.iconImage(22), Qt::white) > 11);
    QCOMPARE(pixelsOf(item.iconImage(22), StatusIconPainter::colour(StatusItem::Icon::normal)), 0);
    item.setTitle(QString(), QString());
    QCOMPARE(item.iconImage(22), StatusIconPainter(m_glyph).image(22, StatusItem::Icon::none));

    // A font without the glyph still gives something to see and click.
    const StatusIconPainter fallback({QStringLiteral("DejaVu Sans"), 0xEA4A});
    QVERIFY(!fallback.hasGlyph());
    QVERIFY(pixelsOf(fallback.image(22, StatusItem::Icon::red), QColor(0xFF, 0x3B, 0x30)) > 50);
}

void StatusIconTest::trayMenuFollowsTheItems() {
    TrayIconStatusItem item(m_glyph);
    int runs = 0;
    StatusMenuItem header{QStringLiteral("Mindmeter 1.4.5"), {}, false, false, {}};
    StatusMenuItem dashboard{QStringLiteral("Dashboard"), {}, true, false, [&runs] { ++runs; }};
    StatusMenuItem quit{QStringLiteral("Copy & Quit"), QStringLiteral("q"), true, false, {}};
    item.setMenu({header, StatusMenuItem::separatorItem(), dashboard, quit});

    const QList<QAction*> actions = item.menu()->actions();
    QCOMPARE(actions.size(), 4);
    QVERIFY(!actions[0]->isEnabled() && actions[1]->isSeparator() && actions[2]->isEnabled());
    QCOMPARE(actions[3]->text(), QStringLiteral("Copy && Quit")); // a literal ampersand
    QCOMPARE(actions[3]->shortcut(), QKeySequence(QStringLiteral("q")));
    actions[2]->trigger();
    actions[3]->trigger(); // no action: nothing happens
    QCOMPARE(runs, 1);

    // Opening the menu tells the owner, which may rebuild it there and then.
    QSignalSpy aboutToShow(&item, &StatusItem::menuAboutToShow);
    connect(&item, &StatusItem::menuAboutToShow, &item, [&] { item.setMenu({dashboard}); });
    item.menu()->popup(QPoint(0, 0));
    QCOMPARE(aboutToShow.size(), 1);
    QCOMPARE(item.menu()->actions().size(), 1);
    item.menu()->hide();
}

QTEST_MAIN(StatusIconTest)
#include "tst_statusicon.moc"
