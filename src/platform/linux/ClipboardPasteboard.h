#pragma once

#include "platform/Pasteboard.h"

// The desktop clipboard (not the primary selection), through Qt. Needs a QGuiApplication.
class ClipboardPasteboard final : public Pasteboard {
public:
    void setText(const QString& text) override;
};
