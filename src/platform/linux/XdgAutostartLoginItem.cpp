#include "XdgAutostartLoginItem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

namespace {
const QString entryName = QStringLiteral("com.mindmeter.Mindmeter.desktop");

// Desktop entries escape spaces and a few characters in Exec by quoting.
QString quotedExec(const QString& path) {
    QString escaped = path;
    for (const char* c : {"\\", "\"", "`", "$"})
        escaped.replace(QLatin1String(c), QLatin1String("\\") + QLatin1String(c));
    return QLatin1Char('"') + escaped + QLatin1Char('"');
}
} // namespace

XdgAutostartLoginItem::XdgAutostartLoginItem(QString executable, QString autostartFolder)
    : m_executable(std::move(executable))
    , m_folder(std::move(autostartFolder)) {}

QString XdgAutostartLoginItem::defaultFolder() {
    QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir::isAbsolutePath(config))
        config = QDir::homePath() + QStringLiteral("/.config");
    return config + QStringLiteral("/autostart");
}

QString XdgAutostartLoginItem::entryPath() const {
    return m_folder + u'/' + entryName;
}

LoginItem::Status XdgAutostartLoginItem::status() const {
    const QFileInfo program(m_executable);
    if (m_executable.isEmpty() || !program.isExecutable())
        return Status::notFound;
    QFile entry(entryPath());
    if (!entry.open(QIODevice::ReadOnly))
        return Status::notRegistered;
    const QByteArray text = entry.read(64 * 1024);
    for (const QByteArray& raw : text.split('\n')) {
        const QByteArray line = raw.trimmed();
        if (line == "Hidden=true" || line == "X-GNOME-Autostart-enabled=false")
            return Status::disabled;
    }
    return Status::enabled;
}

bool XdgAutostartLoginItem::writeEntry(bool enabled, QString* error) {
    if (!QDir().mkpath(m_folder)) {
        if (error)
            *error = QStringLiteral("cannot create %1").arg(m_folder);
        return false;
    }
    QSaveFile file(entryPath());
    if (!file.open(QIODevice::WriteOnly)) {
        if (error)
            *error = file.errorString();
        return false;
    }
    QByteArray text = "[Desktop Entry]\n"
                      "Type=Application\n"
                      "Name=Mindmeter\n"
                      "Comment=Measures the day's cognitive load\n"
                      "Icon=com.mindmeter.Mindmeter\n"
                      "Exec=" +
                      quotedExec(m_executable).toUtf8() +
                      "\n"
                      "Terminal=false\n"
                      "X-GNOME-Autostart-enabled=" +
                      QByteArray(enabled ? "true" : "false") + "\n";
    if (!enabled)
        text += "Hidden=true\n";
    file.write(text);
    if (!file.commit()) {
        if (error)
            *error = file.errorString();
        return false;
    }
    return true;
}

bool XdgAutostartLoginItem::registerItem(QString* error) {
    if (status() == Status::notFound) {
        if (error)
            *error = QStringLiteral("no program to start at %1").arg(m_executable);
        return false;
    }
    return writeEntry(true, error);
}

bool XdgAutostartLoginItem::unregisterItem(QString* error) {
    // The entry stays, switched off, so the choice survives the start-up registration.
    return writeEntry(false, error);
}
