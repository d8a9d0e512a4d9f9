#include "SniItemAdaptor.h"

#include "platform/StatusItem.h"

SniItemAdaptor::SniItemAdaptor(StatusItem* item, const QDBusObjectPath& menu)
    : QDBusAbstractAdaptor(item)
    , m_item(item)
    , m_menu(menu) {}

SniToolTip SniItemAdaptor::toolTip() const {
    // The tooltip's own icon stays empty: hosts show the item's icon beside it.
    return {QString(), {}, title(), m_toolTipText.trimmed()};
}

void SniItemAdaptor::setIcon(const QString& name, const SniPixmapList& pixmaps) {
    if (name == m_iconName && pixmaps.size() == m_iconPixmap.size() &&
        std::equal(pixmaps.begin(), pixmaps.end(), m_iconPixmap.begin(),
                   [](const SniPixmap& a, const SniPixmap& b) {
                       return a.width == b.width && a.height == b.height && a.argb == b.argb;
                   }))
        return;
    m_iconName = name;
    m_iconPixmap = pixmaps;
    emit NewIcon();
}

void SniItemAdaptor::setLabel(const QString& label, const QString& guide,
                              const QString& toolTipText) {
    if (label != m_label || guide != m_labelGuide) {
        m_label = label;
        m_labelGuide = guide;
        emit XAyatanaNewLabel(m_label, m_labelGuide);
    }
    if (toolTipText != m_toolTipText) {
        m_toolTipText = toolTipText;
        emit NewToolTip();
    }
}

void SniItemAdaptor::Activate(int x, int y) {
    emit m_item->activated(QPoint(x, y));
}

// A middle click does what a left click does: it shows the dashboard.
void SniItemAdaptor::SecondaryActivate(int x, int y) {
    emit m_item->activated(QPoint(x, y));
}

// Hosts open the exported menu themselves; this is only called by hosts that cannot.
void SniItemAdaptor::ContextMenu(int, int) {
    emit m_item->menuAboutToShow();
}

void SniItemAdaptor::Scroll(int, const QString&) {}
