#pragma once

#include <QStringList>

// Every file an install puts under its prefix (/usr for the package), relative to it. The
// README's install section and the package describe the same list.
namespace InstallLayout {

inline const QString appId = QStringLiteral("com.mindmeter.Mindmeter");
inline const QString gnomeExtension =
    QStringLiteral("share/gnome-shell/extensions/mindmeter@mindmeter.app");
// The core library the program and its views share, in the program's private folder.
inline const QString coreLibrary = QStringLiteral("lib/mindmeter/core/libmindmeter-core.so");
inline const QList<int> iconSizes = {16, 22, 24, 32, 48, 64, 128, 256};

inline QString iconPath(int size) {
    return QStringLiteral("share/icons/hicolor/%1x%1/apps/%2.png").arg(size).arg(appId);
}

inline QStringList files() {
    QStringList f = {
        QStringLiteral("bin/mindmeter"),
        coreLibrary,
        // The windows and views, loaded by the program when first wanted.
        QStringLiteral("lib/mindmeter/ui/mindmeter-ui.so"),
        QStringLiteral("lib/systemd/user/mindmeter-track.service"),
        QStringLiteral("share/applications/") + appId + QStringLiteral(".desktop"),
        QStringLiteral("share/doc/mindmeter/changelog.gz"),
        QStringLiteral("share/doc/mindmeter/copyright"),
        // The GNOME Shell extension that shows the front application on GNOME on Wayland.
        gnomeExtension + QStringLiteral("/extension.js"),
        gnomeExtension + QStringLiteral("/frontApplication.js"),
        gnomeExtension + QStringLiteral("/metadata.json"),
        QStringLiteral("share/icons/hicolor/scalable/apps/") + appId + QStringLiteral(".svg"),
        QStringLiteral("share/man/man1/mindmeter.1.gz"),
        QStringLiteral("share/metainfo/") + appId + QStringLiteral(".metainfo.xml"),
    };
    for (int size : iconSizes)
        f << iconPath(size);
    f.sort();
    return f;
}

} // namespace InstallLayout
