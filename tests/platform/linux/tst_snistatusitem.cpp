#include "PrivateSessionBus.h"

#include "platform/linux/DBusMenuTypes.h"
#include "platform/linux/PanelHost.h"
#include "platform/linux/SniStatusItem.h"
#include "platform/linux/StatusItemFactory.h"
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

// The watcher half of a status-notifier host: records every item that registers.
class TestWatcher : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.kde.StatusNotifierWatcher")
    Q_PROPERTY(bool IsStatusNotifierHostRegistered MEMBER hostRegistered)
public:
    QStringList registrations;
    bool hostRegistered = true;
public slots:
    void RegisterStatusNotifierItem(const QString& service) { registrations << service; }
signals:
    void StatusNotifierHostRegistered();
};

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

struct LayoutNode {
    int id = -1;
    QVariantMap properties;
    QList<LayoutNode> children;
};

// Read by hand from the wire, so a fault in the item's own marshalling cannot cancel out.
LayoutNode readLayout(const QDBusArgument& argument) {
    LayoutNode node;
    argument.beginStructure();
    argument >> node.id >> node.properties;
    argument.beginArray();
    while (!argument.atEnd()) {
        QDBusVariant child;
        argument >> child;
        node.children.append(readLayout(child.variant().value<QDBusArgument>()));
    }
    argument.endArray();
    argument.endStructure();
    return node;
}

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

QList<StatusMenuItem> appMenu(QMap<QString, int>& runs) {
    const auto item = [&runs](const QString& title, const QString& shortcut = {}) {
        StatusMenuItem i{title, shortcut, true, false, [&runs, title] { ++runs[title]; }};
        return i;
    };
    StatusMenuItem header = item(QStringLiteral("Mindmeter 1.4.5"));
    header.enabled = false;
    const StatusMenuItem separator = StatusMenuItem::separatorItem();
    return {header,
            separator,
            item(QStringLiteral("\u2B06 Update available \u2014 v1.5.0")),
            separator,
            item(QStringLiteral("Dashboard")),
            item(QStringLiteral("Preferences\u2026"), QStringLiteral(",")),
            separator,
            item(QStringLiteral("Copy Summary")),
            item(QStringLiteral("Export CSV\u2026")),
            separator,
            item(QStringLiteral("Reset Today")),
            separator,
            item(QStringLiteral("Send Feedback")),
            separator,
            item(QStringLiteral("Quit"), QStringLiteral("q"))};
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
    void menuLayoutMatchesTheItems();
    void menuClicksRunActionsAndBadIdsAreRefused();
    void openingTheMenuMayReplaceIt();
    void watcherThatAppearsLaterOrRestartsGetsARegistration();
    void factoryChoosesByWhatIsOnTheBus();

private:
    std::unique_ptr<SniStatusItem> makeItem();
    QDBusMessage call(const SniStatusItem& item, const QString& interface, const QString& method,
                      const QVariantList& arguments = {});
    QVariantMap properties(const QString& service, const QString& interface);
    LayoutNode layout(const SniStatusItem& item, int parent, const QStringList& names = {},
                      uint* revision = nullptr);

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
    QVERIFY(m_host.registerObject(SniStatusItem::watcherPath, m_watcher.get(),
                                  QDBusConnection::ExportAllContents));
    QVERIFY(m_host.registerService(SniStatusItem::watcherService));
}

void SniStatusItemTest::cleanup() {
    // Released before the connection goes, so the next test can take the name at once.
    m_host.unregisterService(SniStatusItem::watcherService);
    m_host = QDBusConnection(QString());
    m_bus.disconnectAll();
}

std::unique_ptr<SniStatusItem> SniStatusItemTest::makeItem() {
    return std::make_unique<SniStatusItem>(m_bus.connect(), m_glyph);
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

QVariantMap SniStatusItemTest::properties(const QString& service, const QString& interface) {
    const QString path =
        interface == menuInterface ? SniStatusItem::menuPath : SniStatusItem::itemPath;
    const QDBusMessage reply = m_host.call(
        QDBusMessage::createMethodCall(service, path, "org.freedesktop.DBus.Properties", "GetAll")
            << interface,
        QDBus::BlockWithGui);
    QVariantMap map;
    if (reply.type() == QDBusMessage::ReplyMessage)
        reply.arguments().value(0).value<QDBusArgument>() >> map;
    return map;
}

LayoutNode SniStatusItemTest::layout(const SniStatusItem& item, int parent,
                                     const QStringList& names, uint* revision) {
    const QDBusMessage reply =
        call(item, menuInterface, QStringLiteral("GetLayout"), {parent, -1, names});
    if (reply.signature() != QLatin1String("u(ia{sv}av)"))
        return {};
    if (revision)
        *revision = reply.arguments().at(0).toUInt();
    return readLayout(reply.arguments().at(1).value<QDBusArgument>());
}

void SniStatusItemTest::labelCarriesCountAndSymbol() {
    auto item = makeItem();
    item->setCountPlacement(StatusItem::CountPlacement::beside);
    SignalRecorder heard;
    QVERIFY(m_host.connect(item->serviceName(), SniStatusItem::itemPath, itemInterface,
                           "XAyatanaNewLabel", &heard, SLOT(newLabel(QString, QString))));
    const QString bolt = QStringLiteral(" 12.3k \u26A1\uFE0E");
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill"));
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill")); // unchanged: silent
    QTRY_COMPARE(heard.labels.size(), 1);
    QCOMPARE(heard.labels[0], (QStringList{bolt, QStringLiteral(" 88.8k \u26A1\uFE0E")}));
    const QVariantMap p = properties(item->serviceName(), itemInterface);
    QCOMPARE(p.value("XAyatanaLabel").toString(), bolt);

    // The icon-only style: no label at all, not a lone symbol.
    item->setTitle(QString(), QStringLiteral("keyboard"));
    QTRY_COMPARE(heard.labels.size(), 2);
    QCOMPARE(heard.labels[1], (QStringList{QString(), QString()}));

    // For a panel that draws no label (Xfce's): none is offered, the count is in the bitmaps.
    item->setCountPlacement(StatusItem::CountPlacement::inIcon);
    item->setTitle(QStringLiteral(" 12.3k "), QStringLiteral("bolt.fill"));
    const QVariantMap inIcon = properties(item->serviceName(), itemInterface);
    QCOMPARE(inIcon.value("XAyatanaLabel").toString() + inIcon.value("IconName").toString(),
             QString());
    const QSet<QRgb> colours = opaqueColours(readPixmaps(inIcon.value("IconPixmap")).last());
    QVERIFY(std::any_of(colours.begin(), colours.end(), [](QRgb c) { return qGray(c) > 240; }));
}

void SniStatusItemTest::iconStatesDifferInColourAndNoneIsBlank() {
    auto item = makeItem();
    SignalRecorder heard;
    QVERIFY(m_host.connect(item->serviceName(), SniStatusItem::itemPath, itemInterface, "NewIcon",
                           &heard, SLOT(newIcon())));
    const struct {
        StatusItem::Icon icon;
        QRgb colour;
        QString name;
    } states[] = {
        {StatusItem::Icon::orange, 0xFF9500, "mindmeter-status-orange"},
        {StatusItem::Icon::red, 0xFF3B30, "mindmeter-status-red"},
        {StatusItem::Icon::normal, 0x8E8E93, "mindmeter-status-symbolic"},
    };
    for (const auto& state : states) {
        const int heardBefore = heard.newIcons;
        item->setIcon(state.icon);
        QTRY_COMPARE(heard.newIcons, heardBefore + 1);
        const QVariantMap p = properties(item->serviceName(), itemInterface);
        const QList<QImage> images = readPixmaps(p.value("IconPixmap"));
        QCOMPARE(images.size(), SniStatusItem::pixmapSizes.size());
        for (const QImage& image : images) {
            int visible = 0;
            QCOMPARE(opaqueColours(image, &visible), QSet<QRgb>{state.colour});
            // The glyph: neither a dot nor a filled square.
            QVERIFY(visible > image.width() * image.width() / 6);
            QVERIFY(visible < image.width() * image.width() * 5 / 6);
        }

        // The icon file under IconName is the same shape as the bitmaps; only the normal one
        // is marked for hosts to paint in the panel's text colour.
        QCOMPARE(p.value("IconName").toString(), state.name);
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
        QCOMPARE(opaqueColours(rendered), QSet<QRgb>{state.colour});
    }

    item->setIcon(StatusItem::Icon::none);
    QTRY_COMPARE(heard.newIcons, 4);
    const QVariantMap p = properties(item->serviceName(), itemInterface);
    QCOMPARE(p.value("IconName").toString(), QString());
    for (const QImage& image : readPixmaps(p.value("IconPixmap"))) {
        int visible = 0;
        opaqueColours(image, &visible);
        QCOMPARE(visible, 0);
    }
}

void SniStatusItemTest::hostsThatDrawTheLabel_data() {
    QTest::addColumn<QStringList>("processes");
    QTest::addColumn<bool>("indicatorService");
    QTest::addColumn<QString>("desktop");
    QTest::addColumn<bool>("drawsLabel");
    QTest::newRow("GNOME Shell's extension")
        << QStringList{"gnome-shell"} << false << "KDE" << true;
    QTest::newRow("Ayatana indicators")
        << QStringList{"ayatana-indicat"} << false << "MATE" << true;
    QTest::newRow("Xfce's tray") << QStringList{"panel-1-systray"} << false << "XFCE" << false;
    QTest::newRow("Plasma") << QStringList{"kded5", "plasmashell"} << false << "KDE" << false;
    QTest::newRow("waybar on GNOME's word") << QStringList{"waybar"} << false << "GNOME" << false;
    QTest::newRow("nobody named, GNOME") << QStringList{} << false << "ubuntu:GNOME" << true;
}

void SniStatusItemTest::hostsThatDrawTheLabel() {
    QFETCH(QStringList, processes);
    QFETCH(bool, indicatorService);
    QFETCH(QString, desktop);
    QFETCH(bool, drawsLabel);
    QCOMPARE(PanelHost::drawsLabel({processes, indicatorService, desktop}), drawsLabel);
}

void SniStatusItemTest::menuLayoutMatchesTheItems() {
    auto item = makeItem();
    QMap<QString, int> runs;
    const QList<StatusMenuItem> items = appMenu(runs);
    item->setMenu(items);
    const LayoutNode root = layout(*item, 0);
    QCOMPARE(root.id, 0);
    QCOMPARE(root.properties.value("children-display").toString(), QStringLiteral("submenu"));
    QCOMPARE(root.children.size(), items.size());
    for (int i = 0; i < items.size(); ++i) {
        const QVariantMap& p = root.children[i].properties;
        QCOMPARE(root.children[i].id, i + 1);
        QCOMPARE(p.value("type").toString(), items[i].separator ? "separator" : "standard");
        QCOMPARE(p.value("label").toString(), items[i].separator ? QString() : items[i].title);
        QCOMPARE(p.value("enabled", false).toBool(), !items[i].separator && i != 0);
        QList<QStringList> keys;
        if (p.contains("shortcut"))
            p.value("shortcut").value<QDBusArgument>() >> keys;
        QCOMPARE(keys, i == 5    ? QList<QStringList>{{"comma"}}
                       : i == 14 ? QList<QStringList>{{"q"}}
                                 : QList<QStringList>{});
    }
    QCOMPARE(call(*item, menuInterface, "GetLayout", {99, -1, QStringList()}).type(),
             QDBusMessage::ErrorMessage);
}

void SniStatusItemTest::menuClicksRunActionsAndBadIdsAreRefused() {
    auto item = makeItem();
    QMap<QString, int> runs;
    item->setMenu(appMenu(runs));
    const auto event = [&](const QVariant& id, const QString& name) {
        return call(*item, menuInterface, "Event",
                    {id, name, QVariant::fromValue(QDBusVariant(0)), 0u})
            .type();
    };
    QCOMPARE(event(5, "clicked"), QDBusMessage::ReplyMessage);
    QTRY_COMPARE(runs.value("Dashboard"), 1);
    // Hovering, the disabled header, a separator, an unknown id, a wrong type: nothing runs.
    event(5, "hovered");
    event(1, "clicked");
    event(2, "clicked");
    QCOMPARE(event(999, "clicked"), QDBusMessage::ErrorMessage);
    QCOMPARE(event(QStringLiteral("5"), "clicked"), QDBusMessage::ErrorMessage);
    const QDBusMessage group =
        call(*item, menuInterface, "EventGroup",
             {QVariant::fromValue(QList<DBusMenuEvent>{{15, "clicked", QDBusVariant(0), 0},
                                                       {77, "clicked", QDBusVariant(0), 0}})});
    QCOMPARE(qdbus_cast<QList<int>>(group.arguments().value(0)), QList<int>{77});
    QTRY_COMPARE(runs.value("Quit"), 1);
    QCOMPARE(runs.value("Dashboard"), 1);
    QCOMPARE(runs.value("Mindmeter 1.4.5"), 0);
}

void SniStatusItemTest::openingTheMenuMayReplaceIt() {
    auto item = makeItem();
    QMap<QString, int> runs;
    item->setMenu(appMenu(runs));
    SignalRecorder heard;
    QVERIFY(m_host.connect(item->serviceName(), SniStatusItem::menuPath, menuInterface,
                           "LayoutUpdated", &heard, SLOT(layoutUpdated(uint, int))));
    QSignalSpy aboutToShow(item.get(), &StatusItem::menuAboutToShow);
    uint revision = 0;
    layout(*item, 0, {}, &revision);
    QCOMPARE(call(*item, menuInterface, "AboutToShow", {0}).arguments().value(0), QVariant(false));
    QCOMPARE(aboutToShow.size(), 1);

    // The app builds the menu afresh when it opens: the host is told to read it again.
    const QList<StatusMenuItem> fresh = appMenu(runs).mid(4);
    connect(item.get(), &StatusItem::menuAboutToShow, item.get(), [&] { item->setMenu(fresh); });
    QCOMPARE(call(*item, menuInterface, "AboutToShow", {0}).arguments().value(0), QVariant(true));
    uint newRevision = 0;
    QCOMPARE(layout(*item, 0, {}, &newRevision).children.size(), fresh.size());
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

void SniStatusItemTest::factoryChoosesByWhatIsOnTheBus() {
    QString why;
    auto item = createStatusItem(m_bus.connect(), m_glyph, &why);
    QVERIFY2(dynamic_cast<SniStatusItem*>(item.get()), qPrintable(why));
    QTRY_COMPARE(m_watcher->registrations.size(), 1);

    // No watcher, and no system tray on the offscreen display: no item, and the reason.
    QVERIFY(m_host.unregisterService(SniStatusItem::watcherService));
    QVERIFY(!createStatusItem(m_bus.connect(), m_glyph, &why));
    QVERIFY2(why.contains("no org.kde.StatusNotifierWatcher") && why.contains("system tray"),
             qPrintable(why));
    QVERIFY(!createStatusItem(m_bus.connectNowhere(), m_glyph, &why));
    QVERIFY2(why.startsWith("no session bus"), qPrintable(why));
}

QTEST_MAIN(SniStatusItemTest)
#include "tst_snistatusitem.moc"
