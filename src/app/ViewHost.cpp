#include "ViewHost.h"

#include <QQmlComponent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>

ViewHost::ViewHost(QObject* parent)
    : QObject(parent) {}

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
    return window;
}
