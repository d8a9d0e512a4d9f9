#pragma once

#include "HeadlessCompositor.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <functional>

// A headless sway (Debian package sway) with software rendering. sway refuses to run as
// root, so a root test runs it as nobody (65534) through setpriv. Windows are foot
// terminals with the app_id asked for; input is typed through wtype's virtual keyboard.
class HeadlessSway final : public HeadlessCompositor {
public:
    QString start() override {
        const bool root = getuid() == 0;
        const uid_t uid = root ? 65534 : getuid();
        QFile config(m_runtime.filePath("sway.conf"));
        if (!config.open(QIODevice::WriteOnly))
            return "cannot write sway's configuration";
        config.write("xwayland disable\noutput HEADLESS-1 resolution 1280x800\n"
                     "focus_on_window_activation focus\n");
        config.close();
        ::chown(qPrintable(config.fileName()), uid, uid);

        QProcessEnvironment env;
        env.insert("PATH", qEnvironmentVariable("PATH"));
        env.insert("HOME", m_runtime.path());
        env.insert("XDG_RUNTIME_DIR", m_runtime.path());
        env.insert("WLR_BACKENDS", "headless");
        env.insert("WLR_LIBINPUT_NO_DEVICES", "1");
        env.insert("WLR_RENDERER", "pixman");
        QStringList command = {"sway", "-c", config.fileName()};
        if (root)
            command = QStringList{"--reuid=65534", "--regid=65534", "--clear-groups"} + command;
        if (!launch(root ? "setpriv" : command.takeFirst(), command, env, uid))
            return "sway did not start (Debian packages sway, util-linux): " + log();
        const auto ipc = [&] {
            return QDir(m_runtime.path()).entryList({"sway-ipc.*"}, QDir::System);
        };
        if (!eventually([&] { return !ipc().isEmpty(); }))
            return "sway opened no IPC socket";
        m_ipc = m_runtime.filePath(ipc().first());
        return {};
    }

    bool openWindow(const QString& appId) override {
        spawn("foot", {"--app-id=" + appId}, clientEnvironment());
        return eventually([&] { return focusedAppId() == appId; });
    }

    bool focus(const QString& appId) override {
        return run("swaymsg", {"-s", m_ipc, QString("[app_id=\"%1\"] focus").arg(appId)},
                   clientEnvironment()) &&
               eventually([&] { return focusedAppId() == appId; });
    }

    bool userInput() override { return run("wtype", {"-k", "Shift_L"}, clientEnvironment()); }

private:
    // The app_id of the focused window, empty when none.
    QString focusedAppId() {
        QProcess p;
        p.start("swaymsg", {"-s", m_ipc, "-t", "get_tree"});
        if (!p.waitForFinished(10000))
            return {};
        QString found;
        std::function<void(const QJsonObject&)> walk = [&](const QJsonObject& node) {
            if (node["focused"].toBool())
                found = node["app_id"].toString();
            for (const char* key : {"nodes", "floating_nodes"})
                for (const QJsonValue& child : node[QLatin1String(key)].toArray())
                    walk(child.toObject());
        };
        walk(QJsonDocument::fromJson(p.readAllStandardOutput()).object());
        return found;
    }

    QString m_ipc;
};
