#pragma once

#include "HeadlessCompositor.h"
#include "PrivateSessionBus.h"

#include <QDBusConnectionInterface>
#include <QDBusMessage>

#include <wayland-client.h>

#include "idle-client-protocol.h"

// A KWin (Debian package kwin-wayland) on a virtual output, on a session bus of its own.
// Its binary carries a file capability that a container may refuse to grant, so a plain
// copy is run; it must keep the name kwin_wayland, which its built-in platform plugin
// checks. Windows are weston's demo clients, chosen by their app_id. KWin offers no input
// injection: input is KDE's idle protocol's simulated user activity.
class HeadlessKWin final : public HeadlessCompositor {
public:
    ~HeadlessKWin() override {
        if (m_server) {
            m_server->terminate();
            m_server->waitForFinished(10000);
        }
        m_server.reset();
    }

    QString start() override {
        if (const QString failed = m_bus.start(); !failed.isEmpty())
            return failed;
        const QString bin = m_runtime.filePath("bin");
        QDir().mkpath(bin);
        const QString kwin = bin + "/kwin_wayland";
        if (!QFile::copy("/usr/bin/kwin_wayland", kwin))
            return "KWin is needed (Debian package kwin-wayland)";
        QProcessEnvironment env;
        env.insert("PATH", qEnvironmentVariable("PATH"));
        env.insert("HOME", m_runtime.path());
        env.insert("XDG_CONFIG_HOME", m_runtime.filePath("config"));
        env.insert("XDG_RUNTIME_DIR", m_runtime.path());
        env.insert("DBUS_SESSION_BUS_ADDRESS", m_bus.address());
        if (!launch(kwin,
                    {"--virtual", "--no-lockscreen", "--no-global-shortcuts", "--socket",
                     "wayland-mindmeter"},
                    env, getuid()))
            return "kwin_wayland did not start: " + log();
        m_connection = m_bus.connect();
        if (!eventually([&] {
                return m_connection.interface()->isServiceRegistered("org.kde.KWin").value();
            }))
            return "KWin did not appear on the session bus: " + log();
        return {};
    }

    QProcessEnvironment clientEnvironment(QProcessEnvironment env) const override {
        env = HeadlessCompositor::clientEnvironment(env);
        env.insert("DBUS_SESSION_BUS_ADDRESS", m_bus.address());
        return env;
    }

    bool openWindow(const QString& appId) override {
        // weston's clients announce org.freedesktop.weston.<name>.
        QString program = "weston-" + appId.section(u'.', -1);
        program.replace("weston-wayland-terminal", "weston-terminal");
        spawn(program, {}, HeadlessCompositor::clientEnvironment());
        return runScript("find", appId, "void 0");
    }

    bool focus(const QString& appId) override {
        return runScript("focus", appId,
                         QString("if (workspace.activeWindow !== undefined) "
                                 "workspace.activeWindow = w; else workspace.activeClient = w;"));
    }

    bool userInput() override {
        const QByteArray name = m_runtime.filePath(m_display).toUtf8();
        wl_display* display = wl_display_connect(name.constData());
        if (!display)
            return false;
        struct Globals {
            wl_registry* registry = nullptr;
            org_kde_kwin_idle* idle = nullptr;
            wl_seat* seat = nullptr;
        } g;
        static const wl_registry_listener listener = {
            [](void* d, wl_registry* r, uint32_t id, const char* iface, uint32_t) {
                auto* g = static_cast<Globals*>(d);
                if (qstrcmp(iface, org_kde_kwin_idle_interface.name) == 0)
                    g->idle = static_cast<org_kde_kwin_idle*>(
                        wl_registry_bind(r, id, &org_kde_kwin_idle_interface, 1));
                else if (qstrcmp(iface, wl_seat_interface.name) == 0 && !g->seat)
                    g->seat = static_cast<wl_seat*>(wl_registry_bind(r, id, &wl_seat_interface, 1));
            },
            [](void*, wl_registry*, uint32_t) {}};
        g.registry = wl_display_get_registry(display);
        wl_registry_add_listener(g.registry, &listener, &g);
        wl_display_roundtrip(display);
        const bool ok = g.idle && g.seat;
        if (ok) {
            org_kde_kwin_idle_timeout* timeout =
                org_kde_kwin_idle_get_idle_timeout(g.idle, g.seat, 1000);
            org_kde_kwin_idle_timeout_simulate_user_activity(timeout);
            org_kde_kwin_idle_timeout_release(timeout);
            wl_display_roundtrip(display);
        }
        if (g.idle)
            org_kde_kwin_idle_destroy(g.idle);
        if (g.seat)
            wl_seat_destroy(g.seat);
        wl_registry_destroy(g.registry);
        wl_display_disconnect(display);
        return ok;
    }

private:
    // Runs a KWin script with `w` bound to the first window of that app_id, again until
    // KWin says (in its log) that it found one.
    bool runScript(const QString& name, const QString& appId, const QString& body) {
        QFile script(m_runtime.filePath(name + ".js"));
        const QString marker = QString("mindmeter-test %1 %2").arg(name).arg(++m_serial);
        if (!script.open(QIODevice::WriteOnly))
            return false;
        script.write(QString("const list = workspace.windowList ? workspace.windowList() : "
                             "workspace.clientList();\n"
                             "for (let i = 0; i < list.length; ++i) {\n"
                             "  const w = list[i];\n"
                             "  if (w.resourceClass == '%1') { %2; print('%3'); break; }\n"
                             "}\n")
                         .arg(appId, body, marker)
                         .toUtf8());
        script.close();
        return eventually([&] {
            call("unloadScript", {name});
            call("loadScript", {script.fileName(), name});
            call("start", {});
            QElapsedTimer t;
            t.start();
            while (!m_serverLog.contains(marker.toUtf8()) && t.elapsed() < 500)
                m_server->waitForReadyRead(50);
            return m_serverLog.contains(marker.toUtf8());
        });
    }

    QDBusMessage call(const QString& method, const QVariantList& args) {
        QDBusMessage m = QDBusMessage::createMethodCall("org.kde.KWin", "/Scripting",
                                                        "org.kde.kwin.Scripting", method);
        m.setArguments(args);
        return m_connection.call(m, QDBus::Block, 10000);
    }

    PrivateSessionBus m_bus;
    QDBusConnection m_connection{QString()};
    int m_serial = 0;
};
