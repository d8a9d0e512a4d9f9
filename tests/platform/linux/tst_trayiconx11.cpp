#include "platform/linux/StatusItemFactory.h"
#include "platform/linux/TrayIconStatusItem.h"
#include "views/Symbols.h"

#include <QProcess>
#include <QScreen>
#include <QTest>

// The tray-icon fallback in a real XEmbed system tray (trayer) on the test's own X server.
class TrayIconX11Test : public QObject {
    Q_OBJECT
private slots:
    void factoryFallsBackToTheTrayWhichShowsTheIcon();
};

namespace {

// Where trayer's panel window is on screen; empty until it is mapped.
QRect trayPanel() {
    QProcess xdotool;
    xdotool.start("xdotool", {"search", "--name", "^panel$", "getwindowgeometry", "--shell", "%1"});
    QHash<QByteArray, int> values;
    for (const QByteArray& line : xdotool.waitForFinished(5000)
                                      ? xdotool.readAllStandardOutput().split('\n')
                                      : QList<QByteArray>{})
        values.insert(line.split('=').value(0), line.split('=').value(1).toInt());
    return QRect(values.value("X"), values.value("Y"), values.value("WIDTH"),
                 values.value("HEIGHT"));
}

// How many pixels of the panel on screen pass the test.
int onScreen(const QRect& panel, const std::function<bool(QRgb)>& test) {
    const QImage shot = QGuiApplication::primaryScreen()
                            ->grabWindow(0, panel.x(), panel.y(), panel.width(), panel.height())
                            .toImage()
                            .convertToFormat(QImage::Format_RGB32);
    int count = 0;
    for (int i = 0; i < shot.width() * shot.height(); ++i)
        count += test(shot.pixel(i % shot.width(), i / shot.width()));
    return count;
}

} // namespace

void TrayIconX11Test::factoryFallsBackToTheTrayWhichShowsTheIcon() {
    QProcess tray;
    tray.start("trayer", {"--edge", "top", "--align", "right", "--widthtype", "request"});
    QVERIFY2(tray.waitForStarted(), "trayer is needed (Debian package trayer)");
    QTRY_VERIFY_WITH_TIMEOUT(QSystemTrayIcon::isSystemTrayAvailable(), 10000);
    QVERIFY(Symbols::loadFont());

    // No session bus here, so no StatusNotifierWatcher: the tray it is.
    QString why;
    std::unique_ptr<StatusItem> item = createStatusItem(
        QDBusConnection::connectToBus(QStringLiteral("unix:path=/nonexistent"), "no-bus"),
        {Symbols().fontFamily(), Symbols::table().value(QStringLiteral("brain.head.profile"))},
        &why);
    QVERIFY2(dynamic_cast<TrayIconStatusItem*>(item.get()), qPrintable(why));
    QVERIFY2(why.contains(QStringLiteral("system tray icon")), qPrintable(why));
    QVERIFY(item->isVisible());
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill"));
    item->setIcon(StatusItem::Icon::orange);

    // The icon is in once the panel has grown around it (Qt cannot tell where an embedded icon
    // is), and what the panel shows is the orange glyph with the count's white text.
    QRect panel;
    QTRY_VERIFY_WITH_TIMEOUT((panel = trayPanel()).width() >= 20, 10000);
    const auto orange = [](QRgb p) {
        return qRed(p) > 240 && std::abs(qGreen(p) - 0x95) < 12 && qBlue(p) < 16;
    };
    const auto red = [](QRgb p) {
        return qRed(p) > 240 && std::abs(qGreen(p) - 0x3B) < 12 && std::abs(qBlue(p) - 0x30) < 12;
    };
    QTRY_VERIFY_WITH_TIMEOUT(onScreen(panel, orange) > 20, 10000);
    QVERIFY(onScreen(panel, [](QRgb p) { return qGray(p) > 240; }) > 5);
    QCOMPARE(onScreen(panel, red), 0);
    item->setIcon(StatusItem::Icon::red);
    QTRY_VERIFY_WITH_TIMEOUT(onScreen(panel, red) > 20, 10000);
    QCOMPARE(onScreen(panel, orange), 0);
    item.reset();
    tray.terminate();
    tray.waitForFinished(5000);
}

QTEST_MAIN(TrayIconX11Test)
#include "tst_trayiconx11.moc"
