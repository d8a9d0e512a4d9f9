#pragma once

#include <QObject>
#include <QString>

// What the dashboard shows of the repository monitor, the update check and the export in
// the snapshot mode: a project being worked on, a newer version announced, launch at login
// on. Actions do nothing.
class DemoServices : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString activeProject READ activeProject CONSTANT)
    Q_PROPERTY(bool updateAvailable READ updateAvailable CONSTANT)
    Q_PROPERTY(QString latestVersion READ latestVersion CONSTANT)
    Q_PROPERTY(bool launchAtLogin READ launchAtLogin CONSTANT)
    Q_PROPERTY(QString launchAtLoginHelp READ launchAtLoginHelp CONSTANT)
public:
    using QObject::QObject;
    QString activeProject() const { return QStringLiteral("mindmeter"); }
    bool updateAvailable() const { return true; }
    QString latestVersion() const { return QStringLiteral("1.5.0"); }
    bool launchAtLogin() const { return true; }
    QString launchAtLoginHelp() const {
        return QStringLiteral("Mindmeter starts automatically at login.");
    }
    Q_INVOKABLE void setLaunchAtLogin(bool) {}
    Q_INVOKABLE void rescheduleDigest() {}
    Q_INVOKABLE void downloadAndOpenUpdate() {}
    Q_INVOKABLE void copyMarkdownSummary() {}
    Q_INVOKABLE void exportCSV() {}

signals:
    void downloadFinished(bool success);
};
