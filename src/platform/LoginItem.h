#pragma once

#include <QString>

// Whether the program starts when the user logs in: on Linux an XDG autostart entry
// (XdgAutostartLoginItem).
class LoginItem {
public:
    enum class Status {
        notRegistered,    // never set up: starting at login is off
        enabled,          // starts at login
        requiresApproval, // set up, waiting for the user to allow it in the system's settings
        notFound,         // this build cannot be started at login
        disabled,         // set up, then switched off in the desktop's own settings
    };

    virtual ~LoginItem() = default;
    virtual Status status() const = 0;
    // Both report false, with a reason in *error, when the change could not be made.
    virtual bool registerItem(QString* error) = 0;
    virtual bool unregisterItem(QString* error) = 0;
};
