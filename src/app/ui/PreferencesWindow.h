#pragma once

#include <QObject>
#include <QVariantMap>

#include <memory>

class QQuickWindow;
class ViewHost;

// The preferences: a fixed 420 × 480 window titled "Mindmeter", made on first use and kept,
// so closing only hides it and it opens again on the tab last shown.
class PreferencesWindow : public QObject {
    Q_OBJECT
public:
    PreferencesWindow(ViewHost& host, QVariantMap models, QObject* parent = nullptr);
    ~PreferencesWindow() override;

    void show();
    QQuickWindow* window() const { return m_window.get(); }

signals:
    void shown();

private:
    ViewHost& m_host;
    QVariantMap m_models;
    std::unique_ptr<QQuickWindow> m_window;
};
