#pragma once

#include <QString>

// The desktop's clipboard, for plain text.
class Clipboard {
public:
    virtual ~Clipboard() = default;

    // Replaces whatever the clipboard holds with this text.
    virtual void setText(const QString& text) = 0;
};
