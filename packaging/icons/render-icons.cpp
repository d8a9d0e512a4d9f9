// Draws the program's icon — the "psychology" glyph (U+EA4A) of the Material Icons font,
// Apache-2.0, from Debian's fonts-material-design-icons-iconfont — as the hicolor PNGs and
// the scalable SVG that the package installs. The output is committed, so the build does
// not depend on the font; run this again only when the icon changes:
//
//     mindmeter-render-icons FONT.ttf packaging/icons/hicolor

#include <QColor>
#include <QDir>
#include <QFile>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QImage>
#include <QPainter>
#include <QPainterPath>
#include <QTransform>

#include <algorithm>
#include <cstdio>

namespace {

const QString iconName = QStringLiteral("com.mindmeter.Mindmeter");
const QColor purple(0xaf, 0x52, 0xde);
const int sizes[] = {16, 22, 24, 32, 48, 64, 128, 256};
constexpr int svgSize = 256;

// The glyph scaled to fill a square of the given size, with a margin of a sixteenth on each
// side so the outline is not cut by the panel's icon box.
QPainterPath fitted(const QPainterPath& glyph, int size) {
    const QRectF box = glyph.boundingRect();
    const double margin = size / 16.0;
    const double scale = (size - 2 * margin) / std::max(box.width(), box.height());
    QTransform t;
    t.translate(size / 2.0, size / 2.0);
    t.scale(scale, scale);
    t.translate(-box.center().x(), -box.center().y());
    return t.map(glyph);
}

QString number(double v) {
    QString s = QString::number(v, 'f', 2);
    while (s.contains(u'.') && (s.endsWith(u'0') || s.endsWith(u'.')))
        s.chop(1);
    return s == QLatin1String("-0") ? QStringLiteral("0") : s;
}

// SVG path data for a path of lines and cubic curves, which is what glyph outlines become.
QString pathData(const QPainterPath& path) {
    QStringList d;
    for (int i = 0; i < path.elementCount(); ++i) {
        const QPainterPath::Element e = path.elementAt(i);
        const QString xy = number(e.x) + u' ' + number(e.y);
        if (e.isMoveTo()) {
            if (i > 0)
                d << QStringLiteral("Z");
            d << u'M' + xy;
        } else if (e.isLineTo()) {
            d << u'L' + xy;
        } else if (e.isCurveTo() && i + 2 < path.elementCount()) {
            const QPainterPath::Element c2 = path.elementAt(i + 1);
            const QPainterPath::Element end = path.elementAt(i + 2);
            d << QStringLiteral("C%1 %2 %3 %4 %5 %6")
                     .arg(number(e.x), number(e.y), number(c2.x), number(c2.y), number(end.x),
                          number(end.y));
            i += 2;
        }
    }
    d << QStringLiteral("Z");
    return d.join(QString());
}

bool writeFile(const QString& path, const QByteArray& bytes) {
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char* argv[]) {
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication app(argc, argv);
    const QStringList args = QGuiApplication::arguments();
    if (args.size() != 3) {
        std::fprintf(stderr, "usage: mindmeter-render-icons FONT.ttf OUTPUT-FOLDER\n");
        return 2;
    }
    const int id = QFontDatabase::addApplicationFont(args[1]);
    if (id < 0 || QFontDatabase::applicationFontFamilies(id).isEmpty()) {
        std::fprintf(stderr, "cannot load the font %s\n", qPrintable(args[1]));
        return 1;
    }
    QFont font(QFontDatabase::applicationFontFamilies(id).first());
    font.setPixelSize(1024); // large, so the outline keeps its detail before it is scaled
    QPainterPath glyph;
    glyph.addText(0, 0, font, QString(QChar(0xea4a)));
    glyph.setFillRule(Qt::WindingFill);
    if (glyph.isEmpty()) {
        std::fprintf(stderr, "the font has no glyph U+EA4A\n");
        return 1;
    }

    const QDir out(args[2]);
    for (int size : sizes) {
        const QString folder = QStringLiteral("%1x%1/apps").arg(size);
        QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.fillPath(fitted(glyph, size), purple);
        painter.end();
        const QString path = out.filePath(folder + u'/' + iconName + QStringLiteral(".png"));
        if (!out.mkpath(folder) || !image.save(path)) {
            std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
            return 1;
        }
    }

    const QByteArray svg =
        QStringLiteral("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%1\" height=\"%1\" "
                       "viewBox=\"0 0 %1 %1\">\n<path fill=\"%2\" d=\"%3\"/>\n</svg>\n")
            .arg(svgSize)
            .arg(purple.name(), pathData(fitted(glyph, svgSize)))
            .toUtf8();
    const QString svgPath =
        out.filePath(QStringLiteral("scalable/apps/") + iconName + QStringLiteral(".svg"));
    if (!out.mkpath(QStringLiteral("scalable/apps")) || !writeFile(svgPath, svg)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(svgPath));
        return 1;
    }
    return 0;
}
