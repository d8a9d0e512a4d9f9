#pragma once

#include <QList>
#include <QObject>
#include <QPoint>
#include <QString>

#include <functional>

// One entry of the status item's menu: an action, a disabled caption, or a separator.
struct StatusMenuItem {
    QString title;
    QString shortcut; // a single key shown as a hint, e.g. "," or "q"; empty for none
    bool enabled = true;
    bool separator = false;
    std::function<void()> action;

    static StatusMenuItem separatorItem() {
        StatusMenuItem s;
        s.separator = true;
        return s;
    }
};

// The program's presence in the panel: an icon, a short title next to it (the day's count
// and a symbol of the kind of work), a left click that toggles the dashboard, and a menu.
class StatusItem : public QObject {
    Q_OBJECT
public:
    enum class Icon { normal, orange, red, none };
    Q_ENUM(Icon)
    // Where the count shows: automatic (as the panel is known to draw it), beside the icon as
    // text the panel draws, or drawn into the icon image.
    enum class CountPlacement { automatic, beside, inIcon };
    Q_ENUM(CountPlacement)

    using QObject::QObject;

    // text: e.g. " 12.3k " (empty to show no title); symbol: the name of the symbol that
    // follows it ("bolt.fill", "keyboard", "book", "sparkles", "circle.dotted"), empty for none.
    virtual void setTitle(const QString& text, const QString& symbol) = 0;
    virtual void setIcon(Icon icon) = 0;
    // The menu shown on a right click; replaced whole.
    virtual void setMenu(const QList<StatusMenuItem>& items) = 0;
    // Panels that show no text beside an icon ignore this: their count is always in the icon.
    virtual void setCountPlacement(CountPlacement) {}
    // Whether the panel shows this item at all.
    virtual bool isVisible() const = 0;

signals:
    // A left click, at this screen position (null when the panel does not say).
    void activated(QPoint position);
    // The menu is about to be shown.
    void menuAboutToShow();
};
