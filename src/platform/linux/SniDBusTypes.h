#pragma once

#include <QByteArray>
#include <QDBusArgument>
#include <QImage>
#include <QList>
#include <QMetaType>
#include <QString>

// The values of the StatusNotifierItem protocol that are not plain D-Bus types.

// One icon bitmap, D-Bus "(iiay)": width, height and the pixels as ARGB32 in network byte
// order (big-endian), row by row, not premultiplied.
struct SniPixmap {
    int width = 0;
    int height = 0;
    QByteArray argb;

    static SniPixmap fromImage(const QImage& image);
};
using SniPixmapList = QList<SniPixmap>;

// The tooltip, D-Bus "(sa(iiay)ss)": icon name, icon bitmaps, title and body text.
struct SniToolTip {
    QString iconName;
    SniPixmapList pixmaps;
    QString title;
    QString description;
};

Q_DECLARE_METATYPE(SniPixmap)
Q_DECLARE_METATYPE(SniToolTip)

QDBusArgument& operator<<(QDBusArgument& argument, const SniPixmap& pixmap);
const QDBusArgument& operator>>(const QDBusArgument& argument, SniPixmap& pixmap);
QDBusArgument& operator<<(QDBusArgument& argument, const SniToolTip& toolTip);
const QDBusArgument& operator>>(const QDBusArgument& argument, SniToolTip& toolTip);

// Makes the types above known to QtDBus; needed once before an item is exported.
void registerSniDBusTypes();
