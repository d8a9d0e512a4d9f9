#pragma once

#include "platform/Clipboard.h"

// The desktop clipboard (not the primary selection), through Qt. Needs a QGuiApplication.
class QtClipboard final : public Clipboard {
public:
    void setText(const QString& text) override;
};
