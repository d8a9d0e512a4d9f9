// Runs the QML tests in this folder against the real view module, offscreen.

#include "views/Symbols.h"

#include <QQmlEngine>
#include <QQmlExtensionPlugin>
#include <QQuickWindow>
#include <QtQuickTest>

Q_IMPORT_QML_PLUGIN(MindmeterPlugin)

class Setup : public QObject {
    Q_OBJECT
public slots:
    void applicationAvailable() {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        if (!Symbols::loadFont())
            qFatal("the icon font is not installed");
    }
};

int main(int argc, char** argv) {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    QTEST_SET_MAIN_SOURCE_PATH
    Setup setup;
    return quick_test_main_with_setup(argc, argv, "views", MINDMETER_QML_TESTS, &setup);
}

#include "tst_views.moc"
