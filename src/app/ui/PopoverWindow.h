#pragma once

#include <QObject>
#include <QPoint>
#include <QVariantMap>

#include <memory>

class QQuickWindow;
class ViewHost;

// The dashboard's window: a borderless panel of 380 × 460 placed by the status icon, below
// it when the icon is in the upper half of the screen and above it otherwise, closed only by
// toggling, and not a taskbar or pager entry. Without a panel to anchor to it is an ordinary window
// instead.
class PopoverWindow : public QObject {
    Q_OBJECT
public:
    enum class Style { popover, ordinaryWindow };

    PopoverWindow(ViewHost& host, QVariantMap models, Style style, QObject* parent = nullptr);
    ~PopoverWindow() override;

    bool isVisible() const;
    // Shows the dashboard by this point (null: the top right of the main screen), or hides it.
    void toggle(QPoint anchor = {});
    void show(QPoint anchor = {});
    void hide();

    // Where the panel goes for an icon at `anchor` within `screen` (available area).
    static QPoint placement(QPoint anchor, const QRect& screen, QSize size);

    QQuickWindow* window() const { return m_window.get(); }

private:
    bool ensureWindow();

    ViewHost& m_host;
    QVariantMap m_models;
    Style m_style;
    std::unique_ptr<QQuickWindow> m_window;
};
