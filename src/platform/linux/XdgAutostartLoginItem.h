#pragma once

#include "platform/LoginItem.h"

#include <QString>

// Starting at login through an XDG autostart entry, $XDG_CONFIG_HOME/autostart/<id>.desktop,
// which every freedesktop.org desktop reads at login.
//
// Status: no entry → not registered; an entry → enabled; an entry marked Hidden=true or
// X-GNOME-Autostart-enabled=false (how the desktops' own settings switch an entry off, and
// how unregistering records the user's choice) → disabled; no executable to start →
// not found. Nothing here ever needs approval.
class XdgAutostartLoginItem final : public LoginItem {
public:
    // executable: the program to start; autostartFolder: where the entry goes.
    XdgAutostartLoginItem(QString executable, QString autostartFolder = defaultFolder());

    Status status() const override;
    bool registerItem(QString* error) override;
    bool unregisterItem(QString* error) override;

    QString entryPath() const;
    static QString defaultFolder();

private:
    bool writeEntry(bool enabled, QString* error);

    QString m_executable;
    QString m_folder;
};
