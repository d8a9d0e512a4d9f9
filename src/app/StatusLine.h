#pragma once

#include "model/MenuBarDisplay.h"
#include "model/TokenType.h"

#include <QByteArray>
#include <QString>

class Clock;
class DayStore;
class Defaults;

// Today's load in the one-line forms that status bars run as a command: the tray label
// alone (`--format plain`) or waybar's JSON (`--format waybar`).
//
// The label is the status item's title. A status command sees only the store, not the
// running monitor, so the kind of work comes from the latest session: a tracker stores one
// every minute of activity, so a session that ended in the last two minutes stands for the
// work in front; otherwise nothing is earning and the dotted circle shows.
class StatusLine {
public:
    struct Facts {
        qint64 total = 0;
        qint64 baseline = 0;
        double saturation = 0;
        double temperature = 0;
        qint64 lastHour = 0;
        TokenType type = TokenType::reasoning;
        qint64 rate = 0; // tokens of the latest session while it is recent, else 0
        MenuBarDisplay display = MenuBarDisplay::iconAndCount;
    };

    // How recent the latest session must be to count as the work in front.
    static constexpr qint64 recentSeconds = 120;

    static Facts read(const DayStore& store, const Defaults& defaults, const Clock& clock);

    // The tray label: " 950 ⚡", " 12.3k ◌"; empty in the icon-only style.
    static QString label(const Facts& facts);
    // "normal", "orange" or "red", by the status icon's thresholds (whatever the style).
    static QString colourClass(double saturation);
    // One line of JSON: text, tooltip, class, percentage (saturation × 100, rounded).
    static QByteArray waybar(const Facts& facts);
    static QString tooltip(const Facts& facts);
};
