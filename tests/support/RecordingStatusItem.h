#pragma once

#include "platform/StatusItem.h"

// A status item that remembers what it was last told to show.
class RecordingStatusItem final : public StatusItem {
public:
    void setTitle(const QString& t, const QString& s) override {
        text = t;
        symbol = s;
        ++updates;
    }
    void setIcon(Icon i) override { icon = i; }
    void setMenu(const QList<StatusMenuItem>& items) override { menu = items; }
    void setCountPlacement(CountPlacement p) override { placement = p; }
    bool isVisible() const override { return true; }

    QString text, symbol;
    Icon icon = Icon::normal;
    CountPlacement placement = CountPlacement::automatic;
    QList<StatusMenuItem> menu;
    int updates = 0;
};
