#pragma once

#include <QByteArray>
#include <QString>

#include <optional>

// Reads a Chromium session log (the "SNSS" file in a profile's Sessions/ folder, also
// written by Google Chrome, Brave, Microsoft Edge and Vivaldi). The browser appends a
// command for every change (a tab moved to a window, a navigation, a tab or window selected
// or closed); replaying them gives the state the browser is in now.
class SnssSession {
public:
    SnssSession() = delete;

    // The address of the current navigation of the selected tab of the active window. None
    // when the file is not a readable session log (not SNSS, an encrypted version, empty) or
    // names no such tab. A command cut off at the end (the browser is writing) ends the
    // replay: the commands before it still count. A log that would take far more work to
    // replay than any real one (millions of steps) is given up on, with no answer.
    static std::optional<QString> selectedTabURL(const QByteArray& file);
};
