#pragma once

#include <QDir>
#include <QFile>
#include <QGuiApplication>
#include <QImage>
#include <QLibraryInfo>
#include <QPixmap>
#include <QProcess>
#include <QScreen>
#include <QTemporaryDir>

// Debian's Xfce panel (xfce4-panel, with its xfconfd) on the test's X server and private
// session bus: one panel along the top of the screen holding only the status tray, which
// hosts StatusNotifierItems (it owns org.kde.StatusNotifierWatcher) and XEmbed icons.
class XfcePanel {
public:
    static constexpr int height = 28;

    ~XfcePanel() {
        for (QProcess* p : {&m_panel, &m_xfconfd}) {
            p->terminate();
            if (!p->waitForFinished(3000))
                p->kill();
            p->waitForFinished(2000);
        }
    }

    // Starts it on the bus at `busAddress`: empty once it runs, else what failed.
    QString start(const QString& busAddress) {
        const QString channel =
            m_config.filePath(QStringLiteral("xfce4/xfconf/xfce-perchannel-xml/xfce4-panel.xml"));
        QDir().mkpath(QFileInfo(channel).absolutePath());
        QFile file(channel);
        if (!file.open(QIODevice::WriteOnly))
            return QStringLiteral("cannot write the panel's configuration");
        file.write(QStringLiteral(R"(<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="%1"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray"/>
  </property>
</channel>
)")
                       .arg(height)
                       .toUtf8());
        file.close();

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("DBUS_SESSION_BUS_ADDRESS"), busAddress);
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), m_config.path());
        env.insert(QStringLiteral("HOME"), m_config.path());
        env.insert(QStringLiteral("NO_AT_BRIDGE"), QStringLiteral("1"));
        env.remove(QStringLiteral("SESSION_MANAGER"));
        // The private bus starts no services on demand: the settings daemon is started here.
        m_xfconfd.setProcessEnvironment(env);
        m_xfconfd.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        // Debian keeps it in the architecture's library folder, which is also Qt's.
        m_xfconfd.start(QLibraryInfo::path(QLibraryInfo::LibrariesPath) +
                        QStringLiteral("/xfce4/xfconf/xfconfd"));
        if (!m_xfconfd.waitForStarted())
            return QStringLiteral("xfconfd is needed (Debian package xfconf)");
        m_panel.setProcessEnvironment(env);
        m_panel.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_panel.start(QStringLiteral("xfce4-panel"), {QStringLiteral("--disable-wm-check")});
        if (!m_panel.waitForStarted())
            return QStringLiteral("xfce4-panel is needed (Debian package xfce4-panel)");
        return {};
    }

    // The panel's strip across the top of the screen, as shown now.
    static QImage grab() {
        QScreen* screen = QGuiApplication::primaryScreen();
        return screen->grabWindow(0, 0, 0, screen->size().width(), height).toImage();
    }

private:
    QTemporaryDir m_config;
    QProcess m_xfconfd;
    QProcess m_panel;
};
