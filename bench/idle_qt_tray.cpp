// The least a Qt tray icon costs at rest: an application with a system-tray icon (a circle
// and a count drawn into it once), a one-item menu, and a timer that fires every ten seconds
// and does nothing. The idle benchmark (bench/idle_footprint.sh) counts it beside the floor
// program and the tray app, which shows the toolkit's share of the tray app's figure: an
// icon on an XEmbed tray needs QApplication and QSystemTrayIcon, whatever the program does.
//
//   idle_qt_tray        (prints nothing, runs until killed)

#include <QApplication>
#include <QIcon>
#include <QMenu>
#include <QPainter>
#include <QPixmap>
#include <QSystemTrayIcon>

namespace {

class IdleTicker : public QObject {
protected:
    void timerEvent(QTimerEvent*) override { ++m_ticks; }

private:
    long m_ticks = 0;
};

} // namespace

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("idle_qt_tray"));
    QApplication::setQuitOnLastWindowClosed(false);

    QPixmap image(22, 22);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(QColor(0x8E, 0x8E, 0x93));
        painter.setPen(Qt::NoPen);
        painter.drawEllipse(2, 2, 18, 18);
        painter.setPen(Qt::white);
        painter.drawText(image.rect(), Qt::AlignCenter, QStringLiteral("12k"));
    }
    QSystemTrayIcon icon{QIcon(image)};
    QMenu menu;
    menu.addAction(QStringLiteral("Quit"), &app, &QCoreApplication::quit);
    icon.setContextMenu(&menu);
    icon.show();

    IdleTicker ticker;
    ticker.startTimer(10000);
    return QApplication::exec();
}
