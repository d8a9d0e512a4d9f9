#include "PrivateSessionBus.h"
#include "StatusNotifierHost.h"

#include "platform/linux/DBusMenuTypes.h"
#include "platform/linux/PanelHost.h"
#include "platform/linux/SniStatusItem.h"
#include "views/Symbols.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QPainter>
#include <QSignalSpy>
#include <QSvgRenderer>
#include <QTest>

namespace {

const QString itemInterface = QStringLiteral("org.kde.StatusNotifierItem");
const QString menuInterface = QStringLiteral("com.canonical.dbusmenu");

// What a host hears from an item.
class SignalRecorder : public QObject {
    Q_OBJECT
public:
    QList<QStringList> labels;
    int newIcons = 0;
    QList<uint> layoutRevisions;
public slots:
    void newLabel(const QString& label, const QString& guide) { labels.append({label, guide}); }
    void newIcon() { ++newIcons; }
    void layoutUpdated(uint revision, int parent) { layoutRevisions << revision + 1000 * parent; }
};

// The bitmaps of an a(iiay) value, their ARGB32 bytes read as big-endian.
QList<QImage> readPixmaps(const QVariant& value) {
    QList<QImage> images;
    const QDBusArgument argument = value.value<QDBusArgument>();
    argument.beginArray();
    while (!argument.atEnd()) {
        int width = 0, height = 0;
        QByteArray bytes;
        argument.beginStructure();
        argument >> width >> height >> bytes;
        argument.endStructure();
        QImage image(width, height, QImage::Format_ARGB32);
        const auto* p = reinterpret_cast<const uchar*>(bytes.constData());
        for (int i = 0; bytes.size() == width * height * 4 && i < width * height; ++i, p += 4)
            image.setPixel(i % width, i / width, qRgba(p[1], p[2], p[3], p[0]));
        images.append(image);
    }
    argument.endArray();
    return images;
}

// The colours of the fully opaque pixels, and how many pixels show at all.
QSet<QRgb> opaqueColours(const QImage& image, int* visible = nullptr) {
    QSet<QRgb> colours;
    for (int i = 0; i < image.width() * image.height(); ++i) {
        const QRgb p = image.pixel(i % image.width(), i / image.width());
        if (qAlpha(p) == 255)
            colours.insert(p & 0xFFFFFF);
        if (visible)
            *visible += qAlpha(p) > 0;
    }
    return colours;
}

} // namespace

// The StatusNotifierItem and its dbusmenu against a private dbus-daemon and a test host on it.
class SniStatusItemTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();
    void labelCarriesCountAndSymbol();
    void iconStatesDifferInColourAndNoneIsBlank();
    void hostsThatDrawTheLabel_data();
    void hostsThatDrawTheLabel();
    void menuOverTheWire();
    void watcherThatAppearsLaterOrRestartsGetsARegistration();

private:
    std::unique_ptr<SniStatusItem> makeItem() {
        return std::make_unique<SniStatusItem>(m_bus.connect(), m_glyph);
    }
    QDBusMessage call(const SniStatusItem& item, const QString& interface, const QString& method,
                      const QVariantList& arguments = {});
    QVariantMap properties(const SniStatusItem& item);

    PrivateSessionBus m_bus;
    StatusIconGlyph m_glyph;
    QTemporaryDir m_runtime;
    QDBusConnection m_host{QString()};
    std::unique_ptr<TestWatcher> m_watcher;
};

void SniStatusItemTest::initTestCase() {
    const QString error = m_bus.start();
    QVERIFY2(error.isEmpty(), qPrintable(error));
    QVERIFY2(Symbols::loadFont(), "the icon font is needed (fonts-material-design-icons-iconfont)");
    m_glyph = {Symbols().fontFamily(),
               Symbols::table().value(QStringLiteral("brain.head.profile"))};
    // Items write their icon files below the runtime folder: this one.
    QVERIFY(m_runtime.isValid());
    qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path()));
}

void SniStatusItemTest::init() {
    m_host = m_bus.connect();
    m_watcher = std::make_unique<TestWatcher>();
    QVERIFY(m_watcher->serveOn(m_host));
}

void SniStatusItemTest::cleanup() {
    // Released before the connection goes, so the next test can take the name at once.
    m_host.unregisterService(SniStatusItem::watcherService);
    m_host = QDBusConnection(QString());
    m_bus.disconnectAll();
}

QDBusMessage SniStatusItemTest::call(const SniStatusItem& item, const QString& interface,
                                     const QString& method, const QVariantList& arguments) {
    QDBusMessage message = QDBusMessage::createMethodCall(
        item.serviceName(),
        interface == menuInterface ? SniStatusItem::menuPath : SniStatusItem::itemPath, interface,
        method);
    message.setArguments(arguments);
    // The item lives in this thread: wait with the event loop running so it can answer.
    return m_host.call(message, QDBus::BlockWithGui, 5000);
}

QVariantMap SniStatusItemTest::properties(const SniStatusItem& item) {
    const QDBusMessage reply =
        call(item, "org.freedesktop.DBus.Properties", "GetAll", {itemInterface});
    return qdbus_cast<QVariantMap>(reply.arguments().value(0));
}

void SniStatusItemTest::labelCarriesCountAndSymbol() {
    auto item = makeItem();
    item->setCountPlacement(StatusItem::CountPlacement::beside);
    SignalRecorder heard;
    QVERIFY(m_host.connect(item->serviceName(), SniStatusItem::itemPath, itemInterface,
                           "XAyatanaNewLabel", &heard, SLOT(newLabel(QString, QString))));
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill"));
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill")); // unchanged: silent
    item->setTitle(QString(), QStringLiteral("keyboard")); // icon only: not a lone symbol
    QTRY_COMPARE(heard.labels.size(), 2);
    const QString bolt = QStringLiteral(" 12.3k \u26A1\uFE0E");
    QCOMPARE(heard.labels, (QList<QStringList>{{bolt, QStringLiteral(" 88.8k \u26A1\uFE0E")},
                                               {QString(), QString()}}));
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill"));
    QCOMPARE(properties(*item).value("XAyatanaLabel").toString(), bolt);
}

void SniStatusItemTest::iconStatesDifferInColourAndNoneIsBlank() {
    auto item = makeItem();
    SignalRecorder heard;
    QVERIFY(m_host.connect(item->serviceName(), SniStatusItem::itemPath, itemInterface, "NewIcon",
                           &heard, SLOT(newIcon())));
    const struct {
        StatusItem::Icon icon;
        QSet<QRgb> colours;
        QString name;
    } states[] = {
        {StatusItem::Icon::orange, {0xFF9500}, "mindmeter-status-orange"},
        {StatusItem::Icon::red, {0xFF3B30}, "mindmeter-status-red"},
        {StatusItem::Icon::normal, {0x8E8E93}, "mindmeter-status-symbolic"},
        {StatusItem::Icon::none, {}, ""},
    };
    for (const auto& state : states) {
        const int heardBefore = heard.newIcons;
        item->setIcon(state.icon);
        QTRY_COMPARE(heard.newIcons, heardBefore + 1);
        const QVariantMap p = properties(*item);
        const QList<QImage> images = readPixmaps(p.value("IconPixmap"));
        QCOMPARE(images.size(), SniStatusItem::pixmapSizes.size());
        for (const QImage& image : images) {
            int visible = 0;
            QCOMPARE(opaqueColours(image, &visible), state.colours);
            // The glyph: neither a dot nor a filled square; for none, nothing.
            const int area = image.width() * image.height();
            QVERIFY(state.colours.isEmpty() ? visible == 0
                                            : visible > area / 6 && visible < area * 5 / 6);
        }

        // The icon file under IconName is the same shape as the bitmaps; only the normal one
        // is marked for hosts to paint in the panel's text colour.
        QCOMPARE(p.value("IconName").toString(), state.name);
        if (state.name.isEmpty())
            continue;
        QFile file(p.value("IconThemePath").toString() + "/hicolor/scalable/status/" + state.name +
                   ".svg");
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray svg = file.readAll();
        QCOMPARE(svg.contains("class=\"ColorScheme-Text\""), state.name.endsWith("-symbolic"));
        QImage rendered(48, 48, QImage::Format_ARGB32);
        rendered.fill(Qt::transparent);
        QPainter painter(&rendered);
        QSvgRenderer(svg).render(&painter);
        painter.end();
        QCOMPARE(opaqueColours(rendered), state.colours);
    }
}

void SniStatusItemTest::hostsThatDrawTheLabel_data() {
    QTest::addColumn<QStringList>("processes");
    QTest::addColumn<QString>("desktop");
    QTest::addColumn<bool>("drawsLabel");
    QTest::newRow("GNOME Shell's extension") << QStringList{"gnome-shell"} << "KDE" << true;
    QTest::newRow("Ayatana indicators") << QStringList{"ayatana-indicat"} << "MATE" << true;
    QTest::newRow("Xfce's tray") << QStringList{"panel-1-systray"} << "XFCE" << false;
    QTest::newRow("Plasma") << QStringList{"kded5", "plasmashell"} << "KDE" << false;
    QTest::newRow("waybar on GNOME's word") << QStringList{"waybar"} << "GNOME" << false;
    QTest::newRow("nobody named, GNOME") << QStringList{} << "ubuntu:GNOME" << true;
}

void SniStatusItemTest::hostsThatDrawTheLabel() {
    QFETCH(QStringList, processes);
    QFETCH(QString, desktop);
    QFETCH(bool, drawsLabel);
    QCOMPARE(PanelHost::drawsLabel({processes, false, desktop}), drawsLabel);
}

void SniStatusItemTest::menuOverTheWire() {
    auto item = makeItem();
    QMap<QString, int> runs;
    const auto entry = [&runs](const QString& title, bool enabled = true) {
        return StatusMenuItem{title, title.left(1).toLower(), enabled, false,
                              [&runs, title] { ++runs[title]; }};
    };
    const QList<StatusMenuItem> items = {entry("Mindmeter 1.4.5", false),
                                         StatusMenuItem::separatorItem(), entry("Dashboard"),
                                         entry("Quit")};
    item->setMenu(items);
    const auto layout = [&](uint* revision = nullptr) {
        const QDBusMessage reply = call(*item, menuInterface, "GetLayout", {0, -1, QStringList()});
        if (revision)
            *revision = reply.arguments().value(0).toUInt();
        return MenuNode::fromReply(reply);
    };
    uint revision = 0;
    const MenuNode root = layout(&revision);
    QCOMPARE(root.properties.value("children-display").toString(), QStringLiteral("submenu"));
    QCOMPARE(root.labels(), (QStringList{"Mindmeter 1.4.5", "-", "Dashboard", "Quit"}));
    QCOMPARE(call(*item, menuInterface, "GetLayout", {99, -1, QStringList()}).type(),
             QDBusMessage::ErrorMessage);

    // Clicks run the actions; hovering, the disabled header, a separator, an unknown id and a
    // wrong type run nothing.
    const auto event = [&](const QVariant& id, const QString& name) {
        return call(*item, menuInterface, "Event",
                    {id, name, QVariant::fromValue(QDBusVariant(0)), 0u})
            .type();
    };
    QCOMPARE(event(3, "clicked"), QDBusMessage::ReplyMessage);
    event(3, "hovered");
    event(1, "clicked");
    event(2, "clicked");
    QCOMPARE(event(999, "clicked"), QDBusMessage::ErrorMessage);
    QCOMPARE(event(QStringLiteral("3"), "clicked"), QDBusMessage::ErrorMessage);
    const QDBusMessage group =
        call(*item, menuInterface, "EventGroup",
             {QVariant::fromValue(QList<DBusMenuEvent>{{4, "clicked", QDBusVariant(0), 0},
                                                       {77, "clicked", QDBusVariant(0), 0}})});
    QCOMPARE(qdbus_cast<QList<int>>(group.arguments().value(0)), QList<int>{77});
    QTRY_COMPARE(runs.value("Quit"), 1);
    QCOMPARE(runs, (QMap<QString, int>{{"Dashboard", 1}, {"Quit", 1}}));

    // Opening the menu tells the app, which may build it afresh: the host reads it again.
    SignalRecorder heard;
    QVERIFY(m_host.connect(item->serviceName(), SniStatusItem::menuPath, menuInterface,
                           "LayoutUpdated", &heard, SLOT(layoutUpdated(uint, int))));
    QSignalSpy aboutToShow(item.get(), &StatusItem::menuAboutToShow);
    QCOMPARE(call(*item, menuInterface, "AboutToShow", {0}).arguments().value(0), QVariant(false));
    QCOMPARE(aboutToShow.size(), 1);
    const QList<StatusMenuItem> fresh = items.mid(2);
    connect(item.get(), &StatusItem::menuAboutToShow, item.get(), [&] { item->setMenu(fresh); });
    QCOMPARE(call(*item, menuInterface, "AboutToShow", {0}).arguments().value(0), QVariant(true));
    uint newRevision = 0;
    QCOMPARE(layout(&newRevision).children.size(), fresh.size());
    QVERIFY(newRevision > revision);
    QTRY_COMPARE(heard.layoutRevisions, QList<uint>{newRevision}); // LayoutUpdated(rev, 0)
}

void SniStatusItemTest::watcherThatAppearsLaterOrRestartsGetsARegistration() {
    QVERIFY(m_host.unregisterService(SniStatusItem::watcherService));
    m_watcher->hostRegistered = false;
    auto item = makeItem();
    QTest::qWait(50);
    QVERIFY(m_watcher->registrations.isEmpty());

    QVERIFY(m_host.registerService(SniStatusItem::watcherService)); // the panel starts late
    QTRY_COMPARE(m_watcher->registrations, QStringList{item->serviceName()});
    QTest::qWait(50);
    QVERIFY(!item->isVisible()); // a watcher without a host shows nothing
    m_watcher->hostRegistered = true;
    emit m_watcher->StatusNotifierHostRegistered();
    QTRY_VERIFY(item->isVisible());

    QVERIFY(m_host.unregisterService(SniStatusItem::watcherService)); // the panel restarts
    QTRY_VERIFY(!item->isVisible());
    QVERIFY(m_host.registerService(SniStatusItem::watcherService));
    QTRY_COMPARE(m_watcher->registrations.size(), 2);
    QTRY_VERIFY(item->isVisible());
}

QTEST_MAIN(SniStatusItemTest)
#include "tst_snistatusitem.moc"
