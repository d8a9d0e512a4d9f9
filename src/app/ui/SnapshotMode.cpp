#include "SnapshotMode.h"

#include "model/PreferencesModel.h"
#include "views/Symbols.h"

#include <QDir>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QPalette>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

#include <cstdio>
#include <memory>

namespace {

QPalette themePalette(bool dark) {
    QPalette p;
    const QColor window = dark ? QColor(0x1e, 0x1e, 0x20) : QColor(0xec, 0xec, 0xee);
    const QColor base = dark ? QColor(0x2c, 0x2c, 0x2e) : QColor(0xff, 0xff, 0xff);
    const QColor text = dark ? QColor(0xf2, 0xf2, 0xf7) : QColor(0x1d, 0x1d, 0x1f);
    p.setColor(QPalette::Window, window);
    p.setColor(QPalette::Base, base);
    p.setColor(QPalette::AlternateBase, window);
    p.setColor(QPalette::Button, base);
    p.setColor(QPalette::WindowText, text);
    p.setColor(QPalette::Text, text);
    p.setColor(QPalette::ButtonText, text);
    p.setColor(QPalette::Highlight, QColor(0x00, 0x7a, 0xff));
    p.setColor(QPalette::HighlightedText, Qt::white);
    return p;
}

const char* const cardNames[] = {
    "CurrentActivityCard", "TotalTokensCard", "TokenBreakdownCard", "TemperatureCard",
    "SaturationCard",      "SessionModeCard", "VelocityChartCard",  "WeeklyChartCard",
    "DailyHistoryCard",    "TrendsCard",      "DailyGoalCard",      "ExportCard",
    "AppVersionRow",
};

class Renderer {
public:
    Renderer(QString directory, QVariantMap models, QObject* categories)
        : m_directory(std::move(directory))
        , m_models(std::move(models))
        , m_categories(categories) {}

    bool renderAll() {
        for (bool dark : {false, true}) {
            QGuiApplication::setPalette(themePalette(dark));
            const QString theme = dark ? QStringLiteral("dark") : QStringLiteral("light");
            if (!renderPopover(theme) || !renderFullDashboard(theme) || !renderOnboarding(theme) ||
                !renderPreferences(theme))
                return false;
        }
        return true;
    }

    QStringList written() const { return m_written; }
    QString error() const { return m_error; }

private:
    QQuickItem* create(const QString& type, QQuickWindow& window, QVariantMap properties) {
        QQmlComponent component(
            &m_engine,
            QUrl(QStringLiteral("qrc:/qt-project.org/imports/Mindmeter/%1.qml").arg(type)));
        if (!component.isReady()) {
            m_error = component.errorString();
            return nullptr;
        }
        QObject* object = component.createWithInitialProperties(properties);
        auto* item = qobject_cast<QQuickItem*>(object);
        if (!item) {
            m_error = component.errorString();
            delete object;
            return nullptr;
        }
        item->setParent(&window);
        item->setParentItem(window.contentItem());
        return item;
    }

    QImage grab(QQuickWindow& window) {
        window.show();
        // Let layouts settle and any transition finish before the picture is taken.
        QElapsedTimer settle;
        settle.start();
        while (settle.elapsed() < 300)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        return window.grabWindow();
    }

    bool save(const QImage& image, const QString& name) {
        const QString path = QDir(m_directory).filePath(name + QStringLiteral(".png"));
        if (image.isNull() || !image.save(path)) {
            m_error = QStringLiteral("cannot write %1").arg(path);
            return false;
        }
        m_written << path;
        return true;
    }

    bool renderPopover(const QString& theme) {
        QQuickWindow window;
        window.resize(380, 460);
        if (!create(QStringLiteral("RootPopoverView"), window, m_models))
            return false;
        return save(grab(window), QStringLiteral("popover-") + theme);
    }

    bool renderOnboarding(const QString& theme) {
        auto* preferences = qobject_cast<PreferencesModel*>(
            m_models.value(QStringLiteral("preferences")).value<QObject*>());
        preferences->setHasLaunchedBefore(false);
        QQuickWindow window;
        window.resize(380, 460);
        const bool ok = create(QStringLiteral("RootPopoverView"), window, m_models) &&
                        save(grab(window), QStringLiteral("onboarding-") + theme);
        preferences->setHasLaunchedBefore(true);
        return ok;
    }

    bool renderPreferences(const QString& theme) {
        const QVariantMap properties{
            {QStringLiteral("preferences"), m_models.value(QStringLiteral("preferences"))},
            {QStringLiteral("actions"), m_models.value(QStringLiteral("checker"))},
            {QStringLiteral("categories"), QVariant::fromValue(m_categories)}};
        auto* preferences = qobject_cast<PreferencesModel*>(
            m_models.value(QStringLiteral("preferences")).value<QObject*>());
        preferences->setAlertEnabled(true);
        preferences->setEndOfDayEnabled(true);
        for (int tab = 0; tab < 4; ++tab) {
            QQuickWindow window;
            window.resize(420, 480);
            QQuickItem* view = create(QStringLiteral("PreferencesView"), window, properties);
            if (!view)
                return false;
            view->setProperty("selectedTab", tab);
            if (!save(grab(window), QStringLiteral("preferences-%1-%2").arg(tab + 1).arg(theme)))
                return false;
        }
        return true;
    }

    // The popover grown to its full height, so every card shows in one picture; each card
    // is also cut out on its own.
    bool renderFullDashboard(const QString& theme) {
        QVariantMap properties = m_models;
        properties.remove(QStringLiteral("events"));
        QQuickWindow window;
        window.resize(380, 460);
        QQuickItem* view = create(QStringLiteral("PopoverView"), window, properties);
        if (!view)
            return false;
        view->setSize(QSizeF(380, 460));
        grab(window); // lay out once to learn the column's height
        auto* dashboard = view->findChild<QQuickItem*>(QStringLiteral("dashboard"));
        auto* header = view->findChild<QQuickItem*>(QStringLiteral("header"));
        const int height = int(std::ceil(header->height() + 1 + dashboard->implicitHeight() + 20));
        window.resize(380, height);
        view->setSize(QSizeF(380, height));
        const QImage image = grab(window);
        if (!save(image, QStringLiteral("dashboard-") + theme))
            return false;
        for (const char* name : cardNames) {
            auto* card = view->findChild<QQuickItem*>(QString::fromLatin1(name));
            if (!card || !card->isVisible()) {
                m_error = QStringLiteral("no %1 on the dashboard").arg(QString::fromLatin1(name));
                return false;
            }
            const QRect rect =
                card->mapRectToScene(QRectF(0, 0, card->width(), card->height())).toAlignedRect();
            if (!save(image.copy(rect.adjusted(-4, -4, 4, 5)),
                      QStringLiteral("card-%1-%2").arg(QString::fromLatin1(name), theme)))
                return false;
        }
        return true;
    }

    QString m_directory;
    QVariantMap m_models;
    QObject* m_categories;
    QQmlEngine m_engine;
    QStringList m_written;
    QString m_error;
};

} // namespace

int SnapshotMode::run(int argc, char* argv[], const QString& directory,
                      MakeSnapshotModels makeModels) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
    qputenv("QT_QUICK_CONTROLS_STYLE", "Fusion");
    QGuiApplication app(argc, argv);
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));

    if (!Symbols::loadFont()) {
        std::fprintf(stderr, "mindmeter: the icon font (Material Icons) is not installed\n");
        return 1;
    }
    if (!QDir().mkpath(directory)) {
        std::fprintf(stderr, "mindmeter: cannot create %s\n", qPrintable(directory));
        return 1;
    }

    const std::unique_ptr<SnapshotModels> world(makeModels());
    Renderer renderer(directory, world->popoverModels(), world->categories());
    const bool ok = renderer.renderAll();
    for (const QString& path : renderer.written())
        std::printf("%s\n", qPrintable(path));
    if (!ok) {
        std::fprintf(stderr, "mindmeter: %s\n", qPrintable(renderer.error()));
        return 1;
    }
    return 0;
}
