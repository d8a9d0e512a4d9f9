// Runs the QML tests in this folder against the real view module, offscreen. Every warning
// fails the test that caused it (ViewTestCase.qml asks for that), and the tests' fakes
// are checked against the members of the real objects they stand in for.

#include "app/PreferencesActions.h"
#include "model/AppEvents.h"
#include "model/OnboardingNote.h"
#include "model/PreferencesModel.h"
#include "sensing/ActivityMonitor.h"
#include "sensing/SessionContextEngine.h"
#include "sensing/SpotlightMonitor.h"
#include "services/CategoriesModel.h"
#include "services/ExportManager.h"
#include "services/UpdateChecker.h"
#include "store/DaySummary.h"
#include "views/Symbols.h"

#include <QMetaProperty>
#include <QQmlContext>
#include <QQmlEngine>
#include <QQmlExtensionPlugin>
#include <QQuickWindow>
#include <QtQuickTest>

Q_IMPORT_QML_PLUGIN(MindmeterPlugin)

namespace {

// The names QML can reach on objects of this class: properties, methods and signals.
QStringList members(const QMetaObject& meta) {
    QStringList names;
    for (int i = 0; i < meta.propertyCount(); ++i)
        names << QString::fromLatin1(meta.property(i).name());
    for (int i = 0; i < meta.methodCount(); ++i)
        names << QString::fromLatin1(meta.method(i).name());
    return names;
}

} // namespace

class Setup : public QObject {
    Q_OBJECT
public slots:
    void applicationAvailable() {
        QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));
        if (!Symbols::loadFont())
            qFatal("the icon font is not installed");
    }
    // The roles are the names the application hands the views its objects under.
    void qmlEngineAvailable(QQmlEngine* engine) {
        engine->rootContext()->setContextProperty(
            QStringLiteral("realMembers"),
            QVariantMap{{"store", members(DaySummary::staticMetaObject)},
                        {"monitor", members(ActivityMonitor::staticMetaObject)},
                        {"context", members(SessionContextEngine::staticMetaObject)},
                        {"spotlight", members(SpotlightMonitor::staticMetaObject)},
                        {"checker", members(UpdateChecker::staticMetaObject)},
                        {"exporter", members(ExportManager::staticMetaObject)},
                        {"preferences", members(PreferencesModel::staticMetaObject)},
                        {"events", members(AppEvents::staticMetaObject)},
                        {"onboardingNote", members(OnboardingNote::staticMetaObject)},
                        {"actions", members(PreferencesActions::staticMetaObject)},
                        {"categories", members(CategoriesModel::staticMetaObject)}});
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
