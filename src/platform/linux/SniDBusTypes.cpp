#include "SniDBusTypes.h"

#include <QDBusMetaType>
#include <QtEndian>

SniPixmap SniPixmap::fromImage(const QImage& image) {
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    SniPixmap pixmap;
    pixmap.width = argb.width();
    pixmap.height = argb.height();
    pixmap.argb.resize(qsizetype(argb.width()) * argb.height() * 4);
    auto* out = reinterpret_cast<uchar*>(pixmap.argb.data());
    for (int y = 0; y < argb.height(); ++y) {
        const auto* row = reinterpret_cast<const QRgb*>(argb.constScanLine(y));
        for (int x = 0; x < argb.width(); ++x, out += 4)
            qToBigEndian<quint32>(row[x], out);
    }
    return pixmap;
}

QDBusArgument& operator<<(QDBusArgument& argument, const SniPixmap& pixmap) {
    argument.beginStructure();
    argument << pixmap.width << pixmap.height << pixmap.argb;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, SniPixmap& pixmap) {
    argument.beginStructure();
    argument >> pixmap.width >> pixmap.height >> pixmap.argb;
    argument.endStructure();
    return argument;
}

QDBusArgument& operator<<(QDBusArgument& argument, const SniToolTip& toolTip) {
    argument.beginStructure();
    argument << toolTip.iconName << toolTip.pixmaps << toolTip.title << toolTip.description;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, SniToolTip& toolTip) {
    argument.beginStructure();
    argument >> toolTip.iconName >> toolTip.pixmaps >> toolTip.title >> toolTip.description;
    argument.endStructure();
    return argument;
}

void registerSniDBusTypes() {
    qDBusRegisterMetaType<SniPixmap>();
    qDBusRegisterMetaType<SniPixmapList>();
    qDBusRegisterMetaType<SniToolTip>();
}
