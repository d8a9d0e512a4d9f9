#include "PreferencesWindow.h"

#include "ViewHost.h"

#include <QGuiApplication>
#include <QLoggingCategory>
#include <QQuickWindow>
#include <QScreen>

Q_LOGGING_CATEGORY(lcPreferences, "mindmeter.preferences")

PreferencesWindow::PreferencesWindow(ViewHost& host, QVariantMap models, QObject* parent)
    : QObject(parent)
    , m_host(host)
    , m_models(std::move(models)) {}

PreferencesWindow::~PreferencesWindow() = default;

void PreferencesWindow::show() {
    if (!m_window) {
        QString error;
        m_window = m_host.createWindow(QStringLiteral("PreferencesView"), m_models, &error);
        if (!m_window) {
            qCWarning(lcPreferences) << "cannot build the preferences:" << error;
            return;
        }
        const QSize size(420, 480);
        m_window->setTitle(QStringLiteral("Mindmeter"));
        m_window->setMinimumSize(size);
        m_window->setMaximumSize(size);
        // Closable only: no minimise or maximise button, and a fixed size.
        m_window->setFlags(Qt::Window | Qt::CustomizeWindowHint | Qt::WindowTitleHint |
                           Qt::WindowCloseButtonHint);
        if (QScreen* screen = QGuiApplication::primaryScreen())
            m_window->setPosition(screen->availableGeometry().center() - QPoint(210, 240));
    }
    emit shown();
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}
