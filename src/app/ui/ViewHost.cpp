#include "ViewHost.h"

#include <QKeyEvent>
#include <QPointer>
#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

namespace {

// The menu's keyboard equivalents on a window. A key filter rather than QShortcut: in a
// QApplication, shortcuts only fire while a widget window is active, never a Qt Quick one.
class MenuKeys : public QObject {
public:
    MenuKeys(QObject* events, QObject* parent)
        : QObject(parent)
        , m_events(events) {}

    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() != QEvent::KeyPress || !m_events)
            return QObject::eventFilter(watched, event);
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->modifiers() != Qt::ControlModifier)
            return false;
        if (key->key() == Qt::Key_Comma)
            QMetaObject::invokeMethod(m_events, "postOpenPreferences", Qt::QueuedConnection);
        else if (key->key() == Qt::Key_Q)
            QMetaObject::invokeMethod(m_events, "postQuit", Qt::QueuedConnection);
        else
            return false;
        return true;
    }

private:
    QPointer<QObject> m_events;
};

} // namespace

ViewHost::ViewHost(QObject* events, QObject* parent)
    : QObject(parent)
    , m_events(events) {}

ViewHost::~ViewHost() = default;

QQmlEngine& ViewHost::engine() {
    if (!m_engine)
        m_engine = std::make_unique<QQmlEngine>();
    return *m_engine;
}

std::unique_ptr<QQuickWindow>
ViewHost::createWindow(const QString& type, const QVariantMap& properties, QString* error) {
    QQmlComponent component(
        &engine(), QUrl(QStringLiteral("qrc:/qt-project.org/imports/Mindmeter/%1.qml").arg(type)));
    if (!component.isReady()) {
        if (error)
            *error = component.errorString();
        return nullptr;
    }
    auto window = std::make_unique<QQuickWindow>();
    QObject* object = component.createWithInitialProperties(properties);
    auto* item = qobject_cast<QQuickItem*>(object);
    if (!item) {
        delete object;
        if (error)
            *error = component.errorString();
        return nullptr;
    }
    item->setParent(window.get());
    item->setParentItem(window->contentItem());
    window->resize(int(item->width()), int(item->height()));
    QObject::connect(window.get(), &QQuickWindow::widthChanged, item,
                     [item](int w) { item->setWidth(w); });
    QObject::connect(window.get(), &QQuickWindow::heightChanged, item,
                     [item](int h) { item->setHeight(h); });
    if (m_events)
        window->installEventFilter(new MenuKeys(m_events, window.get()));
    return window;
}
