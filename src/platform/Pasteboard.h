#pragma once

#include "StandardInstance.h"

#include <QString>

// The desktop's clipboard, for plain text.
class Pasteboard {
public:
    virtual ~Pasteboard() = default;

    // Replaces whatever the clipboard holds with this text.
    virtual void setText(const QString& text) = 0;

    static Pasteboard& standard() {
        return StandardInstance<Pasteboard>::get("Pasteboard::standard()");
    }
    static void setStandard(Pasteboard* pasteboard) {
        StandardInstance<Pasteboard>::set(pasteboard);
    }
};
