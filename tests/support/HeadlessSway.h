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
        QFile config(m_runtime.filePath(QStringLiteral("sway.conf")));
        if (!config.open(QIODevice::WriteOnly))
            return QStringLiteral("cannot write sway's configuration");
        config.write("xwayland disable\noutput HEADLESS-1 resolution 1280x800\n"
                     "focus_on_window_activation focus\n");
        config.close();
        ::chown(qPrintable(config.fileName()), uid, uid);

        QProcessEnvironment env;
        env.insert(QStringLiteral("PATH"), qEnvironmentVariable("PATH"));
        env.insert(QStringLiteral("HOME"), m_runtime.path());
        env.insert(QStringLiteral("XDG_RUNTIME_DIR"), m_runtime.path());
        env.insert(QStringLiteral("WLR_BACKENDS"), QStringLiteral("headless"));
        env.insert(QStringLiteral("WLR_LIBINPUT_NO_DEVICES"), QStringLiteral("1"));
        env.insert(QStringLiteral("WLR_RENDERER"), QStringLiteral("pixman"));
        QStringList command = {QStringLiteral("sway"), QStringLiteral("-c"), config.fileName()};
        if (root)
            command = QStringList{QStringLiteral("--reuid=65534"), QStringLiteral("--regid=65534"),
                                  QStringLiteral("--clear-groups")} +
                      command;
        if (!launch(root ? QStringLiteral("setpriv") : command.takeFirst(), command, env, uid))
            return QStringLiteral("sway did not start (Debian packages sway, util-linux): ") +
                   log();
        const QStringList ipc =
            QDir(m_runtime.path()).entryList({QStringLiteral("sway-ipc.*")}, QDir::System);
        if (ipc.isEmpty() && !eventually([&] {
                return !QDir(m_runtime.path())
                            .entryList({QStringLiteral("sway-ipc.*")}, QDir::System)
                            .isEmpty();
            }))
            return QStringLiteral("sway opened no IPC socket");
        m_ipc = m_runtime.filePath(
            QDir(m_runtime.path()).entryList({QStringLiteral("sway-ipc.*")}, QDir::System).first());
        return {};
    }

    bool openWindow(const QString& appId) override {
        spawn(QStringLiteral("foot"), {QStringLiteral("--app-id=") + appId}, clientEnvironment());
        return eventually([&] { return focusedAppId() == appId; });
    }

    bool focus(const QString& appId) override {
        return swaymsg({QStringLiteral("[app_id=\"%1\"] focus").arg(appId)}) &&
               eventually([&] { return focusedAppId() == appId; });
    }

    bool userInput() override {
        return run(QStringLiteral("wtype"), {QStringLiteral("-k"), QStringLiteral("Shift_L")},
                   clientEnvironment());
    }

    bool swaymsg(const QStringList& args) {
        return run(QStringLiteral("swaymsg"), QStringList{QStringLiteral("-s"), m_ipc} + args,
                   clientEnvironment());
    }

    // The app_id of the focused window, empty when none.
    QString focusedAppId() {
        QProcess p;
        p.start(QStringLiteral("swaymsg"),
                {QStringLiteral("-s"), m_ipc, QStringLiteral("-t"), QStringLiteral("get_tree")});
        if (!p.waitForFinished(10000))
            return {};
        QString found;
        std::function<void(const QJsonObject&)> walk = [&](const QJsonObject& node) {
            if (node[QStringLiteral("focused")].toBool())
                found = node[QStringLiteral("app_id")].toString();
            for (const char* key : {"nodes", "floating_nodes"})
                for (const QJsonValue& child : node[QLatin1String(key)].toArray())
                    walk(child.toObject());
        };
        walk(QJsonDocument::fromJson(p.readAllStandardOutput()).object());
        return found;
    }

private:
    QString m_ipc;
};
