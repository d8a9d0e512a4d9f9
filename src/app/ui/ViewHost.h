#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

class QQmlEngine;
class QQuickItem;
class QQuickWindow;

// Makes windows from the views' QML. The QML engine is created the first time a window is
// needed, not at start-up, so a tray app whose dashboard is never opened never pays for it.
class ViewHost : public QObject {
    Q_OBJECT
public:
    // Every window made gets the menu's keyboard equivalents, Ctrl+, (Preferences) and
    // Ctrl+Q (Quit), posted to `events` (an AppEvents) while the window has focus.
    explicit ViewHost(QObject* events = nullptr, QObject* parent = nullptr);
    ~ViewHost() override;

    // A window holding a new `type` (a component of the views) built with these properties;
    // null, with the reason in *error, when the component does not load.
    std::unique_ptr<QQuickWindow> createWindow(const QString& type, const QVariantMap& properties,
                                               QString* error);

    bool engineCreated() const { return m_engine != nullptr; }

private:
    QQmlEngine& engine();
    std::unique_ptr<QQmlEngine> m_engine;
    QObject* m_events;
};
